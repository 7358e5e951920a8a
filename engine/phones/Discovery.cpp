#include "engine/phones/Discovery.h"

#include "engine/errors/Failure.h"

#include <CoreFoundation/CoreFoundation.h>
#include <fmt/format.h>

#include <algorithm>

namespace vesk {

using std::chrono::milliseconds;

Discovery* Discovery::current_ = nullptr;

Discovery::Discovery() {
    if (AMDeviceNotificationSubscribe == nullptr) {
        throw Failure(ExitCode::NoDeviceLayer,
                      "the device layer (MobileDevice.so) is missing or cannot be loaded",
                      "Install libusbmuxd, libplist and libnss3, and keep MobileDevice.so beside "
                      "libKRLVesk.so.");
    }
    current_ = this;
    const int32_t status = AMDeviceNotificationSubscribe(callback, 0, 0, nullptr, &subscription_);
    if (status != 0) {
        current_ = nullptr;
        throw Failure(ExitCode::NoDeviceLayer,
                      fmt::format("attached devices cannot be watched (status {})", status),
                      "Check that the usbmuxd daemon runs: systemctl status usbmuxd");
    }
}

Discovery::~Discovery() {
    AMDShutdownNotificationProxy(subscription_);
    current_ = nullptr;
}

void Discovery::callback(am_device_notification_info* info) {
    if (current_ == nullptr) {
        return;
    }
    auto& devices = current_->devices_;
    const Device device(info->device);
    if (info->message == kAMDeviceMessageConnected) {
        devices.push_back(device);
        current_->events_.push_back({true, device});
    } else if (info->message == kAMDeviceMessageDisconnected) {
        devices.erase(std::remove(devices.begin(), devices.end(), device), devices.end());
        current_->events_.push_back({false, device});
    }
}

std::optional<Discovery::Event> Discovery::next(milliseconds wait) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + wait;
    do {
        const std::chrono::duration<double> left = std::max(end - Clock::now(), Clock::duration{});
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, left.count(), /*returnAfterSourceHandled=*/true);
    } while (events_.empty() && Clock::now() < end);
    if (events_.empty()) {
        return std::nullopt;
    }
    const Event event = events_.front();
    events_.pop_front();
    return event;
}

std::vector<AttachedDevice> Discovery::attached(milliseconds first) {
    constexpr milliseconds kMoment{100};
    std::vector<AttachedDevice> result;
    for (auto event = next(first); event; event = next(kMoment)) {
        if (event->arrived) {
            result.push_back({event->device, describe(event->device)});
        }
    }
    result.erase(
        std::remove_if(result.begin(), result.end(),
                       [this](const AttachedDevice& one) { return !isAttached(one.device); }),
        result.end());
    return result;
}

bool Discovery::isAttached(const Device& device) const {
    return std::find(devices_.begin(), devices_.end(), device) != devices_.end();
}

} // namespace vesk
