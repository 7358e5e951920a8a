#include "virtualphone/wire/Channel.h"

#include "virtualphone/wire/Timespec.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace virtualphone {

namespace {

// A unix socket holds about 200 KiB, so one receive takes all that is there.
constexpr size_t kBufferSize = size_t{256} * 1024;
constexpr int kSendBufferSize = 1024 * 1024;

} // namespace

Channel::Channel(UniqueFd socket)
    : socket_(std::move(socket)), buffer_(std::make_unique_for_overwrite<char[]>(kBufferSize)) {
    // As much as the system allows; a smaller buffer is slower, nothing else.
    setsockopt(socket_.get(), SOL_SOCKET, SO_SNDBUF, &kSendBufferSize, sizeof kSendBufferSize);
}

void Channel::meter(Faults& faults, Service service) {
    faults_ = &faults;
    service_ = service;
}

bool Channel::fill() {
    const std::span<char> buffer(buffer_.get(), kBufferSize);
    const size_t received = encryption_ ? encryption_->receive(buffer) : receiveRaw(buffer);
    begin_ = 0;
    end_ = received;
    return received > 0;
}

size_t Channel::receiveRaw(std::span<char> target) {
    if (begin_ != end_ && !encryption_) {
        // Came with the last request in clear.
        const std::span<const char> early = take(target.size());
        std::memcpy(target.data(), early.data(), early.size());
        return early.size();
    }
    if (isShutDown_) {
        return 0;
    }
    // What is held leaves once there is nothing here to be done.
    ssize_t got =
        held_.empty() ? 0 : recv(socket_.get(), target.data(), target.size(), MSG_DONTWAIT);
    if (got <= 0) {
        if (!flush()) {
            return 0;
        }
        do {
            got = recv(socket_.get(), target.data(), target.size(), 0);
        } while (got < 0 && errno == EINTR);
        if (got <= 0) {
            return 0;
        }
    }
    auto received = static_cast<size_t>(got);
    if (faults_ != nullptr) {
        const Faults::Allowance allowed = faults_->allowReceiving(service_, received);
        received = allowed.bytes;
        if (allowed.isLast) {
            shutDown();
        }
    }
    return received;
}

std::span<const char> Channel::take(size_t most) {
    if (begin_ == end_ && !fill()) {
        return {};
    }
    const size_t count = std::min(most, end_ - begin_);
    const std::span<const char> bytes(buffer_.get() + begin_, count);
    begin_ += count;
    return bytes;
}

bool Channel::read(std::span<char> bytes) {
    while (!bytes.empty()) {
        const std::span<const char> got = take(bytes.size());
        if (got.empty()) {
            return false;
        }
        std::memcpy(bytes.data(), got.data(), got.size());
        bytes = bytes.subspan(got.size());
    }
    return true;
}

bool Channel::skip(uint64_t bytes) {
    while (bytes > 0) {
        const std::span<const char> got =
            take(static_cast<size_t>(std::min<uint64_t>(bytes, kBufferSize)));
        if (got.empty()) {
            return false;
        }
        bytes -= got.size();
    }
    return true;
}

bool Channel::write(std::span<const char> bytes) {
    return flush() && (encryption_ ? encryption_->send(bytes) : sendRaw(bytes));
}

bool Channel::writeSoon(std::span<const char> bytes) {
    constexpr size_t kMostHeld = 4096;
    if (held_.size() + bytes.size() > kMostHeld) {
        return write(bytes);
    }
    held_.insert(held_.end(), bytes.begin(), bytes.end());
    return true;
}

bool Channel::flush() {
    if (held_.empty()) {
        return true;
    }
    const bool isSent = encryption_ ? encryption_->send(held_) : sendRaw(held_);
    held_.clear();
    return isSent;
}

bool Channel::sendRaw(std::span<const char> bytes) {
    bool endsAfterwards = false;
    if (faults_ != nullptr) {
        const Faults::Allowance allowed = faults_->allowSending(service_, bytes.size());
        bytes = bytes.first(allowed.bytes);
        endsAfterwards = allowed.isLast;
    }
    while (!bytes.empty()) {
        const ssize_t sent = send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent < 0) {
            return false;
        }
        bytes = bytes.subspan(static_cast<size_t>(sent));
    }
    if (endsAfterwards) {
        shutDown();
    }
    return !endsAfterwards;
}

