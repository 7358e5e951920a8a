#include "library/discovery/KRTPhoneManagerInternal.h"

#include "library/errors/ErrorReport.h"
#include "library/phone/DeviceLayer.h"
#include "library/phone/RecordLifetime.h"

#include <CoreFoundation/CFRef.h>

#include <cstdio>
#include <cstdlib>

using krl::cf::adopt;
using krl::discovery::Manager;
using krl::discovery::Notification;
using krl::discovery::Search;

Manager* _gKRTPhoneSharedPhoneManager = nullptr;

namespace {

constexpr krl::ErrorReporter reportError{"KRTPhoneManagerInternal"};

CFMutableArrayRef createPointerArray() {
    return CFArrayCreateMutable(nullptr, 0, nullptr);
}

/// Named for the leak checker's list of exceptions.
void makeUnreleasedArray() {
    createPointerArray();
}

CFRange wholeOf(CFArrayRef array) {
    return CFRangeMake(0, CFArrayGetCount(array));
}

const void* takeFirst(CFMutableArrayRef array) {
    const void* const first = CFArrayGetValueAtIndex(array, 0);
    CFArrayRemoveValueAtIndex(array, 0);
    return first;
}

KRTPhoneRef phoneOf(const void* element) {
    return static_cast<KRTPhoneRef>(const_cast<void*>(element));
}

/// Releases a phone that was just taken out of the list. While it was in there, nobody else's
/// KRTPhoneRelease could end it.
void releaseUnlisted(KRTPhoneRef phone) {
    krl::phone::setListed(phone, false);
    KRTPhoneRelease(phone);
}

void freeDelegate(const void* delegate) {
    std::free(const_cast<void*>(delegate));
}

int32_t subscribe() {
    if (!krl::phone::hasDeviceLayer()) {
        reportError(0);
        return kAMDNotConnected;
    }
    return AMDeviceNotificationSubscribe(_amd_callback, 0, 0, nullptr,
                                         &_gKRTPhoneSharedPhoneManager->notification);
}

void unsubscribe() {
    if (krl::phone::hasDeviceLayer()) {
        AMDShutdownNotificationProxy(_gKRTPhoneSharedPhoneManager->notification);
    }
    _gKRTPhoneSharedPhoneManager->notification = nullptr;
}

/// Tells the delegates, who may add and remove delegates meanwhile, shut the manager down, or run
/// the run loop and with it bring the next news.
void tellDelegates(Notification notification) {
    // Contract: the walk goes by index up to the count at its start. A delegate added meanwhile is
    // not told, and when one is removed its successor moves into its place and is passed over.
    // [PhoneManagerDelegates.WhoeverFollowsOneThatRemovesItselfIsPassedOver]
    Manager* const manager = _gKRTPhoneSharedPhoneManager;
    const CFIndex count = CFArrayGetCount(manager->delegates);
    CFIndex next = 0;
    manager->news.tell(notification.phone, [=, &notification, &next] {
        if (next >= count || next >= CFArrayGetCount(manager->delegates)) {
            return false;
        }
        _phone_connection_loop(CFArrayGetValueAtIndex(manager->delegates, next++), &notification);
        return true;
    });
}

/// Where the phone is in the list of phones; kCFNotFound also without a manager.
CFIndex indexOf(KRTPhoneRef phone) {
    if (!_gKRTPhoneSharedPhoneManager) {
        return kCFNotFound;
    }
    const CFArrayRef phones = _gKRTPhoneSharedPhoneManager->phones;
    return CFArrayGetFirstIndexOfValue(phones, wholeOf(phones), phone);
}

bool isIPhone(KRTPhoneRef phone) {
    const auto information = adopt(KRTPhoneGetPhoneInformation(phone));
    if (!information) {
        return false;
    }
    const void* const phoneClass = CFDictionaryGetValue(information.get(), KRTPhoneClassKey);
    return phoneClass && CFEqual(phoneClass, CFSTR("iPhone"));
}

} // namespace

