// One plugging-in of a phone: its place on the mux and its lockdown connection.
#pragma once

#include "mobiledevice/provider/devices/Handles.h"
#include "mobiledevice/provider/security/PairRecord.h"
#include "mobiledevice/provider/services/LockdownClient.h"
#include "mobiledevice/provider/wire/Channel.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace krl::provider {

class Device final : public Object {
public:
    Device(uint32_t muxId, std::string udid);

    [[nodiscard]] const std::string& udid() const { return udid_; }

    /// The lockdown connection. A new one takes the place of an old one.
    int32_t connect();
    int32_t disconnect();

    [[nodiscard]] bool isPaired();
    int32_t validatePairing();
    int32_t pair();
    int32_t unpair();
    int32_t startSession();
    int32_t stopSession();
    int32_t startService(const std::string& name, ServiceAddress& address);
    int32_t getValue(const std::optional<std::string>& domain,
                     const std::optional<std::string>& key, PlistRef& answer);

    /// Connects to a service, encrypted if it is to be; 0 or a status.
    int32_t open(const ServiceAddress& address, std::shared_ptr<Channel>& opened);

    /// Connects to a port of the phone; null if that cannot be done.
    std::shared_ptr<Channel> open(uint16_t port);

    /// Ends all connections to the phone, those to come included: it is gone, or nobody holds it.
    void sever() noexcept;

private:
    struct Lockdown {
        explicit Lockdown(std::shared_ptr<Channel> channel);

        std::mutex mutex; // held for the length of a call
        LockdownClient client;
        std::optional<PairRecord> record;
    };

    [[nodiscard]] std::shared_ptr<Lockdown> lockdown();
    int32_t pairOn(Lockdown& connection);

    /// Calls the body with the lockdown connection, if there is one; one call after the other.
    template <typename Body>
    int32_t exchange(Body body);

    /// As exchange, with the pair record, which is read once for each connection.
    template <typename Body>
    int32_t exchangePaired(Body body);

    std::optional<PairRecord> readPairRecord() const;

    const uint32_t muxId_;
    const std::string udid_;

    std::mutex mutex_; // of what follows; never held while anybody waits for the phone
    std::shared_ptr<Lockdown> lockdown_;
    std::vector<std::weak_ptr<Channel>> channels_;
    bool severed_ = false;
};

} // namespace krl::provider
