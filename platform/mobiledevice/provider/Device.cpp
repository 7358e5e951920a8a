#include "Device.h"

#include "Mux.h"

#include <MobileDevice/MobileDevice.h>

#include <utility>

namespace krl::provider {

Device::Lockdown::Lockdown(std::shared_ptr<Channel> channel)
    : client(std::move(channel), std::make_unique<ClearSessionsOnly>()) {}

Device::Device(uint32_t muxId, std::string udid) : muxId_(muxId), udid_(std::move(udid)) {}

int32_t Device::connect() {
    disconnect();
    const std::shared_ptr<Channel> channel = open(kLockdownPort);
    if (!channel) {
        return kAMDNotConnected;
    }
    auto connected = std::make_shared<Lockdown>(channel);
    const std::lock_guard lock(mutex_);
    lockdown_ = std::move(connected);
    return 0;
}

int32_t Device::disconnect() {
    std::shared_ptr<Lockdown> disconnected;
    {
        const std::lock_guard lock(mutex_);
        disconnected = std::exchange(lockdown_, nullptr);
    }
    if (!disconnected) {
        return kAMDNotConnected;
    }
    disconnected->client.shutdown();
    return 0;
}

bool Device::isPaired() {
    const std::shared_ptr<Lockdown> connection = lockdown();
    std::optional<PairRecord> record = readPairRecord();
    const bool paired = record.has_value();
    if (connection) {
        // The calls that follow on this connection need it again.
        const std::lock_guard lock(connection->mutex);
        connection->record = std::move(record);
    }
    return paired;
}

int32_t Device::validatePairing() {
    return exchangePaired([](LockdownClient& client, const PairRecord& record) {
        return client.validatePair(record);
    });
}

int32_t Device::startSession() {
    return exchangePaired([](LockdownClient& client, const PairRecord& record) {
        std::optional<std::string> systemBuid = record.systemBuid();
        if (!systemBuid) {
            systemBuid = mux::readSystemBuid();
        }
        return client.startSession(record, systemBuid);
    });
}

int32_t Device::stopSession() {
    return exchange([](Lockdown& connection) { return connection.client.stopSession(); });
}

int32_t Device::startService(const std::string& name, uint16_t& port) {
    return exchange(
        [&](Lockdown& connection) { return connection.client.startService(name, port); });
}

int32_t Device::getValue(const std::optional<std::string>& domain,
                         const std::optional<std::string>& key, PlistRef& answer) {
    return exchange(
        [&](Lockdown& connection) { return connection.client.getValue(domain, key, answer); });
}

std::shared_ptr<Channel> Device::open(uint16_t port) {
    {
        const std::lock_guard lock(mutex_);
        if (severed_) {
            return nullptr;
        }
    }
    UniqueDescriptor tunnel = mux::connect(muxId_, port);
    if (!tunnel) {
        return nullptr;
    }
    auto channel = std::make_shared<Channel>(std::move(tunnel));
    const std::lock_guard lock(mutex_);
    if (severed_) {
        return nullptr;
    }
    std::erase_if(channels_, [](const auto& known) { return known.expired(); });
    channels_.push_back(channel);
    return channel;
}

void Device::sever() noexcept {
    const std::lock_guard lock(mutex_);
    severed_ = true;
    for (const auto& known : channels_) {
        if (const auto channel = known.lock()) {
            channel->shutdown();
        }
    }
    channels_.clear();
}

std::shared_ptr<Device::Lockdown> Device::lockdown() {
    const std::lock_guard lock(mutex_);
    return lockdown_;
}

template <typename Body>
int32_t Device::exchange(Body body) {
    const std::shared_ptr<Lockdown> connection = lockdown();
    if (!connection) {
        return kAMDNotConnected;
    }
    const std::lock_guard lock(connection->mutex);
    try {
        return body(*connection);
    } catch (...) {
        connection->client.shutdown(); // half an answer may be left in the stream
        throw;
    }
}

template <typename Body>
int32_t Device::exchangePaired(Body body) {
    return exchange([&](Lockdown& connection) -> int32_t {
        if (!connection.record) {
            connection.record = readPairRecord();
        }
        if (!connection.record) {
            return kAMDNotPaired;
        }
        return body(connection.client, *connection.record);
    });
}

std::optional<PairRecord> Device::readPairRecord() const {
    const auto bytes = mux::readPairRecord(udid_);
    return bytes ? PairRecord::parse(*bytes) : std::nullopt;
}

} // namespace krl::provider
