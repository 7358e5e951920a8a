#include "engine/values/Cf.h"

#include "engine/values/Text.h"

namespace vesk::cf {

CFRef<CFStringRef> string(std::string_view utf8) {
    return adopt(CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(utf8.data()),
                                         static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8,
                                         /*isExternalRepresentation=*/false));
}

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

CFRef<CFMutableDictionaryRef> dictionary() {
    return adopt(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                           &kCFTypeDictionaryValueCallBacks));
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

std::vector<std::pair<CFTypeRef, CFTypeRef>> pairs(CFDictionaryRef dictionary) {
    const auto count =
        dictionary == nullptr ? size_t{0} : static_cast<size_t>(CFDictionaryGetCount(dictionary));
    std::vector<CFTypeRef> keys(count);
    std::vector<CFTypeRef> values(count);
    if (count > 0) {
        CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
    }
    std::vector<std::pair<CFTypeRef, CFTypeRef>> result;
    result.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        result.emplace_back(keys[i], values[i]);
    }
    return result;
}

} // namespace vesk::cf
