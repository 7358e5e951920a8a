/// What a firmware version stands for.
#pragma once

#include <string>
#include <string_view>

namespace virtualphone {

/// Whether a version is this one or later; false for what is no version.
bool isAtLeast(const std::string& firmware, unsigned major, unsigned minor, unsigned patch = 0);

/// "BuildVersion" of a version, or empty when it is not known.
std::string_view buildVersion(std::string_view firmware, bool isPhone);

} // namespace virtualphone
