#include "mobiledevice/provider/wire/Channel.h"

#include "mobiledevice/provider/wire/CallTimeout.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <limits>
#include <utility>
#include <vector>

namespace krl::provider {

namespace {

// Takes the bytes that were sent off the front of the parts.
std::span<iovec> withoutSent(std::span<iovec> parts, size_t sent) {
    while (!parts.empty() && sent >= parts.front().iov_len) {
        sent -= parts.front().iov_len;
        parts = parts.subspan(1);
    }
    if (!parts.empty()) {
        parts.front().iov_base = static_cast<std::byte*>(parts.front().iov_base) + sent;
        parts.front().iov_len -= sent;
    }
    return parts;
}

} // namespace

Channel::Channel(UniqueDescriptor descriptor) : descriptor_(std::move(descriptor)) {}

IoResult Channel::send(std::span<iovec> parts) {
    if (encryption_) {
        return sendEncrypted(parts);
    }
    parts = withoutSent(parts, 0);
    while (!parts.empty()) {
        if (ended_) {
            return IoResult::Closed;
        }
        msghdr message{};
        message.msg_iov = parts.data();
        message.msg_iovlen = parts.size();
        const ssize_t sent = ::sendmsg(descriptor_.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0) {
            parts = withoutSent(parts, static_cast<size_t>(sent));
        } else if (errno == EAGAIN) {
            if (const IoResult ready = waitFor(POLLOUT); ready != IoResult::Done) {
                return ready;
            }
        } else if (errno != EINTR) {
            return IoResult::Closed;
        }
    }
    return IoResult::Done;
}

IoResult Channel::receive(std::span<std::byte> target) {
    if (encryption_) {
        return receiveEncrypted(target);
    }
    if (mayBringFarewell_ && !target.empty()) {
        if (const IoResult skipped = skipFarewell(); skipped != IoResult::Done) {
            return skipped;
        }
    }
    return receiveClear(target);
}

IoResult Channel::receiveClear(std::span<std::byte> target) {
    while (!target.empty()) {
        if (ended_) {
            return IoResult::Closed;
        }
        if (!buffered_.empty()) {
            const size_t count = std::min(buffered_.size(), target.size());
            std::copy_n(buffered_.begin(), count, target.begin());
            buffered_ = buffered_.subspan(count);
            target = target.subspan(count);
            continue;
        }
        // Bulk goes straight to where it belongs, the rest through the buffer.
        const bool direct = target.size() >= buffer_.size();
        const std::span<std::byte> place = direct ? target : std::span<std::byte>(buffer_);
        size_t received = 0;
        if (const IoResult result = receiveSome(place, received); result != IoResult::Done) {
            return result;
        }
        if (direct) {
            target = target.subspan(received);
        } else {
            buffered_ = place.first(received);
        }
    }
    return IoResult::Done;
}

IoResult Channel::receiveSome(std::span<std::byte> target, size_t& received) {
    for (;;) {
        const ssize_t count = ::recv(descriptor_.get(), target.data(), target.size(), MSG_DONTWAIT);
        if (count > 0) {
            received = static_cast<size_t>(count);
            return IoResult::Done;
        }
        if (count == 0) {
            return IoResult::Closed;
        }
        if (errno == EAGAIN) {
            if (const IoResult ready = waitFor(POLLIN); ready != IoResult::Done) {
                return ready;
            }
        } else if (errno != EINTR) {
            return IoResult::Closed;
        }
    }
}

// The deadline bounds silence: it starts anew with every wait, so a slow phone that keeps moving
// bytes is never cut off, and a silent one always is.
IoResult Channel::waitFor(short events) const {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + callTimeout();
    for (;;) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        const auto waitMs = std::clamp<decltype(left)>(left, 0, std::numeric_limits<int>::max());
        pollfd entry{descriptor_.get(), events, 0};
        const int ready = ::poll(&entry, 1, static_cast<int>(waitMs));
        if (ready > 0) {
            // An end or an error shows in the call that follows.
            return IoResult::Done;
        }
        if (ready == 0) {
            return IoResult::TimedOut;
        }
        if (errno != EINTR) {
            return IoResult::Closed;
        }
    }
}

