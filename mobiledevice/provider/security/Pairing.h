// Making the record of a new pairing.
#pragma once

#include "mobiledevice/provider/wire/PlistRef.h"

#include <cstdint>
#include <optional>
#include <string>

namespace krl::provider {

struct PairingFacts {
    std::string devicePublicKey; ///< the phone's, as PEM text
    std::string systemBuid;      ///< this computer's identity
    std::optional<std::string> wifiAddress;
};

/// A pair record with a new host identity: a root that signs, the host's key and certificate, and a
/// certificate about the phone's key. 0, or a status: kAMDBadReply when the phone's key is none.
int32_t newPairRecord(const PairingFacts& facts, PlistRef& record);

} // namespace krl::provider
