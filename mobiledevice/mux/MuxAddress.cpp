#include "mobiledevice/mux/MuxAddress.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/un.h>

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>

namespace krl {

namespace {

constexpr const char* kVariable = "USBMUXD_SOCKET_ADDRESS";
constexpr std::string_view kUnixPrefix = "UNIX:";
constexpr std::string_view kUsualPath = "/var/run/usbmuxd";

struct HostAndPort {
    std::string host;
    std::string port;
};

std::optional<HostAndPort> hostAndPort(std::string_view setting) {
    const size_t colon = setting.rfind(':');
    if (colon == std::string_view::npos || colon == 0) {
        return std::nullopt;
    }
    std::string_view host = setting.substr(0, colon);
    const std::string_view port = setting.substr(colon + 1);
    uint16_t number = 0;
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), number);
    if (error != std::errc() || end != port.data() + port.size() || number == 0) {
        return std::nullopt;
    }
    if (host.starts_with('[') && host.ends_with(']')) {
        host = host.substr(1, host.size() - 2);
    }
    return HostAndPort{std::string(host), std::string(port)};
}

std::optional<HostAndPort> networkPlace(std::string_view setting) {
    return setting.starts_with(kUnixPrefix) ? std::nullopt : hostAndPort(setting);
}

std::vector<SocketAddress> unixAddress(std::string_view path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return {};
    }
    path.copy(address.sun_path, path.size());
    SocketAddress result;
    result.size = sizeof address;
    std::memcpy(&result.storage, &address, sizeof address);
    return {result};
}

std::vector<SocketAddress> networkAddresses(const HostAndPort& place) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(place.host.c_str(), place.port.c_str(), &hints, &found) != 0) {
        return {};
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owned(found, &::freeaddrinfo);
    std::vector<SocketAddress> addresses;
    for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
        SocketAddress& address = addresses.emplace_back();
        address.size = entry->ai_addrlen;
        std::memcpy(&address.storage, entry->ai_addr, entry->ai_addrlen);
    }
    return addresses;
}

} // namespace

std::string muxSetting() {
    const char* value = std::getenv(kVariable);
    return value == nullptr ? "" : value;
}

std::vector<SocketAddress> muxAddresses(const std::string& setting) {
    const auto place = networkPlace(setting);
    return place ? networkAddresses(*place) : unixAddress(muxSocketPath(setting));
}

std::string muxSocketPath(const std::string& setting) {
    if (networkPlace(setting)) {
        return "";
    }
    const std::string_view text = setting;
    const bool namesPath = text.starts_with(kUnixPrefix) && text.size() > kUnixPrefix.size();
    return std::string(namesPath ? text.substr(kUnixPrefix.size()) : kUsualPath);
}

} // namespace krl
