#include "virtualphone/wire/DelayLine.h"

#include "virtualphone/wire/Timespec.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace virtualphone {

namespace {

constexpr size_t kMostAtOnce = size_t{256} * 1024;
constexpr size_t kMostOnTheWay = size_t{16} * 1024 * 1024;

int eventsOf(bool takes, bool isBlocked) {
    return (takes ? POLLIN : 0) | (isBlocked ? POLLOUT : 0);
}

} // namespace

// ------------------------------------------------------------------ one way

bool DelayLine::Direction::hasRoom() const {
    return onTheWay_ < kMostOnTheWay;
}

void DelayLine::Direction::take(Clock::time_point arrival, bool isAll, std::span<char> buffer) {
    while (!hasEnded_ && (isAll || hasRoom())) {
        const ssize_t got = recv(from_, buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (got > 0) {
            const std::span<char> bytes = buffer.first(static_cast<size_t>(got));
            onTheWay_ += sizeof(Piece) + bytes.size();
            pieces_.push_back({arrival, {bytes.begin(), bytes.end()}});
        } else if (got < 0 && errno == EAGAIN) {
            return;
        } else if (got == 0 || errno != EINTR) {
            // The end takes as long as all else, which a piece of nothing sees to.
            hasEnded_ = true;
            onTheWay_ += sizeof(Piece);
            pieces_.push_back({arrival, {}});
        }
    }
}

void DelayLine::Direction::deliver(Clock::time_point now) {
    isBlocked_ = false;
    while (!pieces_.empty() && pieces_.front().arrival <= now) {
        Piece& piece = pieces_.front();
        const std::span<const char> rest = std::span(piece.bytes).subspan(piece.taken);
        const ssize_t sent =
            rest.empty() ? 0 : send(to_, rest.data(), rest.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent < 0 && errno == EAGAIN) {
            isBlocked_ = true;
            return;
        }
        piece.taken += sent < 0 ? rest.size() : static_cast<size_t>(sent);
        if (piece.taken == piece.bytes.size()) {
            onTheWay_ -= sizeof(Piece) + piece.bytes.size();
            pieces_.pop_front();
        }
    }
}

std::optional<DelayLine::Clock::time_point> DelayLine::Direction::nextArrival() const {
    return pieces_.empty() || isBlocked_ ? std::nullopt : std::optional(pieces_.front().arrival);
}

// ------------------------------------------------------------------ both ways

DelayLine::DelayLine(UniqueFd client, std::chrono::nanoseconds delay)
    : client_(std::move(client)), ends_(newEnds()), delay_(delay),
      toPhone_(client_.get(), ends_.own.get()), toClient_(ends_.own.get(), client_.get()),
      thread_([this] { carry(); }) {}

DelayLine::~DelayLine() {
    cut();
    waitForEnd();
}

DelayLine::Ends DelayLine::newEnds() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        throw std::system_error(errno, std::generic_category(), "socketpair");
    }
    return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

void DelayLine::cut() {
    isCut_ = true;
    shutdown(client_.get(), SHUT_RDWR);
    shutdown(ends_.own.get(), SHUT_RDWR);
}

void DelayLine::waitForEnd() {
    if (thread_.joinable()) {
        thread_.join();
    }
}

void DelayLine::carry() {
    std::vector<char> buffer(kMostAtOnce);
    bool tellsPhone = true;
    while (!isCut_ && !isOver()) {
        waitForWork();
        const Clock::time_point now = Clock::now();
        toPhone_.take(now + delay_, clientIsGone_, buffer);
        toClient_.take(now + delay_, /*isAll=*/false, buffer);
        toPhone_.deliver(now);
        toClient_.deliver(now);
        if (toPhone_.isOver() && std::exchange(tellsPhone, false)) {
            shutdown(ends_.own.get(), SHUT_WR); // a client may still listen
        }
    }
    shutdown(ends_.own.get(), SHUT_RDWR);
    shutdown(client_.get(), SHUT_RDWR);
}

// Once the client is gone, only a phone that has not ended yet is to hear of it.
bool DelayLine::isOver() const {
    return clientIsGone_ ? toPhone_.isOver() || toClient_.hasEnded() : toClient_.isOver();
}

void DelayLine::waitForWork() {
    // Who has said all and is gone would be reported for ever.
    pollfd waiting[] = {
        {.fd = clientIsGone_ ? -1 : client_.get(),
         .events = static_cast<short>(
             eventsOf(!toPhone_.hasEnded() && toPhone_.hasRoom(), toClient_.isBlocked())),
         .revents = 0},
        {.fd = toClient_.hasEnded() ? -1 : ends_.own.get(),
         .events = static_cast<short>(eventsOf(toClient_.hasRoom(), toPhone_.isBlocked())),
         .revents = 0}};
    const std::optional<Clock::time_point> first =
        std::min(toPhone_.nextArrival(), toClient_.nextArrival(),
                 [](const auto& a, const auto& b) { return a && (!b || *a < *b); });
    const timespec time = first ? timespecOf(*first - Clock::now()) : timespec{};
    ppoll(waiting, 2, first ? &time : nullptr, nullptr);
    clientIsGone_ = clientIsGone_ || (waiting[0].revents & POLLHUP) != 0;
}

} // namespace virtualphone
