// The names that lockdown gives its errors, as numbers.
#pragma once

#include <cstdint>
#include <string_view>

namespace krl::provider {

/// The number of an error name: below 0, or kAMDRefused for a name that has none.
int32_t lockdownErrorNumber(std::string_view name);

} // namespace krl::provider
