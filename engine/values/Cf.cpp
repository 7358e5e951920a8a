#include "engine/values/Cf.h"

#include "engine/values/Text.h"

namespace krl::engine::cf {

std::string text(CFStringRef string) {
    if (string == nullptr) {
        return {};
    }
    const CFIndex length = CFStringGetLength(string);
    std::vector<UniChar> units(static_cast<size_t>(length));
    if (length > 0) {
        CFStringGetCharacters(string, CFRangeMake(0, length), units.data());
    }
    std::u32string characters;
    for (size_t i = 0; i < units.size(); ++i) {
        const char32_t unit = units[i];
        const bool leads = unit >= 0xD800 && unit <= 0xDBFF && i + 1 < units.size();
        const char32_t next = leads ? units[i + 1] : 0;
        if (next >= 0xDC00 && next <= 0xDFFF) {
            characters += 0x10000 + ((unit - 0xD800) << 10U) + (next - 0xDC00);
            ++i;
        } else {
            characters += unit;
        }
    }
    return utf8(characters);
}

CFRef<CFNumberRef> number(int64_t value) {
    return adopt(CFNumberCreate(nullptr, kCFNumberSInt64Type, &value));
}

std::string textAt(CFDictionaryRef dictionary, CFStringRef key) {
    return dictionary == nullptr ? std::string{}
                                 : text(cast<CFStringRef>(CFDictionaryGetValue(dictionary, key)));
}

std::optional<int64_t> numberAt(CFDictionaryRef dictionary, CFStringRef key) {
    const auto number =
        dictionary == nullptr ? nullptr : cast<CFNumberRef>(CFDictionaryGetValue(dictionary, key));
    int64_t value = 0;
    if (number == nullptr || !CFNumberGetValue(number, kCFNumberSInt64Type, &value)) {
        return std::nullopt;
    }
    return value;
}

CFDictionaryRef dictionaryAt(CFDictionaryRef dictionary, CFStringRef key) {
    return dictionary == nullptr ? nullptr
                                 : cast<CFDictionaryRef>(CFDictionaryGetValue(dictionary, key));
}

} // namespace krl::engine::cf
