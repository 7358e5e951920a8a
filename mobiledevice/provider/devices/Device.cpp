#include "mobiledevice/provider/devices/Device.h"

#include "mobiledevice/provider/security/Pairing.h"
#include "mobiledevice/provider/services/LockdownErrors.h"
#include "mobiledevice/provider/wire/Mux.h"

#include <MobileDevice/MobileDevice.h>

#include <utility>

namespace krl::provider {

Device::Lockdown::Lockdown(std::shared_ptr<Channel> channel)
    : client(std::move(channel), newSessionSecurity()) {}

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

int32_t Device::pair() {
    return exchange([this](Lockdown& connection) { return pairOn(connection); });
}

int32_t Device::pairOn(Lockdown& connection) {
    PlistRef answer;
    if (const int32_t status =
            connection.client.getValue(std::nullopt, "DevicePublicKey", answer)) {
        return status;
    }
    const std::optional<std::string> systemBuid = mux::readSystemBuid();
    if (!systemBuid) {
        return kAMDNotConnected;
    }
    PairingFacts facts{dataAt(answer, "Value").value_or(""), *systemBuid, std::nullopt};
    if (connection.client.getValue(std::nullopt, "WiFiAddress", answer) == 0) {
        facts.wifiAddress = stringAt(answer, "Value");
    }
    PlistRef contents;
    if (const int32_t status = newPairRecord(facts, contents)) {
        return status;
    }
    std::string hostId = stringAt(contents, "HostID").value_or("");
    PairRecord record(std::move(contents), std::move(hostId));
    if (const int32_t status = connection.client.pair(record)) {
        return status;
    }
    if (!mux::savePairRecord(muxId_, udid_, record.xml())) {
        connection.client.unpair(record); // a pairing that nobody can use is none
        return kAMDPairRecordNotKept;
    }
    connection.record = std::move(record);
    return 0;
}

int32_t Device::unpair() {
    return exchange([this](Lockdown& connection) -> int32_t {
        const std::optional<PairRecord> record = readPairRecord();
        if (!record) {
            return kAMDNotPaired;
        }
        const int32_t status = connection.client.unpair(*record);
        if (status != 0 && status != lockdownErrorNumber("InvalidHostID")) {
            return status;
        }
        connection.record.reset();
        return mux::deletePairRecord(udid_) ? 0 : int32_t{kAMDPairRecordNotKept};
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

int32_t Device::startService(const std::string& name, ServiceAddress& address) {
    return exchange(
        [&](Lockdown& connection) { return connection.client.startService(name, address); });
}

int32_t Device::getValue(const std::optional<std::string>& domain,
                         const std::optional<std::string>& key, PlistRef& answer) {
    return exchange(
        [&](Lockdown& connection) { return connection.client.getValue(domain, key, answer); });
}

int32_t Device::open(const ServiceAddress& address, std::shared_ptr<Channel>& opened) {
    std::shared_ptr<Channel> channel = open(address.port);
    if (!channel) {
        return kAMDNotConnected;
    }
    if (address.isSecure) {
        const std::optional<PairRecord> record = readPairRecord();
        const int32_t status =
            record ? newSessionSecurity()->begin(*channel, *record) : int32_t{kAMDNotPaired};
        if (status != 0) {
            return status;
        }
    }
    opened = std::move(channel);
    return 0;
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
