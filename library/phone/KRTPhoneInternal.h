#pragma once

#include "library/phone/RecordLifetime.h"

#include <KRLVesk/KRTPhone.h>

/// The phone record. The functions of KRTPhone.h keep these counts and handles exactly as each of
/// them documents; nothing else tidies them. Allocated with malloc: plain data only.
struct __KRTPhone {
    am_device* device;                  ///< retained; null in a record made without a device
    CFMutableDictionaryRef information; ///< owned; null until KRTPhoneUpdateInformation
    int32_t openCount;                  ///< opens that were not closed; 0 = closed
    int32_t fileServiceCount;           ///< starts of the file service that were not ended
    am_service* fileService;            ///< what fileConnection was opened on; not closed by itself
    afc_connection* fileConnection;     ///< outlives the last close, until the next start closes it
    am_service* notificationProxy;      ///< set = a sync is open
    am_service* spareConnection;        ///< never set
    afc_file_ref lockFile;              ///< the sync lock, while a sync is open
    uint64_t spareValue;                ///< never used
    KRTRingtoneManagerRef ringtoneManager; ///< owned; made at the first request
    krl::phone::RecordLifetime lifetime;   ///< behind the documented fields
};
