#include "tests/library/phone/StoreStandIn.h"

#include "library/phone/KRTPhoneInternal.h"

#include <KRLVesk/KRTRingtoneManager.h>

struct __KRTRingtoneManager {
    KRTPhoneRef phone;
};

int StoreStandIn::made = 0;
std::function<void(KRTPhoneRef)> StoreStandIn::onRelease;

void StoreStandIn::reset() {
    made = 0;
    onRelease = nullptr;
}

KRTRingtoneManagerRef KRTRingtoneManagerForPhone(KRTPhoneRef phone) {
    ++StoreStandIn::made;
    return new __KRTRingtoneManager{phone};
}

void KRTRingtoneManagerRelease(KRTRingtoneManagerRef manager) {
    if (StoreStandIn::onRelease) {
        StoreStandIn::onRelease(manager->phone);
    }
    manager->phone->ringtoneManager = nullptr;
    delete manager;
}
