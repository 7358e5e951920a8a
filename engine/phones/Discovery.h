#pragma once

#include "engine/phones/Device.h"

#include <chrono>
#include <deque>
#include <optional>
#include <vector>

namespace vesk {

/// A device and what it said.
struct AttachedDevice {
    Device device;
    DeviceDescription description;
};

/// The devices that are attached, by a subscription of its own: unlike the phone manager it also
/// knows devices that are no iPhones or not paired. One at a time, on one thread.
class Discovery {
public:
    struct Event {
        bool arrived;
        Device device;
    };

    /// Subscribes.
    /// @throw Failure when there is no device layer or no mux daemon
    Discovery();
    ~Discovery();
    Discovery(const Discovery&) = delete;
    Discovery& operator=(const Discovery&) = delete;

    /// The next arrival or removal; none when nothing happens for so long.
    std::optional<Event> next(std::chrono::milliseconds wait);

    /// Waits for a first device for as long as `first`, then until nothing has arrived for a
    /// moment, and returns what is attached. The mux reports attached devices in one go, before it
    /// answers anything else, but nothing says which is the last: asking each one as it comes gives
    /// the others time to get here.
    std::vector<AttachedDevice> attached(std::chrono::milliseconds first);

private:
    static void callback(am_device_notification_info* info);

    // The callback is given no context.
    static Discovery* current_;

    bool isAttached(const Device& device) const;

    am_device_notification* subscription_ = nullptr;
    std::deque<Event> events_;
    std::vector<Device> devices_;
};

} // namespace vesk
