#include "mobiledevice/provider/devices/DeviceHub.h"

#include "mobiledevice/provider/devices/Device.h"
#include "mobiledevice/provider/wire/Mux.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace krl::provider {

int32_t DeviceHub::add(const std::shared_ptr<Subscription>& subscription) {
    const std::lock_guard listening(listening_);
    {
        const std::lock_guard lock(mutex_);
        for (const auto& [muxId, device] : attached_) {
            subscription->enqueue(device.get(), kAMDeviceMessageConnected);
        }
        subscriptions_.push_back(subscription);
    }
    if (listener_) {
        return 0;
    }
    try {
        listener_.emplace(muxSetting(), *this);
        return 0;
    } catch (const std::exception&) {
        const std::lock_guard lock(mutex_);
        std::erase(subscriptions_, subscription);
        return kAMDNoResources;
    }
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
    listener_.reset();
}

void DeviceHub::attached(uint32_t muxId, const std::string& udid) noexcept {
    try {
        announce(muxId, udid);
    } catch (const std::exception&) {
        // Out of memory: the phone goes unannounced.
    }
}

void DeviceHub::detached(uint32_t muxId) noexcept {
    try {
        withdraw(muxId);
    } catch (const std::exception&) {
        // Out of memory: the phone is severed, but not everybody hears of it.
    }
}

void DeviceHub::announce(uint32_t muxId, const std::string& udid) {
    const std::lock_guard lock(mutex_);
    if (subscriptions_.empty() || attached_.contains(muxId)) {
        return;
    }
    DeviceReference device = deviceFor(muxId, udid);
    for (const auto& subscription : subscriptions_) {
        subscription->enqueue(device.get(), kAMDeviceMessageConnected);
    }
    attached_.emplace(muxId, std::move(device));
    news_.notify_all();
}

// Also called for every phone when listening ends, which removes none of them: then there is no
// subscription any more.
void DeviceHub::withdraw(uint32_t muxId) {
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
    if (waiting_ > 0) {
        gone_.insert(muxId);
        news_.notify_all();
    }
    for (const auto& subscription : subscriptions_) {
        subscription->enqueue(device, kAMDeviceMessageDisconnected);
    }
}

// The daemon tells a listener of all that is attached, but not which is the last. What it lists when
// asked is what the listener must have heard of.
int32_t DeviceHub::waitForAttached(std::chrono::milliseconds longest) {
    const auto end = Channel::Clock::now() + longest;
    const Waiting waiting(*this);
    std::vector<uint32_t> muxIds;
    if (const int32_t status = listAttached(waiting, end, muxIds)) {
        return status;
    }
    std::unique_lock lock(mutex_);
    const auto isCancelled = [&] { return waiting.cancellations != questions_.cancellations(); };
    const bool isOver = news_.wait_until(lock, end, [&] {
        return isCancelled() || std::all_of(muxIds.begin(), muxIds.end(),
                                            [this](uint32_t muxId) { return wasHeardOf(muxId); });
    });
    if (isCancelled()) {
        return kAMDCancelled;
    }
    return isOver ? 0 : int32_t{kAMDTimedOut};
}

DeviceHub::Waiting::Waiting(DeviceHub& hub) : hub_(hub) {
    const std::lock_guard lock(hub_.mutex_);
    ++hub_.waiting_;
    cancellations = hub_.questions_.cancellations();
}

DeviceHub::Waiting::~Waiting() {
    const std::lock_guard lock(hub_.mutex_);
    if (--hub_.waiting_ == 0) {
        hub_.gone_.clear();
    }
}

int32_t DeviceHub::listAttached(const Waiting& waiting, Channel::Clock::time_point end,
                                std::vector<uint32_t>& muxIds) {
    const MuxClient client(
        [&](const std::shared_ptr<Channel>& channel) {
            const std::lock_guard lock(mutex_);
            questions_.keep(channel, waiting.cancellations);
        },
        end);
    return client.listDevices(muxIds);
}

bool DeviceHub::wasHeardOf(uint32_t muxId) const {
    return attached_.contains(muxId) || gone_.contains(muxId);
}

void DeviceHub::cancelWaits() noexcept {
    const std::lock_guard lock(mutex_);
    questions_.cancel();
    news_.notify_all();
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
