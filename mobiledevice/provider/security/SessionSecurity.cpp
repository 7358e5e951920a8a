#include "mobiledevice/provider/security/SessionSecurity.h"

#include <MobileDevice/MobileDevice.h>

namespace krl::provider {

int32_t ClearSessionsOnly::begin(Channel&, const PairRecord&, Protocol) {
    return kAMDSessionNotSupported;
}

void ClearSessionsOnly::end(Channel&) {}

} // namespace krl::provider
