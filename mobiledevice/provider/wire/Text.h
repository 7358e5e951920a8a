// Texts between CoreFoundation and the wire.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <optional>
#include <string>

namespace krl::provider {

/// In UTF-8; nothing for null, for an object that is no string, and for text that UTF-8 cannot
/// express.
std::optional<std::string> utf8(CFStringRef string);

} // namespace krl::provider
