#include "library/objects/WorkingList.h"

#include <KRLVesk/KRTRingtoneManager.h>

namespace krl::ringtones {

List makeList() {
    constexpr CFIndex kCapacity = 1;
    return cf::adopt(CFDictionaryCreateMutable(nullptr, kCapacity, &kCFTypeDictionaryKeyCallBacks,
                                               &kCFTypeDictionaryValueCallBacks));
}

List copyOf(const List& list) {
    return list ? cf::adopt(CFDictionaryCreateMutableCopy(nullptr, 0, list.get())) : List();
}

CFIndex countOf(const List& list) {
    return list ? CFDictionaryGetCount(list.get()) : 0;
}

bool has(const List& list, CFTypeRef name) {
    return list && name != nullptr && CFDictionaryContainsKey(list.get(), name);
}

Record recordIn(const List& list, CFTypeRef name) {
    return has(list, name) ? recordOf(CFDictionaryGetValue(list.get(), name)) : nullptr;
}

void putInto(const List& list, CFTypeRef name, CFTypeRef record) {
    if (list && name != nullptr && record != nullptr) {
        CFDictionarySetValue(list.get(), name, record);
    }
}

void removeFrom(const List& list, CFTypeRef name) {
    if (list && name != nullptr) {
        CFDictionaryRemoveValue(list.get(), name);
    }
}

void removeAllFrom(const List& list) {
    if (list) {
        CFDictionaryRemoveAllValues(list.get());
    }
}

Record recordOf(CFTypeRef value) {
    return const_cast<Record>(cf::cast<CFDictionaryRef>(value));
}

CFTypeRef valueOf(CFDictionaryRef record, CFStringRef key) {
    return record == nullptr ? nullptr : CFDictionaryGetValue(record, key);
}

CFTypeRef nameOf(CFDictionaryRef record) {
    return valueOf(record, KRTRingtoneName);
}

} // namespace krl::ringtones
