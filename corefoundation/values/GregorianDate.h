/// Absolute times as calendar dates in UTC, in the form 2001-01-01T00:00:00Z. Internal.
#pragma once

#include <CoreFoundation/CFDate.h>
#include <optional>
#include <string>
#include <string_view>

namespace krl::cf {

/// Whole seconds, rounded down; the year with at least four digits, and a minus if it has one.
std::string formatDate(CFAbsoluteTime time);

/// Reads exactly that form. The year may have any number of digits; fields beyond their range carry
/// over into the next larger one.
std::optional<CFAbsoluteTime> parseDate(std::string_view text);

} // namespace krl::cf
