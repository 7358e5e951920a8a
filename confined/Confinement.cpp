#include "confined/Confinement.h"

#include <seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/time.h>

#include <cerrno>
#include <initializer_list>
#include <memory>

namespace krl::confined {
namespace {

[[maybe_unused]] void limit(__rlimit_resource_t resource, rlim_t most) {
    const rlimit value{most, most};
    setrlimit(resource, &value);
}

/// What remains after this: reading, seeking, memory, the socket, perhaps writing, and ending. All
/// else is refused, which the C library takes for a lack of permission.
[[maybe_unused]] void allowFewSystemCalls(bool writing) {
    const std::unique_ptr<void, decltype(&seccomp_release)> filter(
        seccomp_init(SCMP_ACT_ERRNO(EPERM)), seccomp_release);
    for (const int call :
         {SCMP_SYS(brk),          SCMP_SYS(close),    SCMP_SYS(exit),      SCMP_SYS(exit_group),
          SCMP_SYS(fcntl),        SCMP_SYS(fstat),    SCMP_SYS(futex),     SCMP_SYS(getpid),
          SCMP_SYS(getrandom),    SCMP_SYS(gettid),   SCMP_SYS(lseek),     SCMP_SYS(madvise),
          SCMP_SYS(mmap),         SCMP_SYS(mprotect), SCMP_SYS(mremap),    SCMP_SYS(munmap),
          SCMP_SYS(newfstatat),   SCMP_SYS(read),     SCMP_SYS(recvmsg),   SCMP_SYS(rt_sigprocmask),
          SCMP_SYS(rt_sigreturn), SCMP_SYS(sendmsg),  SCMP_SYS(setitimer), SCMP_SYS(tgkill)}) {
        seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, call, 0);
    }
    if (writing) {
        seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, SCMP_SYS(write), 0);
    }
    // A kernel without filters leaves the limits.
    seccomp_load(filter.get());
}

} // namespace

void confine([[maybe_unused]] const Allowance& allowance) {
    prctl(PR_SET_DUMPABLE, 0);
#ifndef KRL_UNCONFINED
    limit(RLIMIT_AS, allowance.memoryBytes);
    limit(RLIMIT_FSIZE, allowance.writtenBytes);
    limit(RLIMIT_NOFILE, allowance.descriptors);
    allowFewSystemCalls(allowance.writtenBytes > 0);
#endif
}

void allowComputing(std::chrono::microseconds time) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    const itimerval timer{{0, 0}, {seconds.count(), (time - seconds).count()}};
    setitimer(ITIMER_PROF, &timer, nullptr); // its signal ends the process
}

} // namespace krl::confined
