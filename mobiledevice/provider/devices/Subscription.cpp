#include "mobiledevice/provider/devices/Subscription.h"

#include <algorithm>
#include <utility>

namespace krl::provider {

Subscription::Subscription(am_device_notification_callback callback) : callback_(callback) {}

void Subscription::schedule(am_device_notification* self) {
    CFRunLoopSourceContext context{};
    context.info = self; // looked up at each delivery, so a late one finds nothing
    context.perform = &Subscription::perform;
    source_ = cf::adopt(CFRunLoopSourceCreate(nullptr, 0, &context));
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source_.get(), kCFRunLoopCommonModes);
}

void Subscription::enqueue(am_device* device, uint32_t message) {
    {
        const std::lock_guard lock(mutex_);
        if (ended_) {
            return;
        }
        if (message == kAMDeviceMessageConnected) {
            attached_.push_back(DeviceReference::retaining(device));
        }
        events_.push_back({device, message});
    }
    CFRunLoopSourceSignal(source_.get());
}

void Subscription::end() {
    std::vector<DeviceReference> released;
    CFRunLoopSourceInvalidate(source_.get());
    std::unique_lock lock(mutex_);
    ended_ = true;
    events_.clear();
    released.swap(attached_);
    if (std::this_thread::get_id() != thread_) {
        callbackReturned_.wait(lock, [this] { return callbacksRunning_ == 0; });
    }
}

void Subscription::perform(void* handle) {
    if (const auto subscription = handles().find<Subscription>(handle)) {
        subscription->deliver();
    }
}

// One event at a time: a callback that runs the run loop itself meets the next one there.
void Subscription::deliver() {
    std::unique_lock lock(mutex_);
    if (events_.empty()) {
        return;
    }
    const Event event = events_.front();
    events_.pop_front();
    if (!events_.empty()) {
        CFRunLoopSourceSignal(source_.get());
    }
    // The callback may end the subscription, and its references with it.
    const DeviceReference lent = DeviceReference::retaining(event.device);
    am_device_notification_info info{event.device, event.message};
    ++callbacksRunning_;
    lock.unlock();
    callback_(&info);
    lock.lock();
    --callbacksRunning_;
    callbackReturned_.notify_all();
    if (event.message == kAMDeviceMessageDisconnected) {
        std::erase_if(attached_, [&](const auto& held) { return held.get() == event.device; });
    }
}

} // namespace krl::provider
