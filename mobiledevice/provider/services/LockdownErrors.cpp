#include "mobiledevice/provider/services/LockdownErrors.h"

#include <MobileDevice/MobileDevice.h>

namespace krl::provider {

namespace {

struct KnownError {
    std::string_view name;
    int32_t number;
};

constexpr KnownError kKnownErrors[] = {
    {"MissingKey", -11},
    {"MissingValue", -12},
    {"GetProhibited", -13},
    {"SetProhibited", -14},
    {"PasswordProtected", -17},
    {"UserDeniedPairing", -18},
    {"PairingDialogResponsePending", -19},
    {"MissingHostID", -20},
    {"InvalidHostID", -21},
    {"SessionActive", -22},
    {"SessionInactive", -23},
    {"MissingSessionID", -24},
    {"InvalidSessionID", -25},
    {"MissingService", -26},
    {"InvalidService", -27},
    {"ServiceLimit", -28},
    {"MissingPairRecord", -29},
    {"InvalidPairRecord", -31},
    {"ServiceProhibited", -34},
};

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
