#include "mobiledevice/provider/devices/Service.h"

#include <MobileDevice/MobileDevice.h>

#include <utility>

namespace krl::provider {

Service::Service(std::shared_ptr<Device> device, Handles::Id deviceId, ServiceAddress address)
    : device_(std::move(device)), deviceId_(deviceId), address_(address) {}

int32_t Service::openOnce(std::shared_ptr<Channel>& channel) {
    return std::exchange(opened_, true) ? int32_t{kAMDNotConnected}
                                        : device_->open(address_, channel);
}

int32_t Service::openChannel(std::shared_ptr<Channel>& channel) {
    const std::lock_guard lock(mutex_);
    return openOnce(channel);
}

int32_t Service::post(const std::string& notification) {
    const std::lock_guard lock(mutex_);
    if (!proxy_) {
        std::shared_ptr<Channel> channel;
        if (const int32_t status = openOnce(channel)) {
            return status;
        }
        proxy_.emplace(std::move(channel));
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