int KRTPhoneManagerInit() {
    if (_gKRTPhoneSharedPhoneManager) {
        return 1;
    }
    // Contract: 1 also without memory; the manager is then missing.
    // [PhoneManagerLifetime.InitWithoutMemoryGivesOneAndNoManager]
    auto* const manager = static_cast<Manager*>(std::malloc(sizeof(Manager)));
    if (manager) {
        // Contract: three arrays are made and the first is never released.
        // [PhoneManagerLifetime.InitMakesThreeArraysOfPlainPointersAndNeverReleasesTheFirst]
        makeUnreleasedArray();
        manager->delegates = createPointerArray();
        manager->phones = createPointerArray();
        manager->notification = nullptr;
        manager->news = {};
    }
    _gKRTPhoneSharedPhoneManager = manager;
    return 1;
}

int32_t KRTGetConnectedPhoneCount() {
    if (!_gKRTPhoneSharedPhoneManager) {
        return -1;
    }
    return static_cast<int32_t>(CFArrayGetCount(_gKRTPhoneSharedPhoneManager->phones));
}

void KRTPhoneManagerShutdown() {
    Manager* const manager = _gKRTPhoneSharedPhoneManager;
    if (!manager) {
        return;
    }
    manager->news.stop();
    for (CFIndex left = CFArrayGetCount(manager->delegates); left > 0; --left) {
        freeDelegate(takeFirst(manager->delegates));
    }
    CFRelease(manager->delegates);
    for (CFIndex left = CFArrayGetCount(manager->phones); left > 0; --left) {
        releaseUnlisted(phoneOf(takeFirst(manager->phones)));
    }
    CFRelease(manager->phones);
    // Contract: a subscription that is still there is left alone, and its events find no manager.
    // [PhoneManagerLifetime.ShutdownDoesNotEndTheSubscription]
    manager->notification = nullptr;
    std::free(manager);
    _gKRTPhoneSharedPhoneManager = nullptr;
}

int32_t KRTPhoneManagerBeginSearch() {
    return subscribe();
}

void KRTPhoneManagerEndSearch() {
    unsubscribe();
}

CFArrayRef KRTPhoneManagerGetPhones() {
    return CFArrayCreateCopy(nullptr, _gKRTPhoneSharedPhoneManager->phones);
}

void KRTPhoneManagerReleasePhoneList(CFArrayRef phones) {
    CFRelease(phones);
}

// Contract: finds nothing, whatever the information says.
// [PhoneManagerLifetime.NoInformationFindsAPhone]
KRTPhoneRef KRTPhoneManagerPhoneForInfo(CFDictionaryRef) {
    return nullptr;
}

KRTPhoneRef KRTPhoneManagerPhoneForDevice(am_device* device) {
    // Contract: the walk does not stop at a match, so that the latest arrival is found.
    // [PhoneManagerLifetime.OfTwoPhonesWithOneDeviceTheLatestIsFound]
    const CFArrayRef phones = _gKRTPhoneSharedPhoneManager->phones;
    Search search{nullptr, device};
    CFArrayApplyFunction(phones, wholeOf(phones), _phoneSearchEnumerator, &search);
    return search.found;
}

void KRTPhoneManagerPhoneConnectedNotification(am_device* device) {
    if (!_gKRTPhoneSharedPhoneManager) {
        return;
    }
    const KRTPhoneRef phone = KRTPhoneWithDevice(device);
    if (!phone) {
        return;
    }
    if (KRTPhoneOpen(phone) != 1) {
        std::fprintf(stderr, "Error: %s, Unable to open phone", __func__);
        KRTPhoneRelease(phone);
        reportError(0);
        return;
    }
    KRTPhoneUpdateInformation(phone);
    KRTPhoneClose(phone);
    if (isIPhone(phone)) {
        CFArrayAppendValue(_gKRTPhoneSharedPhoneManager->phones, phone);
        krl::phone::setListed(phone, true);
        // Pulled out in a callback, it is still lent to that callback.
        const krl::phone::Pin pin(phone);
        tellDelegates({phone, device, kAMDeviceMessageConnected});
        return;
    }
    std::fprintf(stderr, "Error: %s, Unable to open phone, not an iPhone", __func__);
    KRTPhoneRelease(phone);
    // Contract: an arrival that is not an iPhone is announced too, without a phone.
    // [ArrivalOfAnotherDevice.IsToldToEveryDelegateWithoutAPhone]
    tellDelegates({nullptr, nullptr, kAMDeviceMessageConnected});
}

