// The descriptors of this process.
#pragma once

#include <fcntl.h>

#include <cstddef>
#include <filesystem>
#include <iterator>
#include <string>

namespace krl::provider::testing {

inline size_t openDescriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

/// How many of them a child process would inherit.
inline int inheritableDescriptors() {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int flags = ::fcntl(std::stoi(entry.path().filename()), F_GETFD);
        count += flags >= 0 && (flags & FD_CLOEXEC) == 0 ? 1 : 0;
    }
    return count;
}

} // namespace krl::provider::testing
