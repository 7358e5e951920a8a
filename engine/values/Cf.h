#pragma once

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vesk::cf {

using krl::cf::adopt;
using krl::cf::cast;
using krl::cf::CFRef;
using krl::cf::retain;

/// A string; null when the bytes are no UTF-8.
CFRef<CFStringRef> string(std::string_view utf8);

/// UTF-8 of a string, with U+FFFD for what is no character; empty for null.
std::string text(CFStringRef string);

/// A number object.
CFRef<CFNumberRef> number(int64_t value);

/// An empty dictionary that retains its keys and values.
CFRef<CFMutableDictionaryRef> dictionary();

/// The string under a key; empty when there is none or it is something else.
std::string textAt(CFDictionaryRef dictionary, CFStringRef key);

/// The whole number under a key.
std::optional<int64_t> numberAt(CFDictionaryRef dictionary, CFStringRef key);

/// The dictionary under a key, lent; null when there is none or it is something else.
CFDictionaryRef dictionaryAt(CFDictionaryRef dictionary, CFStringRef key);

/// Keys and values in the dictionary's order, lent by it.
std::vector<std::pair<CFTypeRef, CFTypeRef>> pairs(CFDictionaryRef dictionary);

} // namespace vesk::cf
