// Two ends of a stream: a Channel, and a peer that says whatever a test wants.
#ifndef KRL_TESTS_PROVIDER_SOCKETPAIR_H
#define KRL_TESTS_PROVIDER_SOCKETPAIR_H

#include "CallTimeout.h"
#include "Channel.h"
#include "UniqueDescriptor.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>

namespace krl::provider::testing {

class SocketPair {
public:
    SocketPair() {
        int ends[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
            throw std::runtime_error("socketpair failed");
        }
        channel_ = std::make_shared<Channel>(UniqueDescriptor(ends[0]));
        peer_ = UniqueDescriptor(ends[1]);
    }

    std::shared_ptr<Channel> channel() { return channel_; }

    int peer() const { return peer_.get(); }

    /** Writes to the channel. */
    void say(const std::string& bytes) const {
        size_t sent = 0;
        while (sent < bytes.size()) {
            const ssize_t count =
                ::send(peer(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (count <= 0) {
                return; // the channel is closed
            }
            sent += static_cast<size_t>(count);
        }
    }

    /** Says nothing more; what was said can still be read. */
    void endSaying() const { ::shutdown(peer(), SHUT_WR); }

    /** Exactly this many bytes from the channel, fewer if it ends. */
    std::string hear(size_t size) const {
        std::string bytes(size, '\0');
        size_t got = 0;
        while (got < size) {
            const ssize_t count = ::recv(peer(), bytes.data() + got, size - got, 0);
            if (count <= 0) {
                break;
            }
            got += static_cast<size_t>(count);
        }
        bytes.resize(got);
        return bytes;
    }

    /** Whether the channel has said something within a time. */
    bool hearsSomething(std::chrono::milliseconds within) const {
        pollfd entry{peer(), POLLIN, 0};
        return ::poll(&entry, 1, static_cast<int>(within.count())) > 0;
    }

    void closePeer() { peer_ = UniqueDescriptor(); }

private:
    std::shared_ptr<Channel> channel_;
    UniqueDescriptor peer_;
};

/** Another deadline for the length of a test. */
class ShortTimeout {
public:
    explicit ShortTimeout(uint32_t timeoutMs) { setCallTimeout(timeoutMs); }

    ShortTimeout(const ShortTimeout&) = delete;
    ShortTimeout& operator=(const ShortTimeout&) = delete;

    ~ShortTimeout() { setCallTimeout(0); }
};

} // namespace krl::provider::testing

#endif
