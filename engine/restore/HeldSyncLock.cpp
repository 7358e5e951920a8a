#include "engine/restore/HeldSyncLock.h"

namespace krl::engine {

HeldSyncLock::HeldSyncLock(OpenPhone& phone) : phone_(phone) {
    // Beginning takes one open back and ending another one; the lock goes with the connection when
    // the last open does.
    constexpr int kOpens = 3;
    phone_.disconnect();
    KRTErrorClear();
    for (int i = 0; i < kOpens; ++i) {
        if (phone_.phone().open()) {
            throw phone_.readFailure("the phone cannot be opened");
        }
    }
    if (phone_.phone().beginSync() != 1) {
        Failure failure = phone_.readFailure("a sync cannot begin");
        phone_.phone().endSync();
        for (int i = 0; i < kOpens; ++i) {
            phone_.phone().close();
        }
        throw failure;
    }
}

HeldSyncLock::~HeldSyncLock() {
    phone_.phone().endSync();
    phone_.phone().close();
}

} // namespace krl::engine
