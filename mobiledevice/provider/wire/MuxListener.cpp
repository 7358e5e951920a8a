#include "mobiledevice/provider/wire/MuxListener.h"

#include <endian.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <limits>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

namespace krl::provider {

namespace {

constexpr int kPauseMs = 1000;

// News of a phone takes less than a kilobyte.
constexpr uint32_t kMaxMessageBytes = 64 * 1024;

constexpr uint32_t kListVersion = 1;
constexpr uint32_t kListMessage = 8;

// All little-endian.
struct Header {
    uint32_t length; // of the whole message
    uint32_t version;
    uint32_t message;
    uint32_t tag; // repeated in the answer; there is one question only
};

UniqueDescriptor newEvent() {
    UniqueDescriptor event(::eventfd(0, EFD_CLOEXEC));
    if (!event) {
        throw std::system_error(errno, std::generic_category());
    }
    return event;
}

// A new connection takes so little at once, so this waits for nothing.
bool sendListen(int socket) {
    const PlistRef request = newDictionary();
    setString(request, "MessageType", "Listen");
    setString(request, "ClientVersionString", "KRLVesk");
    setString(request, "ProgName", "KRLVesk");
    const std::string body = xmlOf(request);
    const Header header{htole32(static_cast<uint32_t>(sizeof(Header) + body.size())),
                        htole32(kListVersion), htole32(kListMessage), 0};
    std::string message(reinterpret_cast<const char*>(&header), sizeof header);
    message += body;
    return ::send(socket, message.data(), message.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(message.size());
}

bool isConsent(const PlistRef& message) {
    return stringAt(message, "MessageType") == "Result" && unsignedAt(message, "Number") == 0;
}

std::optional<uint32_t> deviceIdIn(const PlistRef& message) {
    const std::optional<uint64_t> id = unsignedAt(message, "DeviceID");
    if (!id || *id == 0 || *id > std::numeric_limits<uint32_t>::max()) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(*id);
}

// Later models have 24 digits, which everybody else writes with a hyphen.
std::string udidOf(std::string serialNumber) {
    constexpr size_t kLaterDigits = 24;
    constexpr size_t kBeforeHyphen = 8;
    if (serialNumber.size() == kLaterDigits) {
        serialNumber.insert(kBeforeHyphen, 1, '-');
    }
    return serialNumber;
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
    do {
        try {
            converse();
        } catch (const std::exception&) {
            // Out of memory, which ends the connection as everything else does.
        }
        detachAll();
    } while (pauseBeforeNextTry());
}

void MuxListener::converse() {
    const UniqueDescriptor socket = connect();
    if (!socket || !sendListen(socket.get())) {
        return;
    }
    PlistRef message = receive(socket.get());
    if (!message || !isConsent(message)) {
        return;
    }
    while ((message = receive(socket.get()))) {
        hear(message);
    }
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
    Header header{};
    if (!receive(socket, std::as_writable_bytes(std::span(&header, 1)))) {
        return nullptr;
    }
    const uint32_t length = le32toh(header.length);
    if (length < sizeof header || length > kMaxMessageBytes ||
        le32toh(header.version) != kListVersion || le32toh(header.message) != kListMessage) {
        return nullptr;
    }
    std::vector<std::byte> body(length - sizeof header);
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

bool MuxListener::pauseBeforeNextTry() const {
    pollfd end{end_.get(), POLLIN, 0};
    return ::poll(&end, 1, kPauseMs) <= 0;
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
    const std::optional<uint32_t> id = deviceIdIn(message);
    const PlistRef properties = dictionaryAt(message, "Properties");
    if (!id || !properties || stringAt(properties, "ConnectionType") != "USB") {
        return;
    }
    std::optional<std::string> serialNumber = stringAt(properties, "SerialNumber");
    if (serialNumber && attached_.insert(*id).second) {
        audience_.attached(*id, udidOf(std::move(*serialNumber)));
    }
}

void MuxListener::hearDetached(const PlistRef& message) {
    const std::optional<uint32_t> id = deviceIdIn(message);
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
