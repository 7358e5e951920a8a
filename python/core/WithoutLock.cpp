#include "python/core/WithoutLock.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <thread>

namespace krl::python {

namespace {

// Of the process, as Python's end is. Threads still look at it while the program's objects end.
std::atomic<std::thread::id> ending; ///< who ends the program
std::atomic<int> threadsComingBack{
    0}; ///< have found that nobody does, and do not have the lock yet

bool othersEnd() {
    const std::thread::id one = ending;
    return one != std::thread::id() && one != std::this_thread::get_id();
}

void comeBack(int change) {
    threadsComingBack += change;
    threadsComingBack.notify_all();
}

} // namespace

void WithoutLock::prepare() {
    // Of the threads that come back, none does in a child.
    pthread_atfork(nullptr, nullptr, [] { threadsComingBack = 0; });
}

WithoutLock::~WithoutLock() {
    comeBack(1);
    if (othersEnd()) {
        comeBack(-1);
        for (;;) {
            ::pause();
        }
    }
    PyEval_RestoreThread(state_);
    comeBack(-1);
}

void WithoutLock::end() {
    ending = std::this_thread::get_id();
    const WithoutLock without;
    for (int threads = threadsComingBack; threads > 0; threads = threadsComingBack) {
        threadsComingBack.wait(threads);
    }
}

} // namespace krl::python
