/**
 * @file
 * Texts of CoreFoundation from and to UTF-8. For C++ only; all of it is in this header.
 */
#ifndef COREFOUNDATION_CFTEXT_H
#define COREFOUNDATION_CFTEXT_H

#include <CoreFoundation/CFRef.h>
#include <optional>
#include <string>
#include <string_view>

namespace krl::cf {

/** @return null when the bytes are no UTF-8. */
inline CFRef<CFStringRef> stringOf(std::string_view utf8) {
    return adopt(CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(utf8.data()),
                                         static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8,
                                         /*isExternalRepresentation=*/false));
}

/** A text in UTF-8, which may be handed on as a zero-terminated one.
 *  @param text  may be null.
 *  @return nothing for null, for an object that is no string, for lone surrogates, and for a text
 *          with a zero inside. */
inline std::optional<std::string> utf8(CFStringRef text) {
    text = cast<CFStringRef>(text);
    if (text == nullptr) {
        return std::nullopt;
    }
    const CFIndex length = CFStringGetLength(text);
    const CFIndex room = CFStringGetMaximumSizeForEncoding(length, kCFStringEncodingUTF8);
    std::string bytes(static_cast<size_t>(room), '\0');
    CFIndex used = 0;
    const CFIndex converted =
        CFStringGetBytes(text, CFRangeMake(0, length), kCFStringEncodingUTF8, 0, false,
                         reinterpret_cast<UInt8*>(bytes.data()), room, &used);
    bytes.resize(static_cast<size_t>(used));
    if (converted != length || bytes.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    return bytes;
}

} // namespace krl::cf

#endif
