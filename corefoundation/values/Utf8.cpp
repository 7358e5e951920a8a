#include "corefoundation/values/Utf8.h"

#include <cstring>

namespace krl::cf {
namespace {

constexpr UTF32Char kInvalid = 0xFFFFFFFF;

bool isContinuation(UInt8 byte) {
    return (byte & 0xC0) == 0x80;
}

/// The number of bytes that a first byte announces, 0 when it can be none.
CFIndex sequenceLength(UInt8 first) {
    if (first < 0x80) {
        return 1;
    }
    if (first < 0xC2) { // a continuation byte, or an overlong form of ASCII
        return 0;
    }
    if (first < 0xE0) {
        return 2;
    }
    if (first < 0xF0) {
        return 3;
    }
    return first < 0xF5 ? 4 : 0;
}

/// Reads the code point at the start and tells its length.
UTF32Char decode(const UInt8* bytes, CFIndex size, CFIndex& length) {
    length = sequenceLength(bytes[0]);
    if (length == 0 || length > size) {
        return kInvalid;
    }
    if (length == 1) {
        return bytes[0];
    }
    UTF32Char codePoint = bytes[0] & (0x7FU >> length);
    for (CFIndex i = 1; i < length; ++i) {
        if (!isContinuation(bytes[i])) {
            return kInvalid;
        }
        codePoint = codePoint << 6 | (bytes[i] & 0x3FU);
    }
    const bool overlong =
        (length == 3 && codePoint < 0x800) || (length == 4 && codePoint < 0x10000);
    const bool surrogate = codePoint >= 0xD800 && codePoint < 0xE000;
    return overlong || surrogate || codePoint > 0x10FFFF ? kInvalid : codePoint;
}

} // namespace

CFIndex encodeUtf8(UTF32Char codePoint, UInt8* bytes) {
    if (codePoint < 0x80) {
        bytes[0] = static_cast<UInt8>(codePoint);
        return 1;
    }
    const auto tail = [codePoint](int shift) {
        return static_cast<UInt8>(0x80 | ((codePoint >> shift) & 0x3F));
    };
    if (codePoint < 0x800) {
        bytes[0] = static_cast<UInt8>(0xC0 | codePoint >> 6);
        bytes[1] = tail(0);
        return 2;
    }
    if (codePoint < 0x10000) {
        bytes[0] = static_cast<UInt8>(0xE0 | codePoint >> 12);
        bytes[1] = tail(6);
        bytes[2] = tail(0);
        return 3;
    }
    bytes[0] = static_cast<UInt8>(0xF0 | codePoint >> 18);
    bytes[1] = tail(12);
    bytes[2] = tail(6);
    bytes[3] = tail(0);
    return 4;
}

CFIndex countAscii(const UInt8* bytes, CFIndex size) {
    CFIndex count = 0;
    while (count + 8 <= size) {
        uint64_t eight = 0;
        std::memcpy(&eight, bytes + count, sizeof eight);
        if ((eight & 0x8080808080808080) != 0) {
            break;
        }
        count += 8;
    }
    while (count < size && bytes[count] < 0x80) {
        ++count;
    }
    return count;
}

CFIndex utf16LengthOfUtf8(const UInt8* bytes, CFIndex size) {
    CFIndex units = countAscii(bytes, size);
    for (CFIndex at = units; at < size;) {
        CFIndex length = 0;
        const UTF32Char codePoint = decode(bytes + at, size - at, length);
        if (codePoint == kInvalid) {
            return kCFNotFound;
        }
        units += codePoint < 0x10000 ? 1 : 2;
        at += length;
    }
    return units;
}

void convertUtf8ToUtf16(const UInt8* bytes, CFIndex size, UniChar* units) {
    for (CFIndex at = 0; at < size;) {
        CFIndex length = 0;
        units += encodeUtf16(decode(bytes + at, size - at, length), units);
        at += length;
    }
}

} // namespace krl::cf
