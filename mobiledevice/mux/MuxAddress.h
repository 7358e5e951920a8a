// Where the mux daemon listens, by the rules of libusbmuxd, through which everything else reaches
// it.
#pragma once

#include <sys/socket.h>

#include <string>
#include <vector>

namespace krl::provider {

struct SocketAddress {
    sockaddr_storage storage{};
    socklen_t size = 0;
};

/// What the environment says about the daemon; empty if nothing.
std::string muxSetting();

/// "UNIX:path" or "host:port", an IPv6 address in brackets; anything else means the usual socket.
/// None for a path that no socket can have, or a host that is not found: looking for one takes its
/// time.
std::vector<SocketAddress> muxAddresses(const std::string& setting);

} // namespace krl::provider
