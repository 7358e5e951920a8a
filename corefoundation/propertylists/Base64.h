/// Bytes as text in base64. Internal.
#pragma once

#include "corefoundation/values/ByteBuffer.h"

#include <span>
#include <string_view>

namespace krl::cf {

/// Appends the text of some bytes, padded to whole groups of four characters.
void appendBase64(ByteBuffer& text, std::span<const UInt8> bytes);

/// Appends the bytes of a text. It is read leniently: characters outside the alphabet are passed
/// over, a padding character anywhere counts as a zero, and an incomplete group at the end gives
/// nothing.
void appendDecodedBase64(ByteBuffer& bytes, std::string_view text);

} // namespace krl::cf
