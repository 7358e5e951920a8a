#pragma once

#include <cstdint>
#include <string>

namespace vesk {

/// A status of the device layer in words: of the phone's gate keeper (pairing, sessions, services),
/// of its file service, or of the provider itself.
std::string statusText(int32_t status);

/// Why the library's last call failed, from its error record, in words.
std::string lastFailureText();

} // namespace vesk
