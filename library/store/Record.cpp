// The store record and the words of its interface.
#include "library/store/KRTRingtoneManagerInternal.h"

#include "library/phone/KRTPhoneInternal.h"

#include <cstdlib>

const CFStringRef KRTRingtoneName = CFSTR("Name");
const CFStringRef KRTFileKey = CFSTR("GUID");
const CFStringRef KRTFileName = CFSTR("FileName");
const CFStringRef KRTFileSize = CFSTR("FileSize");
const CFStringRef KRTLocalPath = CFSTR("LocalPath");
const CFStringRef KRTRemotePath = CFSTR("RemotePath");
const CFStringRef KRTTrackPersistantID = CFSTR("TrackID");
const CFStringRef KRTPlaylist = CFSTR("Playlist");

const CFStringRef KRTRingtonesPath = CFSTR("/iTunes_Control/Ringtones");
const CFStringRef KRTRingtonePath = CFSTR("/iTunes_Control/iTunes/Ringtones.plist");
const CFStringRef KRTRingtoneKeyName = CFSTR("Ringtones");

KRTRingtoneManagerRef KRTRingtoneManagerForPhone(KRTPhoneRef phone) {
    auto* manager = static_cast<KRTRingtoneManagerRef>(std::malloc(sizeof(__KRTRingtoneManager)));
    if (manager == nullptr) {
        return nullptr;
    }
    *manager = {phone, nullptr, nullptr};
    return manager;
}

KRTRingtoneManagerRef KRTPhoneGetRingtoneManager(KRTPhoneRef phone) {
    if (phone->ringtoneManager == nullptr) {
        phone->ringtoneManager = KRTRingtoneManagerForPhone(phone);
        phone->lifetime.storeRelease = KRTRingtoneManagerRelease;
    }
    return phone->ringtoneManager;
}

void KRTRingtoneManagerRelease(KRTRingtoneManagerRef manager) {
    // Contract: the phone forgets its store record whether or not it is this one, so that it makes
    // a new one when it is asked the next time.
    // [StoreRecord.ReleaseClearsThePhonesReferenceEvenWhenItIsADifferentRecord]
    manager->phone->ringtoneManager = nullptr;
    std::free(manager);
}

void KRTRingtoneManagerSetStatusResponder(KRTRingtoneManagerRef manager,
                                          KRTRingtoneStatusFunction function, void* context) {
    manager->statusFunction = function;
    manager->statusContext = context;
}
