#include "engine/diagnosis/MuxSocket.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace vesk {
namespace {

constexpr const char* kVariable = "USBMUXD_SOCKET_ADDRESS";
constexpr const char* kUnixPrefix = "UNIX:";
constexpr const char* kUsualPath = "/var/run/usbmuxd";

MuxSocket::State stateOf(int error) {
    switch (error) {
    case 0:
        return MuxSocket::State::Answers;
    case ENOENT:
    case ENOTDIR:
        return MuxSocket::State::Absent;
    case ECONNREFUSED:
        return MuxSocket::State::Deserted;
    case EACCES:
    case EPERM:
        return MuxSocket::State::Forbidden;
    default:
        return MuxSocket::State::Broken;
    }
}

int connectError(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return ENAMETOOLONG;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        return errno;
    }
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    const int error = ::connect(descriptor, generic, sizeof address) == 0 ? 0 : errno;
    ::close(descriptor);
    return error;
}

} // namespace

MuxSocket tryMuxSocket() {
    const char* variable = std::getenv(kVariable);
    const std::string setting = variable == nullptr ? "" : variable;
    if (!setting.empty() && !setting.starts_with(kUnixPrefix)) {
        return {MuxSocket::State::NotTried, setting, ""};
    }
    const std::string path =
        setting.empty() ? kUsualPath : setting.substr(std::strlen(kUnixPrefix));
    const int error = connectError(path);
    return {stateOf(error), path, error == 0 ? "" : std::strerror(error)};
}

} // namespace vesk