// ------------------------------------------------------------------ encryption

template <typename Step>
IoResult Channel::carryOut(Step step) {
    while (!ended_) {
        IoResult ready = IoResult::Done;
        switch (step()) {
        case Encryption::Step::Done:
            return IoResult::Done;
        case Encryption::Step::WantsToReceive:
            ready = waitFor(POLLIN);
            break;
        case Encryption::Step::WantsToSend:
            ready = waitFor(POLLOUT);
            break;
        case Encryption::Step::Closed:
            return IoResult::Closed;
        }
        if (ready != IoResult::Done) {
            return ready;
        }
    }
    return IoResult::Closed;
}

IoResult Channel::beginEncryption(std::unique_ptr<Encryption> encryption) {
    encryption_ = std::move(encryption);
    return carryOut([this] { return encryption_->handshake(); });
}

void Channel::endEncryption() {
    encryption_.reset();
    mayBringFarewell_ = true;
}

IoResult Channel::sendEncrypted(std::span<const iovec> parts) {
    for (const iovec& part : parts) {
        std::span rest(static_cast<const std::byte*>(part.iov_base), part.iov_len);
        while (!rest.empty()) {
            size_t sent = 0;
            if (const IoResult result = carryOut([&] { return encryption_->send(rest, sent); });
                result != IoResult::Done) {
                return result;
            }
            rest = rest.subspan(sent);
        }
    }
    return carryOut([this] { return encryption_->flush(); });
}

IoResult Channel::receiveEncrypted(std::span<std::byte> target) {
    while (!target.empty()) {
        size_t received = 0;
        if (const IoResult result =
                carryOut([&] { return encryption_->receive(target, received); });
            result != IoResult::Done) {
            return result;
        }
        target = target.subspan(received);
    }
    return IoResult::Done;
}

// A phone may say that the encryption ends, and nothing tells whether it will. But the records that
// say so begin with 21, and a message in clear with a length that is far too small for that.
IoResult Channel::skipFarewell() {
    constexpr std::byte kAlert{21};
    constexpr size_t kHeaderBytes = 5; // kind, version (2), length (2)
    while (mayBringFarewell_) {
        if (buffered_.empty()) {
            size_t received = 0;
            if (const IoResult result = receiveSome(buffer_, received); result != IoResult::Done) {
                return result;
            }
            buffered_ = std::span<std::byte>(buffer_).first(received);
        }
        if (buffered_.front() != kAlert) {
            mayBringFarewell_ = false;
            return IoResult::Done;
        }
        std::array<std::byte, kHeaderBytes> header{};
        if (const IoResult result = receiveClear(header); result != IoResult::Done) {
            return result;
        }
        std::vector<std::byte> body(std::to_integer<size_t>(header[3]) << 8 |
                                    std::to_integer<size_t>(header[4]));
        if (const IoResult result = receiveClear(body); result != IoResult::Done) {
            return result;
        }
    }
    return IoResult::Done;
}

ssize_t Channel::receiveNow(std::span<std::byte> target) {
    if (!buffered_.empty()) {
        const size_t count = std::min(buffered_.size(), target.size());
        std::copy_n(buffered_.begin(), count, target.begin());
        buffered_ = buffered_.subspan(count);
        return static_cast<ssize_t>(count);
    }
    ssize_t count = 0;
    do {
        count = ::recv(descriptor_.get(), target.data(), target.size(), MSG_DONTWAIT);
    } while (count < 0 && errno == EINTR);
    return count;
}

ssize_t Channel::sendNow(std::span<const std::byte> bytes) {
    ssize_t count = 0;
    do {
        count = ::send(descriptor_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    } while (count < 0 && errno == EINTR);
    return count;
}

void Channel::shutdown() noexcept {
    ended_ = true;
    ::shutdown(descriptor_.get(), SHUT_RDWR);
}

} // namespace krl::provider
