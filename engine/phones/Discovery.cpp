#include "engine/phones/Discovery.h"

#include "engine/errors/Failure.h"
#include "engine/layer/DeviceLayer.h"

#include <CoreFoundation/CoreFoundation.h>
#include <fmt/format.h>

#include <algorithm>

namespace krl::engine {

using std::chrono::milliseconds;

std::vector<Discovery*> Discovery::all_;

Discovery::Discovery() {
    if (AMDeviceNotificationSubscribe == nullptr) {
        throw Failure(FailureKind::NoDeviceLayer,
                      "the device layer (MobileDevice.so) is missing or cannot be loaded",
                      "Install libplist and libnss3, and keep MobileDevice.so beside "
                      "libKRLVesk.so.");
    }
    layer::lay();
    all_.push_back(this);
    const int32_t status = AMDeviceNotificationSubscribe(callback, 0, 0, nullptr, &subscription_);
    if (status != 0) {
        std::erase(all_, this);
        throw Failure(FailureKind::NoDeviceLayer,
                      fmt::format("attached devices cannot be watched (status {})", status),
                      "Check that the usbmuxd daemon runs: systemctl status usbmuxd");
    }
}

Discovery::~Discovery() {
    AMDShutdownNotificationProxy(subscription_);
    std::erase(all_, this);
}

void Discovery::callback(am_device_notification_info* info) {
    const Device device(info->device);
    for (Discovery* const one : all_) {
        one->hear(info->message, device);
    }
}

void Discovery::hear(uint32_t message, const Device& device) {
    if (message == kAMDeviceMessageConnected && !isAttached(device)) {
        devices_.push_back(device);
        events_.push_back({true, device});
    } else if (message == kAMDeviceMessageDisconnected && std::erase(devices_, device) > 0) {
        events_.push_back({false, device});
    }
}

std::optional<Discovery::Event> Discovery::next(milliseconds wait) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + wait;
    do {
        // What was heard while somebody else ran the loop has waited long enough.
        const std::chrono::duration<double> left =
            events_.empty() ? std::max(end - Clock::now(), Clock::duration{}) : Clock::duration{};
        if (CFRunLoopRunInMode(kCFRunLoopDefaultMode, left.count(),
                               /*returnAfterSourceHandled=*/true) == kCFRunLoopRunStopped) {
            break;
        }
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
    const auto take = [&](const Event& event) {
        if (event.arrived) {
            result.push_back({event.device, describe(event.device)});
        }
    };
    if (awaitList(first) == 0) {
        while (const auto event = next(milliseconds{0})) {
            take(*event);
        }
    }
    if (result.empty()) {
        for (auto event = next(first); event; event = next(kMoment)) {
            take(*event);
        }
    }
    result.erase(
        std::remove_if(result.begin(), result.end(),
                       [this](const AttachedDevice& one) { return !isAttached(one.device); }),
        result.end());
    return result;
}

// The mux reports attached devices in one go; without its list nothing says which is the last. A
// daemon that is there answers at once: whoever waits for no phone to come hears of those that have.
int32_t Discovery::awaitList(milliseconds longest) const {
    constexpr milliseconds kMoment{1000};
    const auto timeoutMs = static_cast<uint32_t>(std::max(longest, kMoment).count());
    return AMDeviceWaitForAttached == nullptr ? kAMDTimedOut
                                              : AMDeviceWaitForAttached(subscription_, timeoutMs);
}

void Discovery::requireMuxDaemon() const {
    if (awaitList(milliseconds{0}) == kAMDNoMuxDaemon) {
        throw Failure(FailureKind::NoDeviceLayer, "no usbmux daemon (usbmuxd) can be reached",
                      "On Debian the daemon starts with a phone: plug one in. Is the package "
                      "usbmuxd installed? vesk doctor looks further.");
    }
}

bool Discovery::isAttached(const Device& device) const {
    return std::find(devices_.begin(), devices_.end(), device) != devices_.end();
}

} // namespace krl::engine
