// How a lockdown connection is encrypted when the phone asks for it.
#pragma once

#include "mobiledevice/provider/security/PairRecord.h"
#include "mobiledevice/provider/wire/Channel.h"

#include <cstdint>
#include <memory>

namespace krl::provider {

/// What a handshake offers. Never both: early phones take a hello that offers more for damage.
enum class Protocol {
    Ssl3, ///< SSL 3.0 with its cipher suites
    Tls   ///< TLS 1.0 to 1.2
};

class SessionSecurity {
public:
    virtual ~SessionSecurity() = default;

    /// Called once the phone has answered that the session is encrypted: from here on the channel
    /// must carry it. A status other than 0 ends the connection.
    virtual int32_t begin(Channel& channel, const PairRecord& record, Protocol protocol) = 0;

    /// Called after the answer to the end of the session: the channel is in clear again.
    virtual void end(Channel& channel) = 0;
};

/// Sessions in clear only: an encrypted one is refused with kAMDSessionNotSupported.
class ClearSessionsOnly final : public SessionSecurity {
public:
    int32_t begin(Channel& channel, const PairRecord& record, Protocol protocol) override;
    void end(Channel& channel) override;
};

/// The best that this build has: SSL 3.0 to TLS 1.2, or sessions in clear only.
std::unique_ptr<SessionSecurity> newSessionSecurity();

/// What can be had here: 0 for everything, kAMDNoSsl3, or kAMDSessionNotSupported.
int32_t sessionSupport();

} // namespace krl::provider
