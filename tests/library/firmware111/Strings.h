#pragma once

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>

#include <string>
#include <string_view>

namespace krl::test {

inline cf::CFRef<CFStringRef> cfString(std::string_view utf8) {
    return cf::adopt(CFStringCreateWithBytes(
        nullptr, reinterpret_cast<const UInt8*>(utf8.data()), static_cast<CFIndex>(utf8.size()),
        kCFStringEncodingUTF8, /*isExternalRepresentation=*/false));
}

inline std::u16string unitsOf(CFStringRef string) {
    std::u16string units(static_cast<size_t>(CFStringGetLength(string)), u'\0');
    CFStringGetCharacters(string, CFRangeMake(0, CFStringGetLength(string)),
                          reinterpret_cast<UniChar*>(units.data()));
    return units;
}

inline std::string utf8Of(CFStringRef string) {
    const CFRange all = CFRangeMake(0, CFStringGetLength(string));
    CFIndex size = 0;
    CFStringGetBytes(string, all, kCFStringEncodingUTF8, '?', false, nullptr, 0, &size);
    std::string bytes(static_cast<size_t>(size), '\0');
    CFStringGetBytes(string, all, kCFStringEncodingUTF8, '?', false,
                     reinterpret_cast<UInt8*>(bytes.data()), size, nullptr);
    return bytes;
}

} // namespace krl::test
