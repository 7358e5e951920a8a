// One counted reference to a device handle.
#pragma once

#include <MobileDevice/MobileDevice.h>

#include <utility>

namespace krl::provider {

/// Takes one more reference; null for a handle that is stale.
am_device* retainDevice(am_device* device);

/// Gives one back; the last one ends everything that the device has open.
void releaseDevice(am_device* device);

class DeviceReference {
public:
    DeviceReference() = default;

    /// One more reference.
    static DeviceReference retaining(am_device* device) {
        return DeviceReference(retainDevice(device));
    }

    /// Takes over a reference that is there already.
    static DeviceReference adopting(am_device* device) { return DeviceReference(device); }

    DeviceReference(DeviceReference&& other) noexcept
        : device_(std::exchange(other.device_, nullptr)) {}

    DeviceReference& operator=(DeviceReference&& other) noexcept {
        DeviceReference taken(std::move(other));
        std::swap(device_, taken.device_);
        return *this;
    }

    ~DeviceReference() { releaseDevice(device_); }

    [[nodiscard]] am_device* get() const { return device_; }

private:
    explicit DeviceReference(am_device* device) : device_(device) {}

    am_device* device_ = nullptr;
};

} // namespace krl::provider
