#include "Service.h"

#include <MobileDevice/MobileDevice.h>

#include <utility>

namespace krl::provider {

Service::Service(std::shared_ptr<Device> device, Handles::Id deviceId, uint16_t port)
    : device_(std::move(device)), deviceId_(deviceId), port_(port) {}

std::shared_ptr<Channel> Service::openChannel() {
    const std::lock_guard lock(mutex_);
    return std::exchange(opened_, true) ? nullptr : device_->open(port_);
}

int32_t Service::post(const std::string& notification) {
    const std::lock_guard lock(mutex_);
    if (!std::exchange(opened_, true)) {
        if (auto channel = device_->open(port_)) {
            proxy_.emplace(std::move(channel));
        }
    }
    if (!proxy_) {
        return kAMDNotConnected;
    }
    return proxy_->post(notification);
}

int32_t Service::shutdownProxy() {
    const std::lock_guard lock(mutex_);
    if (!opened_) {
        return 0; // nothing was posted, so there is nothing to confirm
    }
    if (!proxy_) {
        return kAMDNotConnected;
    }
    return proxy_->shutdown();
}

} // namespace krl::provider
