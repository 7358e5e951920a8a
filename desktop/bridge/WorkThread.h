#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace krl::desktop {

/// Does pieces of work one after the other, on a thread of its own. Its end waits for all of them.
class WorkThread {
public:
    using Work = std::function<void()>;

    WorkThread();
    ~WorkThread();
    WorkThread(const WorkThread&) = delete;
    WorkThread& operator=(const WorkThread&) = delete;

    /// @param work  must not throw
    void post(Work work);

private:
    void run();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Work> work_; ///< under the lock
    bool isEnding_ = false; ///< under the lock
    std::thread thread_;
};

} // namespace krl::desktop
