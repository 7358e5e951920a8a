// The record of a pairing that this computer holds for one phone.
#pragma once

#include "mobiledevice/provider/wire/PlistRef.h"

#include <cstddef>
#include <optional>
#include <span>
#include <string>

namespace krl::provider {

class PairRecord {
public:
    /// Of a new pairing.
    PairRecord(PlistRef contents, std::string hostId);

    /// Nothing if the bytes are no property list or name no host.
    static std::optional<PairRecord> parse(std::span<const std::byte> bytes);

    [[nodiscard]] const std::string& hostId() const { return hostId_; }

    /// Missing in some records; the mux daemon knows it too.
    [[nodiscard]] std::optional<std::string> systemBuid() const;

    /// A key or certificate, PEM text; empty when the record has none of that name.
    [[nodiscard]] std::string dataText(const char* key) const;

    /// Adds what the phone has given at the pairing.
    void setData(const char* key, const std::string& bytes);

    /// The whole record as an XML document; empty when memory is out.
    [[nodiscard]] std::string xml() const;

    /// What the phone is shown of it: who this computer is and the certificates, and nothing else
    /// that may stand in the record.
    [[nodiscard]] PlistRef shownToPhone() const;

private:
    PlistRef contents_;
    std::string hostId_;
};

} // namespace krl::provider
