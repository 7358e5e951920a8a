#include "engine/phones/MutedStandardError.h"

#include <fcntl.h>
#include <mutex>
#include <unistd.h>

namespace krl::engine {
namespace {

// The stream is the process's: threads that mute it at the same time mute it once.
std::mutex mutex;
int muters = 0;
int saved = -1; // stays negative where standard error is closed anyway

} // namespace

MutedStandardError::MutedStandardError() {
    const std::lock_guard lock(mutex);
    if (muters++ > 0) {
        return;
    }
    saved = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    const int nowhere = saved < 0 ? -1 : open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere >= 0) {
        dup2(nowhere, STDERR_FILENO);
        close(nowhere);
    }
}

MutedStandardError::~MutedStandardError() {
    const std::lock_guard lock(mutex);
    if (--muters > 0 || saved < 0) {
        return;
    }
    dup2(saved, STDERR_FILENO);
    close(saved);
    saved = -1;
}

} // namespace krl::engine
