#pragma once

#include <string_view>

namespace krl::engine {

/// Writes all of it to an open file.
/// @return 0, or the error
int writeAll(int descriptor, std::string_view bytes);

} // namespace krl::engine
