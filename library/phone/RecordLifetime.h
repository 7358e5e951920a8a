// How long a phone record lives when others than its owner refer to it: objects, the phone
// manager's list, a sync on another thread. May be called from any thread.
#pragma once

#include <KRLVesk/KRTPhone.h>

#include <CoreFoundation/CFRef.h>

namespace krl::phone {

/// How a store record is let go: the store, a room above this one, knows.
using StoreRelease = void (*)(KRTRingtoneManagerRef store);

/// What a record carries behind its documented fields. Only the functions below look at it, and the
/// store, which says how what it puts into the record is let go.
struct RecordLifetime {
    int32_t objectCount;       ///< objects that refer to the record
    int32_t syncCount;         ///< syncs under way
    bool isListed;             ///< the phone manager has it among its phones
    bool isReleased;           ///< KRTPhoneRelease was called
    bool isEmptied;            ///< what the record owned is given back
    StoreRelease storeRelease; ///< set with the record's store record
};

/// What KRTPhoneRelease does. At once, the record gives back what it owns and is then inert:
/// without a device, so that it does not open. The memory stays as long as an object refers to it,
/// so that no other record gets its address. A record that is inert already stays as it is. Two
/// things put this off: while the phone manager lists the record, nobody else lets go of it; while
/// a sync runs, which may be on another thread, it keeps what it works with.
void release(KRTPhoneRef phone);

/// One object more, or less, refers to the record.
void addObject(KRTPhoneRef phone);
void dropObject(KRTPhoneRef phone);

/// The same for the length of a scope.
class Pin {
public:
    explicit Pin(KRTPhoneRef phone) : phone_(phone) { addObject(phone_); }

    ~Pin() { dropObject(phone_); }

    Pin(const Pin&) = delete;
    Pin& operator=(const Pin&) = delete;

private:
    const KRTPhoneRef phone_;
};

/// The phone manager takes the record into its list, or out of it, to release it next.
void setListed(KRTPhoneRef phone, bool isListed);

/// Lets a store record go, also while another thread releases its phone.
void releaseStore(KRTRingtoneManagerRef store, StoreRelease storeRelease);

/// For the length of a sync.
class SyncUse {
public:
    explicit SyncUse(KRTPhoneRef phone);
    ~SyncUse();
    SyncUse(const SyncUse&) = delete;
    SyncUse& operator=(const SyncUse&) = delete;

private:
    const KRTPhoneRef phone_;
};

bool isReleased(KRTPhoneRef phone);

/// As KRTPhoneRawDevice and KRTPhoneGetPhoneInformation, also while the end of a sync on another
/// thread empties the record.
am_device* deviceOf(KRTPhoneRef phone);
cf::CFRef<CFDictionaryRef> informationOf(KRTPhoneRef phone);

} // namespace krl::phone
