#pragma once

#include <MobileDevice/Provider.h>

namespace krl::phone {

/// Whether every function is there that a provider must have. While no provider was found, and
/// before an application has brought its own, they are not; then none of them is called at all.
inline bool hasDeviceLayer() {
#define KRL_MUST_BE_THERE(function)                                                                \
    if ((function) == nullptr) {                                                                   \
        return false;                                                                              \
    }
    MOBILEDEVICE_REQUIRED_FUNCTIONS(KRL_MUST_BE_THERE)
#undef KRL_MUST_BE_THERE
    return true;
}

} // namespace krl::phone
