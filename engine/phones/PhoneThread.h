#pragma once

#include "engine/phones/DeviceNews.h"

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

namespace krl::engine {

/// Devices as they come and go, for a program whose main loop must never stand still: they are
/// asked on a thread of their own, and what they say is handed over as values. One at a time.
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

private:
    void run();
    void deliver(DeviceNews::Item item);

    const int event_; ///< an eventfd
    std::mutex mutex_;
    std::vector<DeviceNews::Item> news_; ///< under the lock

    std::atomic<bool> isEnding_{false};
    krl::cf::CFRef<CFRunLoopRef> loop_; ///< the thread's, from when it has started
    std::promise<void> started_;
    std::promise<void> ended_;
    std::thread thread_;
};

} // namespace krl::engine
