#include "engine/diagnosis/MuxSocket.h"

#include "mobiledevice/mux/MuxAddress.h"

#include <endian.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <thread>
#include <vector>

namespace krl::engine {
namespace {

MuxSocket::State stateOf(int error) {
    switch (error) {
    case 0:
        return MuxSocket::State::Answers;
    case ENOENT:
    case ENOTDIR:
        return MuxSocket::State::Absent;
    case ECONNREFUSED:
        return MuxSocket::State::Deserted;
    case ETIMEDOUT:
        return MuxSocket::State::Silent;
    case EACCES:
    case EPERM:
        return MuxSocket::State::Forbidden;
    default:
        return MuxSocket::State::Broken;
    }
}

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLongest{2};

// A socket whose listener has as many waiting as it allows says EAGAIN, and nothing tells when.
int connectUntil(int descriptor, const SocketAddress& address, Clock::time_point end) {
    constexpr std::chrono::milliseconds kMoment{10};
    const auto* generic = reinterpret_cast<const sockaddr*>(&address.storage);
    while (::connect(descriptor, generic, address.size) != 0) {
        if (errno != EAGAIN && errno != EINTR) {
            return errno;
        }
        if (Clock::now() >= end) {
            return ETIMEDOUT;
        }
        std::this_thread::sleep_for(kMoment);
    }
    return 0;
}

// ListDevices, which every daemon answers at once.
int askUntil(int descriptor, Clock::time_point end) {
    constexpr std::string_view kBody =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
        "<key>MessageType</key><string>ListDevices</string></dict></plist>\n";
    constexpr uint32_t kListVersion = 1;
    constexpr uint32_t kListMessage = 8;
    const std::array header{htole32(static_cast<uint32_t>(4 * sizeof(uint32_t) + kBody.size())),
                            htole32(kListVersion), htole32(kListMessage), htole32(1)};
    std::string message(reinterpret_cast<const char*>(header.data()), sizeof header);
    message += kBody;
    if (::send(descriptor, message.data(), message.size(), MSG_NOSIGNAL) < 0) {
        return errno;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    pollfd entry{descriptor, POLLIN, 0};
    if (::poll(&entry, 1, static_cast<int>(std::max<decltype(left)>(left, 0))) <= 0) {
        return ETIMEDOUT;
    }
    char first = 0;
    const ssize_t got = ::recv(descriptor, &first, 1, 0);
    return got > 0 ? 0 : got == 0 ? ECONNRESET : errno;
}

int connectError(const std::vector<SocketAddress>& addresses) {
    if (addresses.empty()) {
        return ENAMETOOLONG;
    }
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor < 0) {
        return errno;
    }
    const Clock::time_point end = Clock::now() + kLongest;
    int error = connectUntil(descriptor, addresses.front(), end);
    if (error == 0) {
        error = askUntil(descriptor, end);
    }
    ::close(descriptor);
    return error;
}

} // namespace

MuxSocket tryMuxSocket() {
    const std::string setting = muxSetting();
    const std::string path = muxSocketPath(setting);
    if (path.empty()) {
        return {MuxSocket::State::NotTried, setting, ""};
    }
    const int error = connectError(muxAddresses(setting));
    return {stateOf(error), path, error == 0 ? "" : std::strerror(error)};
}

} // namespace krl::engine
