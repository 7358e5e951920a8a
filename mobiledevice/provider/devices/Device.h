// One plugging-in of a phone: its place on the mux and its lockdown connection.
#pragma once

#include "mobiledevice/provider/devices/CallsUnderWay.h"
#include "mobiledevice/provider/devices/Handles.h"
#include "mobiledevice/provider/security/PairRecord.h"
#include "mobiledevice/provider/services/LockdownClient.h"
#include "mobiledevice/provider/services/TransferCount.h"
#include "mobiledevice/provider/wire/Mux.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

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

    /// Encrypted when the phone asks for it: SSL 3.0 with firmware below 2.0, TLS with later; the
    /// other of them on a new connection when the phone does not take the first.
    int32_t startSession();
    int32_t stopSession();
    int32_t startService(const std::string& name, ServiceAddress& address);
    int32_t getValue(const std::optional<std::string>& domain,
                     const std::optional<std::string>& key, PlistRef& answer);

    /// Connects to a service, encrypted if it is to be; 0 or a status.
    int32_t open(const ServiceAddress& address, std::shared_ptr<Channel>& opened);

    /// Ends all connections to the phone there are, and what waits on them.
    void cancelCalls() noexcept;

    [[nodiscard]] const std::shared_ptr<TransferCount>& transferCount() const { return transfer_; }

    /// Ends all connections to the phone, those to come included: it is gone, or nobody holds it.
    void sever() noexcept;

private:
    struct Lockdown {
        explicit Lockdown(std::shared_ptr<Channel> channel);

        std::mutex mutex; // held for the length of a call
        LockdownClient client;
        std::optional<PairRecord> record;
        bool isValidated = false; // the phone has accepted the record on this connection
    };

    [[nodiscard]] std::shared_ptr<Lockdown> lockdown();
    int32_t pairOn(Lockdown& connection);
    int32_t validateOn(Lockdown& connection);

    /// Ends the connection with kAMDWrongDevice when the answer says that the phone is another one
    /// than the mux says.
    int32_t getValueOn(LockdownClient& client, const std::optional<std::string>& domain,
                       const std::optional<std::string>& key, PlistRef& answer);

    /// Asks what the phone is, once for each plugging-in.
    int32_t meet(LockdownClient& client);
    int32_t startSessionOn(Lockdown& connection);
    SessionStart tryProtocol(Lockdown& connection, Protocol protocol);

    /// Starts the session on a new connection, which takes the place of the lost one.
    int32_t startSessionAnew(Lockdown& lost, const MuxClient& sameCall, Protocol protocol);
    std::shared_ptr<Lockdown> replace(const Lockdown& lost, const MuxClient& sameCall);

    /// What the phone is known to speak, or is to be asked for first.
    Protocol protocol();
    bool isProven();

    /// Calls the body with the lockdown connection, if there is one; one call after the other.
    template <typename Body>
    int32_t exchange(Body body);
    template <typename Body>
    static int32_t exchangeOn(Lockdown& connection, Body body);

    /// As exchange, with the connection's pair record there, which is read once for each.
    template <typename Body>
    int32_t exchangePaired(Body body);

    /// Connects to a port of the phone.
    int32_t open(uint16_t port, std::shared_ptr<Channel>& opened);

    /// For questions to the mux daemon that end as all calls on the device do.
    MuxClient mux();

    /// 0, or a status: kAMDNotPaired when there is none that names a host.
    int32_t readPairRecord(std::optional<PairRecord>& record);

    const uint32_t muxId_;
    const std::string udid_;
    const std::shared_ptr<TransferCount> transfer_ = std::make_shared<TransferCount>();

    std::mutex mutex_; // of what follows; never held while anybody waits for the phone
    std::shared_ptr<Lockdown> lockdown_;
    CallsUnderWay calls_;
    std::optional<Protocol> usualProtocol_; // of the phone's firmware; not set until it was asked
    std::optional<Protocol> provenProtocol_;
};

} // namespace krl::provider
