// A client of lockdown, the phone's gate keeper: values, pairing, sessions, services.
#pragma once

#include "mobiledevice/provider/security/PairRecord.h"
#include "mobiledevice/provider/security/SessionSecurity.h"
#include "mobiledevice/provider/wire/PlistMessenger.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace krl::provider {

inline constexpr uint16_t kLockdownPort = 62078;

/// Where a service waits, and whether it is to be spoken to encrypted.
struct ServiceAddress {
    uint16_t port = 0;
    bool isSecure = false;
};

/// How the start of a session went.
struct SessionStart {
    int32_t status = 0;
    bool isEncrypted = false; ///< the phone asked for it, so a failure is the handshake's
};

/// Each function is one request and its answer; 0 says that the phone granted it. A refusal leaves
/// the connection usable; silence, its end, or an answer that is none ends it.
class LockdownClient {
public:
    LockdownClient(std::shared_ptr<Channel> channel, std::unique_ptr<SessionSecurity> security);

    int32_t validatePair(const PairRecord& record);

    /// Also stores the "EscrowBag" that later firmware gives, in the record.
    int32_t pair(PairRecord& record);
    int32_t unpair(const PairRecord& record);

    SessionStart startSession(const PairRecord& record,
                              const std::optional<std::string>& systemBuid, Protocol protocol);
    int32_t stopSession();
    int32_t startService(const std::string& name, ServiceAddress& address);

    /// The whole answer, whose "Value" is the value; it may lack one.
    int32_t getValue(const std::optional<std::string>& domain,
                     const std::optional<std::string>& key, PlistRef& answer);

    void shutdown() noexcept;

private:
    int32_t exchangeRecord(const PlistRef& request, const PairRecord& record, PlistRef& answer);

    /// Sends a request and receives its answer. `echoes`: keys of the request that the answer, when
    /// it has them, must repeat.
    int32_t exchange(const PlistRef& request, std::initializer_list<const char*> echoes,
                     PlistRef& answer);

    PlistMessenger messenger_;
    std::unique_ptr<SessionSecurity> security_;
    std::optional<std::string> sessionId_;
    bool secure_ = false;
};

} // namespace krl::provider
