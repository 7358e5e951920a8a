#include "virtualphone/bus/DeviceTable.h"

#include "virtualphone/phone/PhoneState.h"

#include <stdexcept>
#include <utility>

namespace virtualphone {

namespace {

Attachment attachmentOf(uint32_t id, const Phone& phone) {
    return {id, phone.udid(), phone.options().deviceClass == "iPod"};
}

} // namespace

uint32_t DeviceTable::plug(std::shared_ptr<Phone> phone) {
    const std::lock_guard lock(mutex_);
    for (const auto& [id, device] : devices_) {
        if (device.phone->udid() == phone->udid()) {
            throw std::invalid_argument("a phone with the UDID " + phone->udid() +
                                        " is plugged in already");
        }
    }
    const uint32_t id = ++lastId_;
    const Attachment attachment = attachmentOf(id, *phone);
    devices_[id].phone = std::move(phone);
    for (AttachmentListener* listener : listeners_) {
        listener->attached(attachment);
    }
    return id;
}

bool DeviceTable::unplug(uint32_t id) {
    std::unique_lock lock(mutex_);
    const auto found = devices_.find(id);
    if (found == devices_.end()) {
        return false;
    }
    if (found->second.isLeaving) {
        // Somebody else is at it: it has gone when this returns, and can be plugged in again.
        changed_.wait(lock, [&] { return !devices_.contains(id); });
        return false;
    }
    Device& device = found->second;
    device.isLeaving = true;
    for (Channel* tunnel : device.tunnels) {
        tunnel->cut();
    }
    changed_.wait(lock, [&] { return device.tunnels.empty(); });
    device.phone->state().ports.closeAll();
    devices_.erase(found);
    changed_.notify_all();
    for (AttachmentListener* listener : listeners_) {
        listener->detached(id);
    }
    return true;
}

uint32_t DeviceTable::idOf(const Phone& phone) const {
    const std::lock_guard lock(mutex_);
    for (const auto& [id, device] : devices_) {
        if (device.phone.get() == &phone && !device.isLeaving) {
            return id;
        }
    }
    return 0;
}

std::string DeviceTable::udidOf(uint32_t id) const {
    const std::lock_guard lock(mutex_);
    const auto found = devices_.find(id);
    return found == devices_.end() ? "" : found->second.phone->udid();
}

std::vector<Attachment> DeviceTable::attachments() const {
    const std::lock_guard lock(mutex_);
    std::vector<Attachment> all;
    for (const auto& [id, device] : devices_) {
        if (!device.isLeaving) {
            all.push_back(attachmentOf(id, *device.phone));
        }
    }
    return all;
}

void DeviceTable::addListener(AttachmentListener& listener) {
    const std::lock_guard lock(mutex_);
    listeners_.insert(&listener);
    // One that is leaving is announced too: its removal is still to come.
    for (const auto& [id, device] : devices_) {
        listener.attached(attachmentOf(id, *device.phone));
    }
}

void DeviceTable::removeListener(AttachmentListener& listener) {
    const std::lock_guard lock(mutex_);
    listeners_.erase(&listener);
}

size_t DeviceTable::listenerCount() const {
    const std::lock_guard lock(mutex_);
    return listeners_.size();
}

void DeviceTable::announcePaired(uint32_t id) {
    const std::lock_guard lock(mutex_);
    if (!devices_.contains(id)) {
        return;
    }
    for (AttachmentListener* listener : listeners_) {
        listener->paired(id);
    }
}

DeviceTable::Tunnel DeviceTable::open(uint32_t id, uint16_t port, Channel& channel) {
    const std::lock_guard lock(mutex_);
    const auto found = devices_.find(id);
    if (found == devices_.end() || found->second.isLeaving) {
        return {Refusal::NoSuchDevice, nullptr, Service::Usbmux};
    }
    Device& device = found->second;
    const std::optional<Service> service =
        port == kLockdownPort ? Service::Lockdown : device.phone->state().ports.take(port);
    if (!service) {
        return {Refusal::ConnectionRefused, nullptr, Service::Usbmux};
    }
    device.tunnels.insert(&channel);
    return {Refusal::None, device.phone, *service};
}

void DeviceTable::close(uint32_t id, Channel& channel) {
    const std::lock_guard lock(mutex_);
    devices_.at(id).tunnels.erase(&channel);
    changed_.notify_all();
}

} // namespace virtualphone
