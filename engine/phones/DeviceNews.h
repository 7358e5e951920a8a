#pragma once

#include "engine/phones/Discovery.h"

#include <chrono>
#include <optional>
#include <vector>

namespace krl::engine {

/// Devices as they come and go, each with what it said when it came: one that is gone cannot be
/// asked any more. Asking blocks, for as long as a call may take when the device is silent.
class DeviceNews {
public:
    struct Item {
        bool arrived;
        AttachedDevice device;
    };

    /// The next arrival or removal; none when nothing happens for so long, or when the thread's run
    /// loop is stopped.
    std::optional<Item> next(std::chrono::milliseconds wait);

    /// The next one, however long that takes; sleeps until then.
    Item wait();

private:
    AttachedDevice arrived(const Device& device);
    AttachedDevice removed(const Device& device);

    Discovery discovery_;
    std::vector<AttachedDevice> known_;
};

} // namespace krl::engine
