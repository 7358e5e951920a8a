#pragma once

#include "engine/phones/DeviceNews.h"

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace krl::engine {

/// Devices as they come and go, for a program whose main loop must never stand still: they are
/// asked on a thread of their own, and what they say is handed over as values. All other work with
/// phones is done on that thread as well. One at a time.
class PhoneThread {
public:
    /// Starts to look for devices.
    /// @throw Failure when there is no device layer or no mux daemon
    PhoneThread();

    /// Ends the calls under way on all devices, with the provider's AMDeviceCancelCalls, and the
    /// thread. Without that extension it waits for a device that is silent.
    ~PhoneThread();

    PhoneThread(const PhoneThread&) = delete;
    PhoneThread& operator=(const PhoneThread&) = delete;

    /// A descriptor that is readable while there is news, for a main loop of any kind. Nothing is
    /// to be read from it.
    int descriptor() const { return event_; }

    /// The news since the last time, in order. Never waits.
    std::vector<DeviceNews::Item> take();

    /// Has something done on the thread, after what was posted before. Until it is over there is no
    /// news. What has not begun when the thread ends is not done.
    /// @param work  must not throw
    void post(std::function<void()> work);

    /// Ends what work under way waits for: its calls to phones, with that extension, and its run of
    /// the run loop. What it begins afterwards is not ended; so this is repeated until it is over. Any
    /// thread.
    void endWaits();

private:
    void run();
    void work();
    void deliver(DeviceNews::Item item);
    std::optional<std::function<void()>> nextWork();
    krl::cf::CFRef<CFRunLoopSourceRef> newBell();

    const int event_; ///< an eventfd
    std::mutex mutex_;
    std::vector<DeviceNews::Item> news_;       ///< under the lock
    std::deque<std::function<void()>> posted_; ///< under the lock
    bool isWorking_ = false;                   ///< the thread's own

    std::atomic<bool> isEnding_{false};
    krl::cf::CFRef<CFRunLoopRef> loop_;       ///< the thread's, from when it has started
    krl::cf::CFRef<CFRunLoopSourceRef> bell_; ///< likewise; rung when something is posted
    std::promise<void> started_;
    std::promise<void> ended_;
    std::thread thread_;
};

} // namespace krl::engine
