// A client of the notification proxy, which posts notifications inside the phone.
#pragma once

#include "mobiledevice/provider/wire/PlistMessenger.h"

#include <cstdint>
#include <memory>
#include <string>

namespace krl::provider {

class NotificationProxyClient {
public:
    explicit NotificationProxyClient(std::shared_ptr<Channel> channel);

    /// Posting has no answer: 0 says that it was sent.
    int32_t post(const std::string& name);

    /// Waits until the phone has read everything posted, which it says by dying.
    int32_t shutdown();

private:
    PlistMessenger messenger_;
};

} // namespace krl::provider
