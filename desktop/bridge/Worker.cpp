#include "desktop/bridge/Worker.h"

#include <pthread.h>

#include <csignal>
#include <utility>

namespace krl::desktop {

std::thread startWorker(std::function<void()> run) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    // Before it begins; a thread has what its maker has.
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread thread(std::move(run));
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
}

} // namespace krl::desktop
