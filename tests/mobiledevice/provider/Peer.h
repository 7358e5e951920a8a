// The other end of a stream, which says whatever a test wants.
#pragma once

#include "mobiledevice/provider/wire/UniqueDescriptor.h"

#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <string>
#include <utility>

namespace krl::provider::testing {

class Peer {
public:
    explicit Peer(UniqueDescriptor descriptor) : peer_(std::move(descriptor)) {}

    int peer() const { return peer_.get(); }

    /// Writes to the other end.
    void say(const std::string& bytes) const {
        size_t sent = 0;
        while (sent < bytes.size()) {
            const ssize_t count =
                ::send(peer(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (count <= 0) {
                return; // the other end is closed
            }
            sent += static_cast<size_t>(count);
        }
    }

    /// Says nothing more; what was said can still be read.
    void endSaying() const { ::shutdown(peer(), SHUT_WR); }

    /// Exactly this many bytes from the other end, fewer if it ends.
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

    /// Whether the other end has said something within a time.
    bool hearsSomething(std::chrono::milliseconds within) const {
        pollfd entry{peer(), POLLIN, 0};
        return ::poll(&entry, 1, static_cast<int>(within.count())) > 0;
    }

    void closePeer() { peer_ = UniqueDescriptor(); }

private:
    UniqueDescriptor peer_;
};

} // namespace krl::provider::testing
