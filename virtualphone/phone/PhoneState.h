/// What the services of a phone share, and what outlives their connections.
#pragma once

#include "virtualphone/phone/DeviceValues.h"
#include "virtualphone/phone/Link.h"
#include "virtualphone/phone/MediaFolder.h"
#include "virtualphone/phone/Notifications.h"
#include "virtualphone/phone/PhoneOptions.h"
#include "virtualphone/phone/SessionKeys.h"
#include "virtualphone/wire/Faults.h"
#include "virtualphone/wire/UniqueFd.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace virtualphone {

inline constexpr uint16_t kLockdownPort = 62078;
inline constexpr const char* kSyncLockPath = "/com.apple.itunes.lock_sync";

/// Ports that services were started on; each is good for one connection.
class ServicePorts {
public:
    /// A port nobody waits on yet, or none when there are none left.
    std::optional<uint16_t> open(Service service);

    /// The service that waits on a port, which is used up by this.
    std::optional<Service> take(uint16_t port);

    void closeAll();

private:
    std::mutex mutex_;
    std::map<uint16_t, Service> waiting_;
    uint16_t next_ = 0;
};

/// The hosts that a phone trusts, by their HostID.
class TrustedHosts {
public:
    bool contains(const std::string& hostId) const;
    void add(const std::string& hostId, HostCertificates certificates);

    /// Of one host, or of all when no HostID is given.
    std::vector<HostCertificates> certificates(const std::string& hostId = {}) const;
    void remove(const std::string& hostId);
    void clear();

private:
    mutable std::mutex mutex_;
    std::map<std::string, HostCertificates> hosts_;
};

class PhoneState {
public:
    /// The options are complete and checked, the folder exists.
    explicit PhoneState(PhoneOptions complete);

    const PhoneOptions options;
    const std::shared_ptr<const SessionKeys> sessionKeys; // null: sessions in clear
    Faults faults;
    MediaFolder media;
    DeviceValues values;
    Link link;
    Notifications notifications;
    ServicePorts ports;
    TrustedHosts hosts;

    bool hasSecureServices() const { return sessionKeys && options.secureServices; }

    bool holdSyncLock();
    void releaseSyncLock();

    /// True once: at the first plugging-in, when a paired phone comes to trust its host.
    bool isFirstPlugging();

    /// To be called when a file was written and closed, or moved to this path.
    void fileStored(const std::string& path);

    /// A new session's name.
    std::string newSessionId();

private:
    std::mutex mutex_;
    UniqueFd syncLock_;
    bool wasPlugged_ = false;
    uint64_t sessions_ = 0;
};

} // namespace virtualphone
