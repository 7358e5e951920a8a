/// Bytes as text in base64. Internal.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <span>
#include <string>
#include <string_view>

namespace krl::cf {

/// Appends the text of some bytes, padded to whole groups of four characters.
void appendBase64(std::string& text, std::span<const UInt8> bytes);

/// Reads leniently: characters outside the alphabet are passed over, a padding character anywhere
/// counts as a zero, and an incomplete group at the end gives nothing.
std::string decodeBase64(std::string_view text);

/// Whether a text is what every reader takes for the same bytes: the alphabet, white space, and
/// only at the end at most two padding characters that complete the last group.
bool isPlainBase64(std::string_view text);

} // namespace krl::cf
