#pragma once

#include "engine/phones/Device.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace krl::engine {

/// A device and what it said.
struct AttachedDevice {
    Device device;
    DeviceDescription description;
};

/// The devices that are attached, by a subscription of its own: unlike the phone manager it also
/// knows devices that are no iPhones or not paired. All of a process on one thread.
class Discovery {
public:
    struct Event {
        bool arrived;
        Device device;
    };

    /// Subscribes.
    /// @throw Failure when there is no device layer
    Discovery();
    ~Discovery();
    Discovery(const Discovery&) = delete;
    Discovery& operator=(const Discovery&) = delete;

    /// The next arrival or removal; none when nothing happens for so long, or when the thread's run
    /// loop is stopped.
    std::optional<Event> next(std::chrono::milliseconds wait);

    /// Waits, for so long and a moment at least, until all that is attached is among what comes next.
    /// @return the device layer's status
    int32_t awaitList(std::chrono::milliseconds longest) const;

    /// What is attached. If nothing is, waits for a first device for as long as `first`, then until
    /// nothing has arrived for a moment. That is also how long is waited for the daemon's list.
    std::vector<AttachedDevice> attached(std::chrono::milliseconds first);

    /// For when nothing has come: a daemon that starts with its first phone may be missing before.
    /// @throw Failure when no mux daemon can be asked what is attached
    void requireMuxDaemon() const;

private:
    static void callback(am_device_notification_info* info);

    // The callback is given no context: whichever subscription tells, all of them hear it, and pass
    // over what they know.
    static std::vector<Discovery*> all_;

    void hear(uint32_t message, const Device& device);
    bool isAttached(const Device& device) const;

    am_device_notification* subscription_ = nullptr;
    std::deque<Event> events_;
    std::vector<Device> devices_;
};

} // namespace krl::engine
