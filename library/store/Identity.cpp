// Which ringtone is which: by GUID, by name, and by the base name of its file on the phone.
#include "library/store/KRTRingtoneManagerInternal.h"

#include "library/store/Dictionaries.h"

#include <cstdlib>

using krl::cf::adopt;
using krl::cf::cast;
using krl::ringtones::Pair;
using krl::ringtones::pairsOf;

namespace {

// Neither of the two reports anything: that memory runs out is thrown, to a caller in C the end.

CFDictionaryRef findTone(CFDictionaryRef list, CFStringRef guid) {
    for (const Pair& pair : pairsOf(list)) {
        const auto tone = cast<CFDictionaryRef>(pair.value);
        if (tone != nullptr && guid != nullptr &&
            CFEqual(CFDictionaryGetValue(tone, KRTFileKey), guid)) {
            return tone;
        }
    }
    return nullptr;
}

CFMutableArrayRef copyKeys(CFDictionaryRef dictionary) {
    const std::vector<Pair> pairs = pairsOf(dictionary);
    auto keys = adopt(
        CFArrayCreateMutable(nullptr, static_cast<CFIndex>(pairs.size()), &kCFTypeArrayCallBacks));
    for (const Pair& pair : pairs) {
        const auto key = cast<CFStringRef>(pair.key);
        if (key != nullptr) {
            CFArrayAppendValue(keys.get(), adopt(CFStringCreateCopy(nullptr, key)).get());
        }
    }
    return keys.leak();
}

} // namespace

CFDictionaryRef KRTRingtoneManagerFindToneForGUID(CFDictionaryRef list, CFStringRef guid) {
    return findTone(list, guid);
}

CFMutableArrayRef CFGetAllKeys(CFDictionaryRef dictionary) {
    return copyKeys(dictionary);
}

CFStringRef KRTRingtoneManagerGenerateHash(void) {
    constexpr long kLetters = 18;
    UInt8 letters[4];
    for (UInt8& letter : letters) {
        letter = static_cast<UInt8>('A' + random() % kLetters);
    }
    return CFStringCreateWithBytes(nullptr, letters, sizeof letters, kCFStringEncodingUTF8, false);
}
