#include "virtualphone/phone/Firmware.h"

#include <cstdio>
#include <tuple>

namespace virtualphone {

bool isAtLeast(const std::string& firmware, unsigned major, unsigned minor, unsigned patch) {
    unsigned hasMajor = 0;
    unsigned hasMinor = 0;
    unsigned hasPatch = 0;
    std::sscanf(firmware.c_str(), "%u.%u.%u", &hasMajor, &hasMinor, &hasPatch);
    return std::tie(hasMajor, hasMinor, hasPatch) >= std::tie(major, minor, patch);
}

std::string_view buildVersion(std::string_view firmware, bool isPhone) {
    struct Build {
        std::string_view firmware;
        std::string_view ofPhone;
        std::string_view ofPod;
    };

    // The pod came with 1.1.
    static constexpr Build kBuilds[] = {
        {"1.0", "1A543a", ""},     {"1.0.0", "1A543a", ""},       {"1.0.1", "1C25", ""},
        {"1.0.2", "1C28", ""},     {"1.1.1", "3A109a", "3A101a"}, {"1.1.2", "3B48b", "3B48b"},
        {"1.1.3", "4A93", "4A93"}, {"1.1.4", "4A102", "4A102"},
    };
    for (const Build& build : kBuilds) {
        if (build.firmware == firmware) {
            return isPhone ? build.ofPhone : build.ofPod;
        }
    }
    return {};
}

} // namespace virtualphone
