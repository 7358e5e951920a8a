// What is asked of the mux daemon; each question is a connection of its own. Answers that do not
// come are given up after libusbmuxd's own 5 seconds.
#pragma once

#include "mobiledevice/provider/wire/UniqueDescriptor.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace krl::provider::mux {

/// A tunnel to a port of a phone; empty when the daemon, the phone or the port is not there.
UniqueDescriptor connect(uint32_t muxId, uint16_t port);

/// The contents of the pair record that this computer holds for a phone, if it holds one.
std::optional<std::vector<std::byte>> readPairRecord(const std::string& udid);

/// Has the daemon keep a pair record for the phone at this place, or forget the one it keeps.
bool savePairRecord(uint32_t muxId, const std::string& udid, const std::string& contents);
bool deletePairRecord(const std::string& udid);

/// This computer's own identity towards phones.
std::optional<std::string> readSystemBuid();

} // namespace krl::provider::mux
