#include "mobiledevice/provider/services/LockdownErrors.h"

#include <MobileDevice/MobileDevice.h>

namespace krl::provider {

namespace {

struct KnownError {
    std::string_view name;
    int32_t number;
};

#define KRL_KNOWN_ERROR(name, status) {#name, status},
constexpr KnownError kKnownErrors[] = {MOBILEDEVICE_LOCKDOWN_ERRORS(KRL_KNOWN_ERROR)};
#undef KRL_KNOWN_ERROR

} // namespace

int32_t lockdownErrorNumber(std::string_view name) {
    for (const KnownError& known : kKnownErrors) {
        if (known.name == name) {
            return known.number;
        }
    }
    return kAMDRefused;
}

} // namespace krl::provider
