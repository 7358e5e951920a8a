#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <string>

namespace krl::engine {

/// A status of the device layer in words: of the phone's gate keeper (pairing, sessions, services),
/// of its file service, or of the provider itself.
std::string statusText(int32_t status);

/// Why the library's last call failed, from its error record, in words.
std::string lastFailureText();

/// The same from an error object of the library.
std::string failureText(CFErrorRef error);

} // namespace krl::engine
