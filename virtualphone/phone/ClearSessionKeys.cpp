// Stands in for NssSessionKeys.cpp in a build without NSS.

#include "virtualphone/phone/SessionKeys.h"

#include <stdexcept>

namespace virtualphone {

std::unique_ptr<const SessionKeys> newSessionKeys(const PhoneOptions& options) {
    if (options.session != SessionKind::Clear) {
        throw std::invalid_argument("this virtual phone was built without NSS (libnss3-dev): its "
                                    "sessions are in clear only");
    }
    return nullptr;
}

} // namespace virtualphone
