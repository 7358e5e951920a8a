#pragma once

#include <optional>
#include <string_view>

namespace krl::audio {

/// A time as a person writes it: "62.5", "1:02.5", "1:00:02"; with a minus sign in front: from the
/// end. None when it is nothing of that.
std::optional<double> secondsIn(std::string_view text);

} // namespace krl::audio
