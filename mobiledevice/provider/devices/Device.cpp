#include "mobiledevice/provider/devices/Device.h"

#include "mobiledevice/provider/security/Pairing.h"

#include <MobileDevice/MobileDevice.h>
#include <strings.h>

#include <utility>

namespace krl::provider {

namespace {

// "1.1.4" and the like; 2.0 was the first to speak TLS.
bool isBeforeTls(const std::string& version) {
    return version.starts_with("1.") || version.starts_with("0.") || version == "1";
}

constexpr const char* kUdidKey = "UniqueDeviceID";

// The UDID in an answer to GetValue of a key, or of all.
std::optional<std::string> udidIn(const PlistRef& answer, const std::optional<std::string>& key) {
    if (!key) {
        return stringAt(dictionaryAt(answer, "Value"), kUdidKey);
    }
    return key == kUdidKey ? stringAt(answer, "Value") : std::nullopt;
}

// Case is all that may differ.
bool isSameDevice(const std::string& claimed, const std::string& udid) {
    return strcasecmp(claimed.c_str(), udid.c_str()) == 0;
}

// Whether a status says that the connection is gone, not that the phone refused.
bool isLoss(int32_t status) {
    return status > 0 && status != kAMDRefused;
}

// Whether a handshake may have failed because the phone speaks another protocol: some say so, some
// just close the connection.
bool isOfTheProtocol(int32_t status) {
    return status == kAMDHandshakeFailed || status == kAMDNotConnected || status == kAMDNoSsl3;
}

} // namespace

Device::Lockdown::Lockdown(std::shared_ptr<Channel> channel)
    : client(std::move(channel), newSessionSecurity()) {}

Device::Device(uint32_t muxId, std::string udid) : muxId_(muxId), udid_(std::move(udid)) {}

int32_t Device::connect() {
    disconnect();
    std::shared_ptr<Channel> channel;
    if (const int32_t status = open(kLockdownPort, channel)) {
        return status;
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
    std::optional<PairRecord> record;
    const bool paired = readPairRecord(record) == 0;
    if (connection) {
        // The calls that follow on this connection need it again.
        const std::lock_guard lock(connection->mutex);
        connection->record = std::move(record);
    }
    return paired;
}

int32_t Device::validatePairing() {
    return exchangePaired([this](Lockdown& connection) { return validateOn(connection); });
}

int32_t Device::validateOn(Lockdown& connection) {
    const int32_t status = connection.client.validatePair(*connection.record);
    connection.isValidated = status == 0;
    return status;
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
    PairingFacts facts{dataAt(answer, "Value").value_or(""), "", std::nullopt};
    if (const int32_t status = mux().readSystemBuid(facts.systemBuid)) {
        return status;
    }
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
    if (const int32_t status = mux().savePairRecord(muxId_, udid_, record.xml())) {
        connection.client.unpair(record); // a pairing that nobody can use is none
        return status;
    }
    connection.record = std::move(record);
    connection.isValidated = true;
    return 0;
}

int32_t Device::unpair() {
    return exchange([this](Lockdown& connection) -> int32_t {
        std::optional<PairRecord> record;
        if (const int32_t status = readPairRecord(record)) {
            return status;
        }
        const int32_t status = connection.client.unpair(*record);
        if (status != 0 && status != kAMDInvalidHostID) {
            return status;
        }
        connection.record.reset();
        connection.isValidated = false;
        return mux().deletePairRecord(udid_);
    });
}

int32_t Device::startSession() {
    return exchangePaired([this](Lockdown& connection) { return startSessionOn(connection); });
}

int32_t Device::startSessionOn(Lockdown& connection) {
    if (const int32_t status = meet(connection.client)) {
        return status;
    }
    const MuxClient sameCall = mux(); // cancelled with it, whenever it asks for a connection
    const Protocol first = protocol();
    const SessionStart start = tryProtocol(connection, first);
    if (start.status == 0 || !start.isEncrypted || isProven() || !isOfTheProtocol(start.status)) {
        return start.status;
    }
    const Protocol other = first == Protocol::Ssl3 ? Protocol::Tls : Protocol::Ssl3;
    const int32_t status = startSessionAnew(connection, sameCall, other);
    // What the first try met says more than that the second one met the same.
    return isOfTheProtocol(status) ? start.status : status;
}

int32_t Device::meet(LockdownClient& client) {
    {
        const std::lock_guard lock(mutex_);
        if (usualProtocol_) {
            return 0;
        }
    }
    PlistRef answer;
    if (const int32_t status = getValueOn(client, std::nullopt, std::nullopt, answer);
        isLoss(status)) {
        return status;
    }
    std::optional<std::string> version = stringAt(dictionaryAt(answer, "Value"), "ProductVersion");
    if (!version) {
        if (const int32_t status = getValueOn(client, std::nullopt, "ProductVersion", answer);
            isLoss(status)) {
            return status;
        }
        version = stringAt(answer, "Value");
    }
    const std::lock_guard lock(mutex_);
    usualProtocol_ = isBeforeTls(version.value_or("")) ? Protocol::Ssl3 : Protocol::Tls;
    return 0;
}

SessionStart Device::tryProtocol(Lockdown& connection, Protocol protocol) {
    std::optional<std::string> systemBuid = connection.record->systemBuid();
    if (std::string told; !systemBuid && mux().readSystemBuid(told) == 0) {
        systemBuid = std::move(told);
    }
    const SessionStart start =
        connection.client.startSession(*connection.record, systemBuid, protocol);
    if (start.status == 0 && start.isEncrypted) {
        const std::lock_guard lock(mutex_);
        provenProtocol_ = protocol;
    }
    return start;
}

int32_t Device::startSessionAnew(Lockdown& lost, const MuxClient& sameCall, Protocol protocol) {
    const std::shared_ptr<Lockdown> connection = replace(lost, sameCall);
    if (!connection) {
        return kAMDNotConnected;
    }
    return exchangeOn(*connection, [&](Lockdown& renewed) -> int32_t {
        renewed.record = std::exchange(lost.record, std::nullopt);
        if (lost.isValidated) {
            if (const int32_t status = validateOn(renewed)) {
                return status;
            }
        }
        return tryProtocol(renewed, protocol).status;
    });
}

std::shared_ptr<Device::Lockdown> Device::replace(const Lockdown& lost, const MuxClient& sameCall) {
    std::shared_ptr<Channel> channel;
    if (sameCall.connect(muxId_, kLockdownPort, channel) != 0) {
        return nullptr;
    }
    auto renewed = std::make_shared<Lockdown>(std::move(channel));
    const std::lock_guard lock(mutex_);
    if (lockdown_.get() != &lost) {
        return nullptr; // disconnected meanwhile
    }
    lockdown_ = renewed;
    return renewed;
}

Protocol Device::protocol() {
    const std::lock_guard lock(mutex_);
    return provenProtocol_.value_or(usualProtocol_.value_or(Protocol::Tls));
}

bool Device::isProven() {
    const std::lock_guard lock(mutex_);
    return provenProtocol_.has_value();
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
        [&](Lockdown& connection) { return getValueOn(connection.client, domain, key, answer); });
}

int32_t Device::getValueOn(LockdownClient& client, const std::optional<std::string>& domain,
                           const std::optional<std::string>& key, PlistRef& answer) {
    const int32_t status = client.getValue(domain, key, answer);
    if (status == 0 && !domain && !isSameDevice(udidIn(answer, key).value_or(udid_), udid_)) {
        client.shutdown();
        return kAMDWrongDevice;
    }
    return status;
}

int32_t Device::open(const ServiceAddress& address, std::shared_ptr<Channel>& opened) {
    std::shared_ptr<Channel> channel;
    if (const int32_t status = open(address.port, channel)) {
        return status;
    }
    if (address.isSecure) {
        std::optional<PairRecord> record;
        if (const int32_t status = readPairRecord(record)) {
            return status;
        }
        if (const int32_t status = newSessionSecurity()->begin(*channel, *record, protocol())) {
            return status;
        }
    }
    opened = std::move(channel);
    return 0;
}

int32_t Device::open(uint16_t port, std::shared_ptr<Channel>& opened) {
    return mux().connect(muxId_, port, opened);
}

MuxClient Device::mux() {
    const std::lock_guard lock(mutex_);
    return MuxClient([this, cancellations = calls_.cancellations()](const auto& channel) {
        const std::lock_guard lockToKeep(mutex_);
        calls_.keep(channel, cancellations);
    });
}

void Device::cancelCalls() noexcept {
    const std::lock_guard lock(mutex_);
    calls_.cancel();
}

void Device::sever() noexcept {
    const std::lock_guard lock(mutex_);
    calls_.end();
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
    return exchangeOn(*connection, body);
}

template <typename Body>
int32_t Device::exchangeOn(Lockdown& connection, Body body) {
    const std::lock_guard lock(connection.mutex);
    try {
        return body(connection);
    } catch (...) {
        connection.client.shutdown(); // half an answer may be left in the stream
        throw;
    }
}

template <typename Body>
int32_t Device::exchangePaired(Body body) {
    return exchange([&](Lockdown& connection) -> int32_t {
        if (!connection.record) {
            if (const int32_t status = readPairRecord(connection.record)) {
                return status;
            }
        }
        return body(connection);
    });
}

int32_t Device::readPairRecord(std::optional<PairRecord>& record) {
    std::vector<std::byte> bytes;
    if (const int32_t status = mux().readPairRecord(udid_, bytes)) {
        return status;
    }
    record = PairRecord::parse(bytes);
    return record ? 0 : int32_t{kAMDNotPaired};
}

} // namespace krl::provider
