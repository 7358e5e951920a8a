// Where the mux daemon listens, by the rules that all its clients follow: the provider, and who says
// why it reaches nobody.
#pragma once

#include <sys/socket.h>

#include <string>
#include <vector>

namespace krl {

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

/// The path of the daemon's socket; empty for an address on the network.
std::string muxSocketPath(const std::string& setting);

} // namespace krl
