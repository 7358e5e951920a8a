// Strings of CoreFoundation as tests compare them.
#pragma once

#include <CoreFoundation/CFText.h>
#include <CoreFoundation/CoreFoundation.h>

#include <string>

namespace krl::test {

/// UTF-8 of a string, with "?" for what has none. "(null)" for null, "(other)" for what is no
/// string.
inline std::string text(CFTypeRef object) {
    if (object == nullptr) {
        return "(null)";
    }
    const auto string = cf::cast<CFStringRef>(object);
    if (string == nullptr) {
        return "(other)";
    }
    const CFRange all = CFRangeMake(0, CFStringGetLength(string));
    CFIndex size = 0;
    CFStringGetBytes(string, all, kCFStringEncodingUTF8, '?', false, nullptr, 0, &size);
    std::string bytes(static_cast<size_t>(size), '\0');
    CFStringGetBytes(string, all, kCFStringEncodingUTF8, '?', false,
                     reinterpret_cast<UInt8*>(bytes.data()), size, nullptr);
    return bytes;
}

} // namespace krl::test
