#include "virtualphone/phone/PhoneState.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cstdio>
#include <utility>

namespace virtualphone {

std::optional<uint16_t> ServicePorts::open(Service service) {
    constexpr uint16_t kFirst = 49152;
    constexpr uint16_t kCount = 8192; // ends below lockdown's port
    static_assert(kFirst + kCount <= kLockdownPort);
    const std::lock_guard lock(mutex_);
    for (uint16_t tried = 0; tried < kCount; ++tried) {
        const auto port = static_cast<uint16_t>(kFirst + next_);
        next_ = static_cast<uint16_t>((next_ + 1) % kCount);
        if (waiting_.try_emplace(port, service).second) {
            return port;
        }
    }
    return std::nullopt;
}

std::optional<Service> ServicePorts::take(uint16_t port) {
    const std::lock_guard lock(mutex_);
    const auto found = waiting_.find(port);
    if (found == waiting_.end()) {
        return std::nullopt;
    }
    const Service service = found->second;
    waiting_.erase(found);
    return service;
}

void ServicePorts::closeAll() {
    const std::lock_guard lock(mutex_);
    waiting_.clear();
}

bool TrustedHosts::contains(const std::string& hostId) const {
    const std::lock_guard lock(mutex_);
    return hosts_.contains(hostId);
}

void TrustedHosts::add(const std::string& hostId, HostCertificates certificates) {
    const std::lock_guard lock(mutex_);
    hosts_.insert_or_assign(hostId, std::move(certificates));
}

std::vector<HostCertificates> TrustedHosts::certificates(const std::string& hostId) const {
    const std::lock_guard lock(mutex_);
    std::vector<HostCertificates> found;
    for (const auto& [id, certificates] : hosts_) {
        if (hostId.empty() || id == hostId) {
            found.push_back(certificates);
        }
    }
    return found;
}

void TrustedHosts::remove(const std::string& hostId) {
    const std::lock_guard lock(mutex_);
    hosts_.erase(hostId);
}

void TrustedHosts::clear() {
    const std::lock_guard lock(mutex_);
    hosts_.clear();
}

PhoneState::PhoneState(PhoneOptions complete)
    : options(std::move(complete)),
      sessionKeys(options.keys ? options.keys
                               : std::shared_ptr<const SessionKeys>(newSessionKeys(options))),
      media(options.root, options.freeBytes, options.totalBytes), values(options),
      link(options.linkBytesPerSecond) {
    if (sessionKeys) {
        values.set("", "DevicePublicKey", newData(sessionKeys->publicKey()));
    }
}

bool PhoneState::holdSyncLock() {
    const std::lock_guard lock(mutex_);
    if (syncLock_) {
        return true;
    }
    UniqueFd file;
    if (media.open(kSyncLockPath, O_RDWR | O_CREAT, file) != 0 ||
        flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        return false;
    }
    syncLock_ = std::move(file);
    return true;
}

void PhoneState::releaseSyncLock() {
    const std::lock_guard lock(mutex_);
    syncLock_.reset();
}

bool PhoneState::isFirstPlugging() {
    const std::lock_guard lock(mutex_);
    return !std::exchange(wasPlugged_, true);
}

void PhoneState::fileStored(const std::string& path) {
    if (!options.onUnplayable) {
        return;
    }
    if (const auto unplayable = unplayableStored(media, path, options.firmware)) {
        options.onUnplayable(*unplayable);
    }
}

std::string PhoneState::newSessionId() {
    const std::lock_guard lock(mutex_);
    char id[40];
    std::snprintf(id, sizeof id, "5E550000-0000-4000-8000-%012llX",
                  static_cast<unsigned long long>(++sessions_));
    return id;
}

} // namespace virtualphone
