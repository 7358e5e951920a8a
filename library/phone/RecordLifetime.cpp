#include "library/phone/RecordLifetime.h"

#include "library/phone/DeviceLayer.h"
#include "library/phone/KRTPhoneInternal.h"

#include <cstdlib>
#include <mutex>

namespace krl::phone {

namespace {

/// Guards the lifetimes of all records.
std::mutex& lifetimeMutex() {
    static std::mutex mutex;
    return mutex;
}

using Lock = std::unique_lock<std::mutex>;

bool isDueToBeEmptied(const RecordLifetime& lifetime) {
    return lifetime.isReleased && lifetime.syncCount == 0 && !lifetime.isEmptied;
}

bool isDueToBeFreed(const RecordLifetime& lifetime) {
    return lifetime.isReleased && lifetime.syncCount == 0 && lifetime.objectCount == 0;
}

/// Does what a change of the lifetime has made due.
void settle(KRTPhoneRef phone, Lock lock) {
    const bool isEmptying = isDueToBeEmptied(phone->lifetime);
    const bool isFreeing = isDueToBeFreed(phone->lifetime);
    am_device* const device = phone->device;
    const CFMutableDictionaryRef information = phone->information;
    if (isEmptying) {
        phone->lifetime.isEmptied = true;
        if (phone->ringtoneManager != nullptr) {
            phone->lifetime.storeRelease(phone->ringtoneManager);
        }
        phone->information = nullptr;
        phone->device = nullptr;
    }
    // What is given back may end in calls to the phone; nobody waits for those.
    lock.unlock();
    if (isEmptying) {
        CFRelease(information);
        if (hasDeviceLayer()) {
            AMDeviceRelease(device);
        }
    }
    if (isFreeing) {
        std::free(phone);
    }
}

} // namespace

void release(KRTPhoneRef phone) {
    Lock lock(lifetimeMutex());
    if (phone->lifetime.isListed) {
        return;
    }
    phone->lifetime.isReleased = true;
    settle(phone, std::move(lock));
}

void addObject(KRTPhoneRef phone) {
    const Lock lock(lifetimeMutex());
    ++phone->lifetime.objectCount;
}

void dropObject(KRTPhoneRef phone) {
    Lock lock(lifetimeMutex());
    --phone->lifetime.objectCount;
    settle(phone, std::move(lock));
}

void setListed(KRTPhoneRef phone, bool isListed) {
    const Lock lock(lifetimeMutex());
    phone->lifetime.isListed = isListed;
}

void releaseStore(KRTRingtoneManagerRef store, StoreRelease storeRelease) {
    const Lock lock(lifetimeMutex());
    storeRelease(store);
}

SyncUse::SyncUse(KRTPhoneRef phone) : phone_(phone) {
    const Lock lock(lifetimeMutex());
    ++phone_->lifetime.syncCount;
}

SyncUse::~SyncUse() {
    Lock lock(lifetimeMutex());
    --phone_->lifetime.syncCount;
    settle(phone_, std::move(lock));
}

bool isReleased(KRTPhoneRef phone) {
    const Lock lock(lifetimeMutex());
    return phone->lifetime.isReleased;
}

am_device* deviceOf(KRTPhoneRef phone) {
    const Lock lock(lifetimeMutex());
    return KRTPhoneRawDevice(phone);
}

cf::CFRef<CFDictionaryRef> informationOf(KRTPhoneRef phone) {
    const Lock lock(lifetimeMutex());
    return cf::adopt(KRTPhoneGetPhoneInformation(phone));
}

} // namespace krl::phone
