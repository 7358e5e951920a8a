// Two ends of a stream: a Channel, and a peer that says whatever a test wants.
#pragma once

#include "mobiledevice/provider/wire/CallTimeout.h"
#include "mobiledevice/provider/wire/Channel.h"
#include "mobiledevice/provider/wire/UniqueDescriptor.h"
#include "tests/mobiledevice/provider/Peer.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <memory>
#include <stdexcept>
#include <utility>

namespace krl::provider::testing {

class SocketPair : public Peer {
public:
    SocketPair() : SocketPair(newEnds()) {}

    std::shared_ptr<Channel> channel() { return channel_; }

private:
    using Ends = std::array<UniqueDescriptor, 2>;

    explicit SocketPair(Ends ends)
        : Peer(std::move(ends[1])), channel_(std::make_shared<Channel>(std::move(ends[0]))) {}

    static Ends newEnds() {
        int ends[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
            throw std::runtime_error("socketpair failed");
        }
        return {UniqueDescriptor(ends[0]), UniqueDescriptor(ends[1])};
    }

    std::shared_ptr<Channel> channel_;
};

/// Another deadline for the length of a test.
class ShortTimeout {
public:
    explicit ShortTimeout(uint32_t timeoutMs) { setCallTimeout(timeoutMs); }

    ShortTimeout(const ShortTimeout&) = delete;
    ShortTimeout& operator=(const ShortTimeout&) = delete;

    ~ShortTimeout() { setCallTimeout(0); }
};

} // namespace krl::provider::testing
