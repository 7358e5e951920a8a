/// A length, big-endian, and a property list: how lockdown and the notification proxy talk.
#pragma once

#include "virtualphone/wire/Channel.h"
#include "virtualphone/wire/Packet.h"
#include "virtualphone/wire/PropertyList.h"

#include <cstddef>

namespace virtualphone {

/// Longest list that is read. Requests are a few hundred bytes, pair records about 10,000.
inline constexpr size_t kLongestList = size_t{64} * 1024;

/// The next dictionary; null when the connection has ended or brings something else.
Plist receiveDictionary(Channel& channel);

Packet framed(const Plist& list, bool asBinary);

} // namespace virtualphone
