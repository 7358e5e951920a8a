// The descriptors of this process.
#pragma once

#include <fcntl.h>
#include <sys/resource.h>

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

/// Whether one of them watches files.
inline bool isWatchingFiles() {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry, gone) == "anon_inode:inotify") {
            return true;
        }
    }
    return false;
}

/// Lets the process have more than 2,000 descriptors while it lives, where the system allows that.
class ManyDescriptors {
public:
    ManyDescriptors() {
        areAllowed_ = ::getrlimit(RLIMIT_NOFILE, &before_) == 0 && before_.rlim_max >= kMost;
        if (areAllowed_) {
            rlimit limit = before_;
            limit.rlim_cur = kMost;
            areAllowed_ = ::setrlimit(RLIMIT_NOFILE, &limit) == 0;
        }
    }

    ~ManyDescriptors() {
        if (areAllowed_) {
            ::setrlimit(RLIMIT_NOFILE, &before_);
        }
    }

    ManyDescriptors(const ManyDescriptors&) = delete;
    ManyDescriptors& operator=(const ManyDescriptors&) = delete;

    bool areAllowed() const { return areAllowed_; }

private:
    static constexpr rlim_t kMost = 2100;

    rlimit before_{};
    bool areAllowed_ = false;
};

} // namespace krl::provider::testing
