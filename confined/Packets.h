// What a program and a confined process of its own say to each other: packets of text with open
// files beside it, over a socket of type SOCK_SEQPACKET.
#pragma once

#include "confined/OpenFile.h"

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace krl::confined {

/// Open files that a packet may carry.
inline constexpr size_t kMostFiles = 2;

struct Packet {
    std::string text;
    std::vector<OpenFile> files;
};

/// @param files lent, two at most
/// @return whether it was sent; not when nobody is there to read it
bool sendPacket(int socket, std::string_view text, std::span<const int> files = {});

/// Waits for a packet; none when the other side has ended. A longer text is cut off.
std::optional<Packet> receivePacket(int socket, size_t longestText);

/// Whether a descriptor is such a socket.
bool isPacketSocket(int descriptor);

} // namespace krl::confined
