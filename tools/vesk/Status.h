#pragma once

#include <cstdint>
#include <string>

namespace vesk {

/// A status of the device layer (connection, pairing, session, service) in words.
std::string deviceStatusText(int32_t status);

/// A status of the phone's file service in words.
std::string fileStatusText(int32_t status);

/// Why the library's last call failed, from its error record, in words.
std::string lastFailureText();

} // namespace vesk
