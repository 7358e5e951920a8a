#pragma once

#include "library/discovery/NewsOnTheirWay.h"

#include <KRLVesk/KRTPhoneManager.h>

/// A registered delegate. Owned by the manager.
struct __krt_manager_delegate {
    KRTPhoneManagerCallback connected;
    KRTPhoneManagerCallback removed;
    void* context;
};

namespace krl::discovery {

struct Manager {
    CFMutableArrayRef delegates;          ///< __krt_manager_delegate records, as they registered
    CFMutableArrayRef phones;             ///< KRTPhoneRef records, as they arrived
    am_device_notification* notification; ///< null while not subscribed
    NewsOnTheirWay news;                  ///< behind the documented fields
};

/// What the delegates are told.
struct Notification {
    KRTPhoneRef phone; ///< null for a device that is not an iPhone
    am_device* device;
    int32_t kind; ///< kAMDeviceMessageConnected, kAMDeviceMessageDisconnected
};

/// A walk over the phones in search of a device.
struct Search {
    KRTPhoneRef found;
    am_device* wanted;
};

} // namespace krl::discovery

extern "C" {

/// The manager of the process; null while there is none.
extern krl::discovery::Manager* _gKRTPhoneSharedPhoneManager;

/// What the subscription calls.
void _amd_callback(am_device_notification_info* info);

/// Tells one delegate of a krl::discovery::Notification.
void _phone_connection_loop(const void* delegate, void* notification);

/// Compares one phone with what a krl::discovery::Search looks for.
void _phoneSearchEnumerator(const void* phone, void* search);
}
