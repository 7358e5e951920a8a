// Sessions encrypted by NSS with the keys of a pair record.
#pragma once

#include "mobiledevice/provider/security/SessionSecurity.h"

namespace krl::provider {

/// The phone gets the host's certificate and must show the key that it was paired with.
class TlsSecurity final : public SessionSecurity {
public:
    int32_t begin(Channel& channel, const PairRecord& record, Protocol protocol) override;
    void end(Channel& channel) override;
};

} // namespace krl::provider
