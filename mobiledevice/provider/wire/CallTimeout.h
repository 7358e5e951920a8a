// How long the phone may be silent before a call fails, one value for the process.
#pragma once

#include <chrono>
#include <cstdint>

namespace krl::provider {

inline constexpr std::chrono::milliseconds kDefaultCallTimeout{10'000};

/// The silence allowed from now on. Any thread.
std::chrono::milliseconds callTimeout();

/// Sets it; 0 restores the default. Waits that have begun keep the old one. Any thread.
void setCallTimeout(uint32_t timeoutMs);

} // namespace krl::provider
