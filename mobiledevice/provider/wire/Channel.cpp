#include "mobiledevice/provider/wire/Channel.h"

#include "mobiledevice/provider/wire/CallTimeout.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <limits>
#include <thread>
#include <utility>
#include <vector>

namespace krl::provider {

using Step = Encryption::Step;

namespace {

template <typename Call>
ssize_t uninterrupted(Call call) {
    ssize_t count = 0;
    do {
        count = call();
    } while (count < 0 && errno == EINTR);
    return count;
}

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

// A socket of this computer whose listener has as many waiting as it allows is told to come again,
// and nothing says when: only then time is slept away.
IoResult Channel::connect(const sockaddr* address, socklen_t size) {
    constexpr std::chrono::milliseconds kMoment{10};
    const auto deadline = nextDeadline();
    while (::connect(descriptor_.get(), address, size) != 0) {
        if (hasEnded()) {
            return endResult();
        }
        if (errno == EINPROGRESS) {
            return finishConnecting();
        }
        if (errno != EAGAIN && errno != EINTR) {
            return endResult();
        }
        if (Clock::now() >= deadline) {
            return IoResult::TimedOut;
        }
        std::this_thread::sleep_for(kMoment);
    }
    return IoResult::Done;
}

IoResult Channel::finishConnecting() {
    if (const IoResult ready = waitFor(POLLOUT); ready != IoResult::Done) {
        return ready;
    }
    int error = 0;
    socklen_t size = sizeof error;
    const bool isConnected =
        ::getsockopt(descriptor_.get(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
    return isConnected ? IoResult::Done : endResult();
}

template <typename Attempt>
IoResult Channel::carryOut(Attempt attempt) {
    while (!hasEnded()) {
        IoResult ready = IoResult::Done;
        switch (attempt()) {
        case Step::Done:
            return IoResult::Done;
        case Step::WantsToReceive:
            ready = waitFor(POLLIN);
            break;
        case Step::WantsToSend:
            ready = waitFor(POLLOUT);
            break;
        case Step::Closed:
            return endResult();
        }
        if (ready != IoResult::Done) {
            return ready;
        }
    }
    return endResult();
}

// ------------------------------------------------------------------ sending

IoResult Channel::send(std::span<iovec> parts) {
    return carryOut([&] { return trySend(parts); });
}

IoResult Channel::sendUntilHeard(std::span<iovec>& parts, bool& hasGone) {
    while (!hasEnded()) {
        const Step sent = trySend(parts);
        hasGone = sent == Step::Done;
        if (hasGone) {
            return IoResult::Done;
        }
        if (sent == Step::Closed) {
            break;
        }
        if (held().room().empty()) {
            return IoResult::Done;
        }
        const int events = sent == Step::WantsToSend ? POLLIN | POLLOUT : POLLIN;
        short ready = 0;
        if (const IoResult result = waitFor(static_cast<short>(events), &ready);
            result != IoResult::Done) {
            return result;
        }
        const Step heard = (ready & POLLIN) != 0 ? tryHold() : Step::WantsToReceive;
        if (heard == Step::Done) {
            return IoResult::Done;
        }
        if (heard == Step::Closed) {
            break;
        }
    }
    return endResult();
}

Step Channel::trySend(std::span<iovec>& parts) {
    if (!encryption_) {
        return trySendClear(parts);
    }
    parts = withoutSent(parts, 0);
    while (!parts.empty()) {
        const iovec& front = parts.front();
        size_t sent = 0;
        const Step step = encryption_->send(
            std::span(static_cast<const std::byte*>(front.iov_base), front.iov_len), sent);
        if (step != Step::Done) {
            return step;
        }
        allowFor(sent);
        parts = withoutSent(parts, sent);
    }
    return encryption_->flush();
}

Step Channel::trySendClear(std::span<iovec>& parts) {
    parts = withoutSent(parts, 0);
    if (parts.empty()) {
        return Step::Done;
    }
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    const ssize_t sent = uninterrupted(
        [&] { return ::sendmsg(descriptor_.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT); });
    if (sent < 0) {
        return errno == EAGAIN ? Step::WantsToSend : Step::Closed;
    }
    allowFor(static_cast<size_t>(sent));
    parts = withoutSent(parts, static_cast<size_t>(sent));
    // A socket that takes only some is full: it is asked again when it says that it is not.
    return parts.empty() ? Step::Done : Step::WantsToSend;
}

// ------------------------------------------------------------------ receiving

IoResult Channel::receive(std::span<std::byte> target) {
    allowFor(target.size());
    if (mayBringFarewell_ && !encryption_ && !target.empty()) {
        if (const IoResult skipped = skipFarewell(); skipped != IoResult::Done) {
            return skipped;
        }
    }
    return receiveExactly(target);
}

size_t Channel::heldBytes() const {
    return encryption_ ? decrypted_.size() : raw_.size();
}

IoResult Channel::receiveExactly(std::span<std::byte> target) {
    while (!target.empty()) {
        if (hasEnded()) {
            return endResult();
        }
        target = target.subspan(held().take(target));
        if (target.empty()) {
            break;
        }
        // Bulk goes straight to where it belongs, the rest through the buffer.
        size_t received = 0;
        const bool isBulk = target.size() >= ReceiveBuffer::kCapacity;
        const IoResult result =
            carryOut([&] { return isBulk ? tryReceive(target, received) : tryHold(); });
        if (result != IoResult::Done) {
            return result;
        }
        target = target.subspan(received);
    }
    return IoResult::Done;
}

Step Channel::tryHold() {
    size_t received = 0;
    const Step step = tryReceive(held().room(), received);
    held().added(received);
    return step;
}

Step Channel::tryReceive(std::span<std::byte> target, size_t& received) {
    return encryption_ ? encryption_->receive(target, received) : tryReceiveClear(target, received);
}

Step Channel::tryReceiveClear(std::span<std::byte> target, size_t& received) {
    const ssize_t count = receiveFromSocket(target);
    if (count > 0) {
        received = static_cast<size_t>(count);
        return Step::Done;
    }
    return count < 0 && errno == EAGAIN ? Step::WantsToReceive : Step::Closed;
}

ssize_t Channel::receiveFromSocket(std::span<std::byte> target) {
    return uninterrupted(
        [&] { return ::recv(descriptor_.get(), target.data(), target.size(), MSG_DONTWAIT); });
}

// ------------------------------------------------------------------ waiting

void Channel::beginExchange() {
    exchangeEnd_ = Clock::now() + 2 * callTimeout();
}

void Channel::allowFor(size_t bytes) {
    if (exchangeEnd_ != Clock::time_point::max()) {
        exchangeEnd_ +=
            std::chrono::nanoseconds(std::chrono::seconds(1)) * bytes / kLeastBytesPerSecond;
    }
}

// Silence is bounded anew with every wait, the exchange once.
Channel::Clock::time_point Channel::nextDeadline() const {
    return std::min(Clock::now() + callTimeout(), exchangeEnd_);
}

IoResult Channel::waitFor(short events, short* ready) const {
    const auto deadline = nextDeadline();
    for (;;) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        const auto waitMs = std::clamp<decltype(left)>(left, 0, std::numeric_limits<int>::max());
        pollfd entry{descriptor_.get(), events, 0};
        const int count = ::poll(&entry, 1, static_cast<int>(waitMs));
        if (count > 0) {
            // An end or an error shows in the call that follows.
            if (ready != nullptr) {
                *ready = entry.revents;
            }
            return IoResult::Done;
        }
        if (count == 0) {
            return IoResult::TimedOut;
        }
        if (errno != EINTR) {
            return endResult();
        }
    }
}

// ------------------------------------------------------------------ encryption

IoResult Channel::beginEncryption(std::unique_ptr<Encryption> encryption) {
    beginExchange();
    encryption_ = std::move(encryption);
    return carryOut([this] { return encryption_->handshake(); });
}

void Channel::endEncryption() {
    encryption_.reset();
    decrypted_.clear();
    mayBringFarewell_ = true;
}

// A phone may say that the encryption ends, and nothing tells whether it will. But the records that
// say so begin with 21, and a message in clear with a length that is far too small for that.
IoResult Channel::skipFarewell() {
    constexpr std::byte kAlert{21};
    constexpr size_t kHeaderBytes = 5; // kind, version (2), length (2)
    while (mayBringFarewell_) {
        if (raw_.isEmpty()) {
            if (const IoResult result = carryOut([this] { return tryHold(); });
                result != IoResult::Done) {
                return result;
            }
        }
        if (raw_.front() != kAlert) {
            mayBringFarewell_ = false;
            return IoResult::Done;
        }
        std::array<std::byte, kHeaderBytes> header{};
        if (const IoResult result = receiveExactly(header); result != IoResult::Done) {
            return result;
        }
        std::vector<std::byte> body(std::to_integer<size_t>(header[3]) << 8 |
                                    std::to_integer<size_t>(header[4]));
        if (const IoResult result = receiveExactly(body); result != IoResult::Done) {
            return result;
        }
    }
    return IoResult::Done;
}

ssize_t Channel::receiveNow(std::span<std::byte> target) {
    return raw_.isEmpty() ? receiveFromSocket(target) : static_cast<ssize_t>(raw_.take(target));
}

ssize_t Channel::sendNow(std::span<const std::byte> bytes) {
    return uninterrupted([&] {
        return ::send(descriptor_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    });
}

void Channel::shutdown() noexcept {
    end(State::Ended);
}

void Channel::cancel() noexcept {
    end(State::Cancelled);
}

void Channel::end(State state) noexcept {
    State open = State::Open;
    state_.compare_exchange_strong(open, state);
    ::shutdown(descriptor_.get(), SHUT_RDWR);
}

IoResult Channel::endResult() const {
    return state_ == State::Cancelled ? IoResult::Cancelled : IoResult::Closed;
}

} // namespace krl::provider
