/// CoreFoundation values in short, for tests.
#pragma once

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace krl::test {

inline cf::CFRef<CFStringRef> str(std::string_view utf8) {
    return cf::adopt(
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(utf8.data()),
                                static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8,
                                /*isExternalRepresentation=*/false));
}

/// "(null)" for null, "(other)" for what is no string.
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

inline std::vector<std::string> texts(CFArrayRef array) {
    std::vector<std::string> all;
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
        all.push_back(text(CFArrayGetValueAtIndex(array, i)));
    }
    return all;
}

inline std::vector<std::string> keys(CFDictionaryRef dictionary) {
    std::vector<const void*> names(static_cast<size_t>(CFDictionaryGetCount(dictionary)));
    CFDictionaryGetKeysAndValues(dictionary, names.data(), nullptr);
    std::vector<std::string> all;
    for (const void* name : names) {
        all.push_back(text(name));
    }
    return all;
}

inline cf::CFRef<CFNumberRef> number(int64_t value) {
    return cf::adopt(CFNumberCreate(nullptr, kCFNumberSInt64Type, &value));
}

inline cf::CFRef<CFMutableDictionaryRef> dictionary() {
    return cf::adopt(CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

/// Error objects as text: domain, code, user information.
inline std::string errorText(CFErrorRef error) {
    if (error == nullptr) {
        return "(none)";
    }
    const auto info = cf::adopt(CFErrorCopyUserInfo(error));
    int line = -1;
    CFNumberGetValue(static_cast<CFNumberRef>(CFDictionaryGetValue(info.get(), CFSTR("line"))),
                     kCFNumberIntType, &line);
    return text(CFErrorGetDomain(error)) + " " + std::to_string(CFErrorGetCode(error)) + " " +
           text(CFDictionaryGetValue(info.get(), CFSTR("file"))) + ":" + std::to_string(line);
}

} // namespace krl::test
