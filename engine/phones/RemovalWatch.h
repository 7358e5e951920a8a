#pragma once

#include <MobileDevice/MobileDevice.h>

#include <atomic>
#include <future>
#include <thread>

namespace krl::engine {

/// Hears that a device is pulled out, by a subscription and a thread of its own: for a thread whose
/// run loop stands still meanwhile. What was pulled out before it began is not heard of.
class RemovalWatch {
public:
    /// Begins to listen.
    /// @param device  outlives it
    explicit RemovalWatch(am_device* device);

    ~RemovalWatch();

    RemovalWatch(const RemovalWatch&) = delete;
    RemovalWatch& operator=(const RemovalWatch&) = delete;

    /// Whether it was pulled out. Never waits.
    bool isGone() const { return isGone_; }

private:
    static void hear(am_device_notification_info* news);
    void run();

    am_device* const device_;
    std::atomic<bool> isGone_{false};
    std::atomic<bool> isEnding_{false};
    std::promise<void> listens_;
    std::thread thread_;
};

} // namespace krl::engine
