// Messages of lockdown and of the notification proxy: a 4-byte big-endian length, then a property
// list.
#pragma once

#include "mobiledevice/provider/wire/Channel.h"
#include "mobiledevice/provider/wire/PlistRef.h"

#include <cstdint>
#include <memory>

namespace krl::provider {

/// Any failure ends the channel: what comes after it could not be told from what it was about.
class PlistMessenger {
public:
    explicit PlistMessenger(std::shared_ptr<Channel> channel);

    /// Sends one message, with which an exchange begins.
    [[nodiscard]] int32_t send(const PlistRef& message);

    /// Receives one message; one that is no dictionary is a bad reply.
    [[nodiscard]] int32_t receive(PlistRef& message);

    /// Ends the channel because of a message that makes no sense.
    [[nodiscard]] int32_t badReply();

    Channel& channel() { return *channel_; }

private:
    int32_t failed(IoResult result);

    std::shared_ptr<Channel> channel_;
};

} // namespace krl::provider
