// What stands in for TlsSecurity.cpp and Pairing.cpp in a build without NSS.

#include "mobiledevice/provider/security/Pairing.h"
#include "mobiledevice/provider/security/SessionSecurity.h"

#include <MobileDevice/MobileDevice.h>

namespace krl::provider {

std::unique_ptr<SessionSecurity> newSessionSecurity() {
    return std::make_unique<ClearSessionsOnly>();
}

int32_t sessionSupport() {
    return kAMDSessionNotSupported;
}

int32_t newPairRecord(const PairingFacts&, PlistRef&) {
    return kAMDSessionNotSupported;
}

} // namespace krl::provider
