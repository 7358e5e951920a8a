#include "library/store/Dictionaries.h"

namespace krl::ringtones {

cf::CFRef<CFTypeRef> take(CFMutableDictionaryRef dictionary, CFTypeRef key) {
    auto value = cf::retain(CFDictionaryGetValue(dictionary, key));
    CFDictionaryRemoveValue(dictionary, key);
    return value;
}

} // namespace krl::ringtones
