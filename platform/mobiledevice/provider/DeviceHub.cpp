#include "DeviceHub.h"

#include "Device.h"
#include "Mux.h"

#include <pthread.h>

#include <utility>

namespace krl::provider {

namespace {

// libusbmuxd cancels its thread to end it. Inside our code that would leave locks held.
class CancellationOff {
public:
    CancellationOff() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }

    CancellationOff(const CancellationOff&) = delete;
    CancellationOff& operator=(const CancellationOff&) = delete;

    ~CancellationOff() { pthread_setcancelstate(before_, nullptr); }

private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

} // namespace

int32_t DeviceHub::add(const std::shared_ptr<Subscription>& subscription) {
    const std::lock_guard listening(listening_);
    {
        const std::lock_guard lock(mutex_);
        for (const auto& [muxId, device] : attached_) {
            subscription->enqueue(device.get(), kAMDeviceMessageConnected);
        }
        subscriptions_.push_back(subscription);
    }
    if (context_ != nullptr) {
        return 0;
    }
    // Otherwise a daemon on any socket but the default one would never be noticed when it comes.
    libusbmuxd_set_use_inotify(0);
    if (mux::isUsable() && usbmuxd_events_subscribe(&context_, &onMuxEvent, this) == 0) {
        return 0;
    }
    context_ = nullptr;
    const std::lock_guard lock(mutex_);
    std::erase(subscriptions_, subscription);
    return kAMDNoResources;
}

void DeviceHub::remove(const std::shared_ptr<Subscription>& subscription) {
    const std::lock_guard listening(listening_);
    std::map<uint32_t, DeviceReference> released;
    {
        const std::lock_guard lock(mutex_);
        std::erase(subscriptions_, subscription);
        if (!subscriptions_.empty()) {
            return;
        }
        released.swap(attached_);
    }
    if (context_ != nullptr) {
        usbmuxd_events_unsubscribe(std::exchange(context_, nullptr));
    }
}

void DeviceHub::onMuxEvent(const usbmuxd_event_t* event, void* hub) {
    const CancellationOff cancellationOff;
    auto& self = *static_cast<DeviceHub*>(hub);
    if (event->device.conn_type != CONNECTION_TYPE_USB) {
        return;
    }
    try {
        if (event->event == UE_DEVICE_ADD) {
            self.attached(event->device.handle, event->device.udid);
        } else if (event->event == UE_DEVICE_REMOVE) {
            self.detached(event->device.handle);
        }
    } catch (const std::exception&) {
        // Out of memory: the phone goes unannounced.
    }
}

void DeviceHub::attached(uint32_t muxId, const std::string& udid) {
    const std::lock_guard lock(mutex_);
    if (subscriptions_.empty() || attached_.contains(muxId)) {
        return;
    }
    DeviceReference device = deviceFor(muxId, udid);
    for (const auto& subscription : subscriptions_) {
        subscription->enqueue(device.get(), kAMDeviceMessageConnected);
    }
    attached_.emplace(muxId, std::move(device));
}

// Also called by libusbmuxd for every phone when listening ends, which removes none of them: then
// there is no subscription any more.
void DeviceHub::detached(uint32_t muxId) {
    const std::lock_guard lock(mutex_);
    const auto entry = attached_.find(muxId);
    if (entry == attached_.end()) {
        return;
    }
    am_device* device = entry->second.get();
    if (const auto gone = handles().find<Device>(device)) {
        gone->sever();
    }
    // From here on only the subscriptions hold it, each until it has delivered the removal.
    attached_.erase(entry);
    pluggings_.erase(muxId);
    for (const auto& subscription : subscriptions_) {
        subscription->enqueue(device, kAMDeviceMessageDisconnected);
    }
}

DeviceReference DeviceHub::deviceFor(uint32_t muxId, const std::string& udid) {
    am_device*& known = pluggings_[muxId];
    if (const auto device = handles().find<Device>(known)) {
        if (device->udid() == udid) {
            if (DeviceReference reference = DeviceReference::retaining(known); reference.get()) {
                return reference;
            }
        } else {
            // The daemon began anew while nobody listened, and counts from the start again.
            device->sever();
        }
    }
    known = toHandle<am_device>(handles().add(std::make_shared<Device>(muxId, udid)));
    return DeviceReference::adopting(known);
}

DeviceHub& deviceHub() {
    static DeviceHub& processWide = *new DeviceHub;
    return processWide;
}

} // namespace krl::provider
