/// CoreFoundation values in short, for tests.
#pragma once

#include "tests/support/Texts.h"

#include <CoreFoundation/CFValues.h>
#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace krl::test {

inline cf::CFRef<CFStringRef> str(std::string_view utf8) {
    return cf::stringOf(utf8);
}

inline std::vector<std::string> texts(CFArrayRef array) {
    std::vector<std::string> all;
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
        all.push_back(text(CFArrayGetValueAtIndex(array, i)));
    }
    return all;
}

inline std::vector<std::string> keys(CFDictionaryRef dictionary) {
    std::vector<std::string> all;
    for (const cf::Pair& pair : cf::pairsOf(dictionary)) {
        all.push_back(text(pair.key));
    }
    return all;
}

inline cf::CFRef<CFNumberRef> number(int64_t value) {
    return cf::adopt(CFNumberCreate(nullptr, kCFNumberSInt64Type, &value));
}

inline cf::CFRef<CFMutableDictionaryRef> dictionary() {
    return cf::makeDictionary();
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
