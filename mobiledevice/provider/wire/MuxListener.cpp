#include "mobiledevice/provider/wire/MuxListener.h"

#include "mobiledevice/provider/wire/MuxMessage.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <iterator>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

namespace krl::provider {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// The first try again is made at once, since most failures are a moment's.
constexpr milliseconds kFirstPauses[] = {milliseconds(0), milliseconds(10), milliseconds(50),
                                         milliseconds(200), milliseconds(1000)};
constexpr milliseconds kLongestPause{32'000};
constexpr milliseconds kUntilNews{-1};

// A connection that has lasted so long was a good one.
constexpr milliseconds kGoodConnection{1000};

// News of a phone takes less than a kilobyte.
constexpr size_t kMostListenerBodyBytes = size_t{64} * 1024 - sizeof(MuxHeader);

UniqueDescriptor newEvent() {
    UniqueDescriptor event(::eventfd(0, EFD_CLOEXEC));
    if (!event) {
        throw std::system_error(errno, std::generic_category());
    }
    return event;
}

// A new connection takes so little at once, so this waits for nothing.
bool sendListen(int socket) {
    const std::string message = muxMessage(newMuxRequest("Listen"), /*tag=*/0);
    return ::send(socket, message.data(), message.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(message.size());
}

} // namespace

MuxListener::MuxListener(const std::string& setting, MuxAudience& audience)
    : setting_(setting), audience_(audience), end_(newEvent()), thread_([this] { run(); }) {}

MuxListener::~MuxListener() {
    ::eventfd_write(end_.get(), 1);
    thread_.join();
}

void MuxListener::run() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr); // they are for the application's own threads
    bool goesOn = true;
    while (goesOn) {
        // Begun before the try, so that nothing is missed after it. Not for the first one: where
        // there is a daemon nothing is waited for, and the system takes its time to end a watch.
        std::optional<SocketWatch> watch;
        if (failures_ > 0) {
            watch.emplace(muxSocketPath(setting_));
        }
        const Clock::time_point begin = Clock::now();
        Outcome outcome = Outcome::Ended;
        try {
            outcome = converse();
        } catch (const std::exception&) {
            // Out of memory, which ends the connection as everything else does.
        }
        detachAll();
        failures_ = Clock::now() - begin < kGoodConnection ? failures_ + 1 : 1;
        goesOn = pauseBeforeNextTry(outcome, watch);
    }
}

MuxListener::Outcome MuxListener::converse() {
    const UniqueDescriptor socket = connect();
    if (!socket) {
        return Outcome::Unreachable;
    }
    PlistRef message = sendListen(socket.get()) ? receive(socket.get()) : nullptr;
    if (message && isMuxConsent(message)) {
        while ((message = receive(socket.get()))) {
            hear(message);
        }
    }
    return Outcome::Ended;
}

// ------------------------------------------------------------------ the socket

UniqueDescriptor MuxListener::connect() const {
    for (const SocketAddress& address : muxAddresses(setting_)) {
        UniqueDescriptor socket(
            ::socket(address.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (socket && finishConnecting(socket.get(), address)) {
            return socket;
        }
    }
    return UniqueDescriptor();
}

bool MuxListener::finishConnecting(int socket, const SocketAddress& address) const {
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address.storage), address.size) == 0) {
        return true;
    }
    if (errno != EINPROGRESS || !waitFor(socket, POLLOUT)) {
        return false;
    }
    int error = 0;
    socklen_t size = sizeof error;
    return ::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

PlistRef MuxListener::receive(int socket) const {
    MuxHeader header{};
    if (!receive(socket, std::as_writable_bytes(std::span(&header, 1)))) {
        return nullptr;
    }
    const std::optional<size_t> length = muxBodyBytes(header, kMostListenerBodyBytes);
    if (!length) {
        return nullptr;
    }
    std::vector<std::byte> body(*length);
    return receive(socket, body) ? parseDictionary(body) : nullptr;
}

bool MuxListener::receive(int socket, std::span<std::byte> target) const {
    while (!target.empty()) {
        if (!waitFor(socket, POLLIN)) {
            return false;
        }
        const ssize_t count = ::recv(socket, target.data(), target.size(), 0);
        if (count > 0) {
            target = target.subspan(static_cast<size_t>(count));
        } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
            return false;
        }
    }
    return true;
}

bool MuxListener::waitFor(int socket, short events) const {
    std::array<pollfd, 2> entries{pollfd{socket, events, 0}, pollfd{end_.get(), POLLIN, 0}};
    int ready = 0;
    do {
        ready = ::poll(entries.data(), entries.size(), -1);
    } while (ready < 0 && errno == EINTR);
    return ready > 0 && entries[1].revents == 0;
}

bool MuxListener::pauseBeforeNextTry(Outcome outcome, const std::optional<SocketWatch>& watch) {
    const int news = watch ? watch->descriptor() : -1;
    std::array<pollfd, 2> entries{pollfd{end_.get(), POLLIN, 0}, pollfd{news, POLLIN, 0}};
    const milliseconds pause = pauseAfter(outcome, news >= 0);
    const Clock::time_point due = Clock::now() + pause;
    while (pause == kUntilNews || Clock::now() < due) {
        const milliseconds left =
            pause == kUntilNews ? pause : std::chrono::ceil<milliseconds>(due - Clock::now());
        ::poll(entries.data(), entries.size(), static_cast<int>(left.count()));
        if (entries[0].revents != 0) {
            return false;
        }
        if (entries[1].revents != 0 && watch->takeNews()) {
            failures_ = 0;
            return true;
        }
    }
    return ::poll(entries.data(), 1, 0) <= 0;
}

milliseconds MuxListener::pauseAfter(Outcome outcome, bool isWatching) const {
    if (failures_ <= std::size(kFirstPauses)) {
        return kFirstPauses[failures_ - 1];
    }
    if (outcome == Outcome::Unreachable && isWatching) {
        return kUntilNews;
    }
    constexpr size_t kMostDoublings = 5;
    const size_t doublings = std::min(failures_ - std::size(kFirstPauses), kMostDoublings);
    return std::min(kFirstPauses[std::size(kFirstPauses) - 1] * (1 << doublings), kLongestPause);
}

// ------------------------------------------------------------------ the news

// What is not understood is passed over: it is about something else than phones on USB.
void MuxListener::hear(const PlistRef& message) {
    const std::optional<std::string> type = stringAt(message, "MessageType");
    if (type == "Attached") {
        hearAttached(message);
    } else if (type == "Detached") {
        hearDetached(message);
    }
}

void MuxListener::hearAttached(const PlistRef& message) {
    const std::optional<MuxAttachment> phone = muxAttachmentIn(message);
    if (phone && attached_.insert(phone->muxId).second) {
        audience_.attached(phone->muxId, phone->udid);
    }
}

void MuxListener::hearDetached(const PlistRef& message) {
    const std::optional<uint32_t> id = muxIdIn(message);
    if (id && attached_.erase(*id) > 0) {
        audience_.detached(*id);
    }
}

void MuxListener::detachAll() {
    for (const uint32_t id : std::exchange(attached_, {})) {
        audience_.detached(id);
    }
}

} // namespace krl::provider
