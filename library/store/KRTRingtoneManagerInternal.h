#pragma once

#include <KRLVesk/KRTRingtoneManager.h>

/// The store record. Allocated with malloc: plain data only.
struct __KRTRingtoneManager {
    KRTPhoneRef phone;                        ///< not owned
    KRTRingtoneStatusFunction statusFunction; ///< null: no reports, and nobody who could cancel
    void* statusContext;
};
