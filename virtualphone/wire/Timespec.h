/// Lengths of time as ppoll() takes them.
#pragma once

#include <algorithm>
#include <chrono>
#include <ctime>

namespace virtualphone {

/// What is over already is no time.
inline timespec timespecOf(std::chrono::nanoseconds time) {
    time = std::max(time, std::chrono::nanoseconds::zero());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    timespec spec{};
    spec.tv_sec = seconds.count();
    spec.tv_nsec = (time - seconds).count();
    return spec;
}

} // namespace virtualphone
