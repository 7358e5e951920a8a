#include "engine/phones/DeviceNews.h"

#include <algorithm>
#include <utility>

namespace krl::engine {

std::optional<DeviceNews::Item> DeviceNews::next(std::chrono::milliseconds wait) {
    const auto event = discovery_.next(wait);
    if (!event) {
        return std::nullopt;
    }
    return Item{event->arrived, event->arrived ? arrived(event->device) : removed(event->device)};
}

AttachedDevice DeviceNews::arrived(const Device& device) {
    return known_.emplace_back(AttachedDevice{device, describe(device)});
}

AttachedDevice DeviceNews::removed(const Device& device) {
    const auto found = std::find_if(known_.begin(), known_.end(),
                                    [&](const auto& one) { return one.device == device; });
    if (found == known_.end()) {
        return {device, {}};
    }
    AttachedDevice result = std::move(*found);
    known_.erase(found);
    return result;
}

} // namespace krl::engine
