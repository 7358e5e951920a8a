#pragma once

#include <chrono>

namespace krl::tags {

/// Takes from this process, for good, what reading tags has no need of: memory beyond 256 MiB,
/// writing to files, opening any beside the three that it has and one that it is handed, starting
/// programs, leaving a core file, and every system call but a few.
void confine();

/// Gives the process so much time of computing from now on, after which it is ended.
void allowComputing(std::chrono::microseconds time);

} // namespace krl::tags