void KRTPhoneManagerPhoneDisconnectedNotification(am_device* device) {
    if (!_gKRTPhoneSharedPhoneManager) {
        return;
    }
    const KRTPhoneRef phone = KRTPhoneManagerPhoneForDevice(device);
    if (!phone) {
        return;
    }
    const krl::phone::Pin pin(phone);
    _gKRTPhoneSharedPhoneManager->news.finish(phone);
    if (indexOf(phone) == kCFNotFound) {
        return; // released in a callback: removed there, or the manager was shut down
    }
    tellDelegates({phone, device, kAMDeviceMessageDisconnected});
    const CFIndex index = indexOf(phone);
    if (index == kCFNotFound) {
        return; // likewise
    }
    CFArrayRemoveValueAtIndex(_gKRTPhoneSharedPhoneManager->phones, index);
    releaseUnlisted(phone);
}

KRTPhoneManagerDelegateRef KRTPhoneManagerAddDelegate(void* context,
                                                      KRTPhoneManagerCallback connected,
                                                      KRTPhoneManagerCallback removed) {
    if (!krl::phone::hasDeviceLayer()) {
        reportError(0);
        return nullptr;
    }
    auto* const delegate =
        static_cast<KRTPhoneManagerDelegateRef>(std::malloc(sizeof(__krt_manager_delegate)));
    if (!delegate) {
        return nullptr;
    }
    *delegate = {connected, removed, context};
    CFArrayAppendValue(_gKRTPhoneSharedPhoneManager->delegates, delegate);
    if (CFArrayGetCount(_gKRTPhoneSharedPhoneManager->delegates) == 1) {
        subscribe();
    }
    return delegate;
}

void KRTPhoneManagerRemoveDelegate(KRTPhoneManagerDelegateRef delegate) {
    const CFMutableArrayRef delegates = _gKRTPhoneSharedPhoneManager->delegates;
    const CFIndex index = CFArrayGetFirstIndexOfValue(delegates, wholeOf(delegates), delegate);
    if (index == kCFNotFound) {
        return;
    }
    CFArrayRemoveValueAtIndex(delegates, index);
    if (CFArrayGetCount(delegates) == 0) {
        unsubscribe();
    }
    freeDelegate(delegate);
}

void _amd_callback(am_device_notification_info* info) {
    if (info->message == kAMDeviceMessageConnected) {
        KRTPhoneManagerPhoneConnectedNotification(info->device);
    } else if (info->message == kAMDeviceMessageDisconnected) {
        KRTPhoneManagerPhoneDisconnectedNotification(info->device);
    }
}

void _phone_connection_loop(const void* delegate, void* notification) {
    const auto* const told = static_cast<const __krt_manager_delegate*>(delegate);
    const auto* const news = static_cast<const Notification*>(notification);
    if (news->kind == kAMDeviceMessageConnected) {
        told->connected(told->context, news->phone);
    } else if (news->kind == kAMDeviceMessageDisconnected) {
        told->removed(told->context, news->phone);
    }
}

void _phoneSearchEnumerator(const void* phone, void* search) {
    auto* const goal = static_cast<Search*>(search);
    if (KRTPhoneRawDevice(phoneOf(phone)) == goal->wanted) {
        goal->found = phoneOf(phone);
    }
}
