/**
 * @file
 * Dictionaries and URLs of CoreFoundation in a line. For C++ only; all of it is in this header.
 */
#ifndef COREFOUNDATION_CFVALUES_H
#define COREFOUNDATION_CFVALUES_H

#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CFURL.h>
#include <cstddef>
#include <vector>

namespace krl::cf {

/** A key and its value. */
struct Pair {
    CFTypeRef key;   /**< null likewise */
    CFTypeRef value; /**< null only where the dictionary's callbacks let one in */
};

/** Keys and values in the dictionary's own order, lent by it.
 *  @param dictionary  null is an empty one. */
inline std::vector<Pair> pairsOf(CFDictionaryRef dictionary) {
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

/** An empty dictionary that retains its keys and values. */
inline CFRef<CFMutableDictionaryRef> makeDictionary() {
    return adopt(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                           &kCFTypeDictionaryValueCallBacks));
}

/** The URL of a file, which need not be there.
 *  @param path  may be null.
 *  @return null for null and for what CFURLCreateWithFileSystemPath has no URL for. */
inline CFRef<CFURLRef> fileURL(CFStringRef path) {
    constexpr Boolean kIsDirectory = false;
    return path == nullptr ? CFRef<CFURLRef>()
                           : adopt(CFURLCreateWithFileSystemPath(
                                 nullptr, path, kCFURLPOSIXPathStyle, kIsDirectory));
}

} // namespace krl::cf

#endif
