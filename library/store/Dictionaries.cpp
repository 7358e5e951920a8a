#include "library/store/Dictionaries.h"

#include <cstddef>

namespace krl::ringtones {

std::vector<Pair> pairsOf(CFDictionaryRef dictionary) {
    if (dictionary == nullptr) {
        return {};
    }
    const auto count = static_cast<size_t>(CFDictionaryGetCount(dictionary));
    std::vector<CFTypeRef> keys(count);
    std::vector<CFTypeRef> values(count);
    CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());

    std::vector<Pair> pairs;
    pairs.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        pairs.push_back({keys[i], values[i]});
    }
    return pairs;
}

cf::CFRef<CFMutableDictionaryRef> makeDictionary() {
    return cf::adopt(CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

cf::CFRef<CFTypeRef> take(CFMutableDictionaryRef dictionary, CFTypeRef key) {
    auto value = cf::retain(CFDictionaryGetValue(dictionary, key));
    CFDictionaryRemoveValue(dictionary, key);
    return value;
}

} // namespace krl::ringtones
