#include "engine/state/SyncLock.h"

namespace krl::engine {

int32_t trySyncLock(afc_connection* files) {
    afc_file_ref file = 0;
    // For reading: that makes no file where there is none.
    int32_t status = AFCFileRefOpen(files, kSyncLock, kAFCOpenRead, &file);
    if (status == kAFCObjectNotFound) {
        return 0;
    }
    if (status == 0) {
        status = AFCFileRefLock(files, file);
        if (status == 0) {
            AFCFileRefUnlock(files, file);
        }
        AFCFileRefClose(files, file);
    }
    return status;
}

} // namespace krl::engine
