/// Programs that a benchmark times as a person runs them.
#pragma once

#include "tests/support/Spawning.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

namespace krl::bench {

/// Runs a program, whose output is not shown, and waits for its end.
/// @throw std::runtime_error unless it ends well
inline void run(std::vector<std::string> command) {
    posix_spawn_file_actions_t silently = {};
    ::posix_spawn_file_actions_init(&silently);
    ::posix_spawn_file_actions_addopen(&silently, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    int status = 0;
    const bool ended = ::posix_spawnp(&child, command.front().c_str(), &silently, nullptr,
                                      krl::test::pointersTo(command).data(), environ) == 0 &&
                       ::waitpid(child, &status, 0) == child && status == 0;
    ::posix_spawn_file_actions_destroy(&silently);
    if (!ended) {
        throw std::runtime_error(command.front() + " failed");
    }
}

/// How long something takes.
template <typename Work>
double secondsOf(Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    return taken.count();
}

inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace krl::bench
