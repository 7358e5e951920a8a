// Streams whose other sides' certificates NSS would take for each other follow one another.
#pragma once

#include "nss/Owners.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace krl::nss {

/// As long as a stream lives, NSS keeps the certificate of its other side in a table of the whole
/// process, and there two of one issuer and serial number are one and the same: the second is
/// refused. Pairing tools give every certificate of every record the same. So a stream of whose other
/// side such a certificate is expected has its turn once no other one needs the place; streams
/// that expect the very same certificates share it.
class PeerTurn {
public:
    /// Clients and servers that speak with each other in one process must not wait for each other.
    enum class Side { Client, Server };

    /// What is expected, by what NSS tells certificates apart by.
    using Places = std::map<std::string, std::string>;

    /// Waits for its turn. `mayWait` is asked every now and then; false once it says no.
    static bool take(Side side, const std::vector<const CERTCertificate*>& expected,
                     std::optional<PeerTurn>& turn, const std::function<bool()>& mayWait);

    explicit PeerTurn(Places places) : places_(std::move(places)) {}

    PeerTurn(PeerTurn&& other) noexcept : places_(std::exchange(other.places_, {})) {}

    PeerTurn& operator=(PeerTurn&& other) = delete;
    ~PeerTurn();

private:
    static Places placesFor(Side side, const std::vector<const CERTCertificate*>& expected);

    Places places_;
};

} // namespace krl::nss
