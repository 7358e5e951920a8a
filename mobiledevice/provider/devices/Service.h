// A service that the phone has started on a port, as callers hold it.
#pragma once

#include "mobiledevice/provider/devices/Device.h"
#include "mobiledevice/provider/devices/Handles.h"
#include "mobiledevice/provider/services/NotificationProxyClient.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace krl::provider {

/// The port is connected when it is first spoken to, so a service that nobody uses holds no
/// descriptor. It is good for one connection: a file connection, or a notification proxy.
class Service final : public Object {
public:
    Service(std::shared_ptr<Device> device, Handles::Id deviceId, ServiceAddress address);

    [[nodiscard]] Handles::Id deviceId() const { return deviceId_; }

    [[nodiscard]] const Device& device() const { return *device_; }

    /// Connects the port for somebody else to speak on; 0, or a status when that fails or it was
    /// connected before.
    int32_t openChannel(std::shared_ptr<Channel>& channel);

    int32_t post(const std::string& notification);
    int32_t shutdownProxy();

private:
    int32_t openOnce(std::shared_ptr<Channel>& channel);

    const std::shared_ptr<Device> device_;
    const Handles::Id deviceId_;
    const ServiceAddress address_;

    std::mutex mutex_; // held for the length of a call
    bool opened_ = false;
    std::optional<NotificationProxyClient> proxy_;
};

} // namespace krl::provider
