#pragma once

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CFText.h>
#include <CoreFoundation/CFValues.h>
#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace krl::engine::cf {

using krl::cf::adopt;
using krl::cf::cast;
using krl::cf::CFRef;
using krl::cf::retain;

/// A string; null when the bytes are no UTF-8.
inline CFRef<CFStringRef> string(std::string_view utf8) {
    return krl::cf::stringOf(utf8);
}

/// UTF-8 of a string, with U+FFFD for what is no character; empty for null.
std::string text(CFStringRef string);

/// A number object.
CFRef<CFNumberRef> number(int64_t value);

/// An empty dictionary that retains its keys and values.
inline CFRef<CFMutableDictionaryRef> dictionary() {
    return krl::cf::makeDictionary();
}

/// The string under a key; empty when there is none or it is something else.
std::string textAt(CFDictionaryRef dictionary, CFStringRef key);

/// The whole number under a key.
std::optional<int64_t> numberAt(CFDictionaryRef dictionary, CFStringRef key);

/// The dictionary under a key, lent; null when there is none or it is something else.
CFDictionaryRef dictionaryAt(CFDictionaryRef dictionary, CFStringRef key);

/// Keys and values in the dictionary's order, lent by it.
inline std::vector<krl::cf::Pair> pairs(CFDictionaryRef dictionary) {
    return krl::cf::pairsOf(dictionary);
}

} // namespace krl::engine::cf
