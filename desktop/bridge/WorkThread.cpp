#include "desktop/bridge/WorkThread.h"

#include "desktop/bridge/Worker.h"

#include <utility>

namespace krl::desktop {

WorkThread::WorkThread() {
    thread_ = startWorker([this] { run(); });
}

WorkThread::~WorkThread() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

void WorkThread::post(Work work) {
    {
        const std::lock_guard lock(mutex_);
        work_.push_back(std::move(work));
    }
    changed_.notify_one();
}

void WorkThread::run() {
    for (;;) {
        Work work;
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [this] { return isEnding_ || !work_.empty(); });
            if (work_.empty()) {
                return;
            }
            work = std::move(work_.front());
            work_.pop_front();
        }
        work();
    }
}

} // namespace krl::desktop
