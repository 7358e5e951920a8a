#pragma once

#include <chrono>
#include <cstdint>

namespace krl::confined {

/// What a process that reads untrusted files keeps.
struct Allowance {
    uint64_t memoryBytes = 0;
    uint64_t descriptors = 0;  ///< open at one time, the three that every process begins with too
    uint64_t writtenBytes = 0; ///< to a file that it is handed; 0: it writes to none
};

/// Takes everything else from this process, for good: opening files, the network, starting
/// programs and threads, leaving a core file, and every system call but a few.
void confine(const Allowance& allowance);

/// Gives the process so much time of computing from now on, after which it is ended.
void allowComputing(std::chrono::microseconds time);

} // namespace krl::confined
