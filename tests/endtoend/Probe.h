/// The phone of a program that a test starts beside one.
#pragma once

#include <KRLVesk/KRLVesk.h>

namespace krl::test {

inline KRTPhoneRef arrivedPhone = nullptr;

/// Waits for a phone, half a minute at most.
/// @return null when none has come
inline KRTPhoneRef awaitPhone() {
    KRTPhoneManagerInit();
    KRTPhoneManagerAddDelegate(
        nullptr, [](void*, KRTPhoneRef phone) { arrivedPhone = phone; }, [](void*, KRTPhoneRef) {});
    for (int i = 0; arrivedPhone == nullptr && i < 300; ++i) {
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.1, true);
    }
    return arrivedPhone;
}

} // namespace krl::test
