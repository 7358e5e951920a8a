/// UTF-8 to and from UTF-16, strictly. Internal.
#pragma once

#include <CoreFoundation/CFBase.h>

namespace krl::cf {

constexpr bool isHighSurrogate(UniChar unit) {
    return (unit & 0xFC00) == 0xD800;
}

constexpr bool isLowSurrogate(UniChar unit) {
    return (unit & 0xFC00) == 0xDC00;
}

constexpr bool isSurrogate(UniChar unit) {
    return (unit & 0xF800) == 0xD800;
}

constexpr UTF32Char joinSurrogates(UniChar high, UniChar low) {
    return 0x10000 + ((static_cast<UTF32Char>(high) & 0x3FF) << 10) + (low & 0x3FFU);
}

/// Writes a code point as one or two units. @return how many.
inline CFIndex encodeUtf16(UTF32Char codePoint, UniChar* units) {
    if (codePoint < 0x10000) {
        units[0] = static_cast<UniChar>(codePoint);
        return 1;
    }
    units[0] = static_cast<UniChar>(0xD7C0 + (codePoint >> 10));
    units[1] = static_cast<UniChar>(0xDC00 + (codePoint & 0x3FF));
    return 2;
}

/// Writes a code point, which is no surrogate, as one to four bytes. @return how many.
CFIndex encodeUtf8(UTF32Char codePoint, UInt8* bytes);

/// How many leading bytes are ASCII.
CFIndex countAscii(const UInt8* bytes, CFIndex size);

/// The UTF-16 length of a text, or kCFNotFound when it is not valid: overlong forms, surrogates,
/// cut sequences and values above U+10FFFF are not.
CFIndex utf16LengthOfUtf8(const UInt8* bytes, CFIndex size);

/// Converts a valid text.
void convertUtf8ToUtf16(const UInt8* bytes, CFIndex size, UniChar* units);

} // namespace krl::cf