void Channel::sendNow(std::span<const char> bytes) {
    bool endsAfterwards = false;
    if (faults_ != nullptr) {
        const Faults::Allowance allowed = faults_->allowSending(service_, bytes.size());
        bytes = bytes.first(allowed.bytes);
        endsAfterwards = allowed.isLast;
    }
    const ssize_t sent =
        send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (endsAfterwards || sent != static_cast<ssize_t>(bytes.size())) {
        shutDown();
    }
}

bool Channel::waitForInput(std::chrono::milliseconds timeout) {
    if (begin_ != end_) {
        return true;
    }
    flush();
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (true) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        const int wait =
            timeout.count() < 0 ? -1 : static_cast<int>(std::max<int64_t>(left.count(), 0));
        pollfd waiting{.fd = socket_.get(), .events = POLLIN, .revents = 0};
        const int ready = poll(&waiting, 1, wait);
        if (ready >= 0 || errno != EINTR) {
            return ready != 0;
        }
    }
}

bool Channel::pause(std::chrono::nanoseconds time) {
    flush();
    const auto deadline = std::chrono::steady_clock::now() + time;
    while (true) {
        const auto left = deadline - std::chrono::steady_clock::now();
        const timespec spec = timespecOf(left);
        // No events asked for: the end of the connection is reported all the same.
        pollfd waiting{.fd = socket_.get(), .events = 0, .revents = 0};
        const int ready = ppoll(&waiting, 1, &spec, nullptr);
        if (ready >= 0 || errno != EINTR) {
            return ready == 0;
        }
    }
}

bool Channel::waitFor(int descriptor) {
    flush();
    while (true) {
        pollfd waiting[] = {{.fd = socket_.get(), .events = 0, .revents = 0},
                            {.fd = descriptor, .events = POLLIN, .revents = 0}};
        const int ready = poll(waiting, 2, -1);
        if (ready > 0) {
            return waiting[0].revents == 0;
        }
    }
}

void Channel::waitForEnd() {
    flush();
    pollfd waiting{.fd = socket_.get(), .events = 0, .revents = 0};
    while (poll(&waiting, 1, -1) <= 0) {
    }
}

void Channel::encrypt(std::unique_ptr<EncryptedStream> stream) {
    encryption_ = std::move(stream);
}

void Channel::endEncryption() {
    if (encryption_) {
        encryption_.reset();
        mayBringFarewell_ = true;
    }
}

bool Channel::skipFarewell() {
    // A request in clear begins with its length, which is too small to begin with the 21 of an
    // alert.
    constexpr char kAlert = 21;
    while (mayBringFarewell_ && waitForInput(std::chrono::milliseconds(0))) {
        if (begin_ == end_ && !fill()) {
            return false;
        }
        if (buffer_[begin_] != kAlert) {
            mayBringFarewell_ = false;
            break;
        }
        unsigned char header[5]; // kind, version (2), length (2)
        if (!read({reinterpret_cast<char*>(header), sizeof header}) ||
            !skip(static_cast<uint64_t>(header[3]) << 8 | header[4])) {
            return false;
        }
    }
    return true;
}

bool Channel::lengthen(std::chrono::nanoseconds delay) {
    const std::lock_guard lock(endMutex_);
    UniqueFd client(fcntl(socket_.get(), F_DUPFD_CLOEXEC, 0));
    if (isShutDown_ || !client) {
        return false;
    }
    try {
        line_ = std::make_unique<DelayLine>(std::move(client), delay);
    } catch (const std::system_error&) {
        return false;
    }
    return dup3(line_->phoneEnd().get(), socket_.get(), O_CLOEXEC) >= 0;
}

void Channel::shutDown() {
    const std::lock_guard lock(endMutex_);
    isShutDown_ = true;
    shutdown(socket_.get(), SHUT_RDWR);
}

void Channel::cut() {
    shutDown();
    const std::lock_guard lock(endMutex_);
    if (line_) {
        line_->cut();
    }
}

void Channel::waitForArrival() {
    if (line_) {
        line_->waitForEnd();
    }
}

} // namespace virtualphone
