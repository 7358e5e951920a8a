#include "engine/restore/HeldSyncLock.h"

#include "engine/layer/DeviceLayer.h"

#include <fmt/format.h>

#include <atomic>

namespace krl::engine {
namespace {

/// Sees what the phone says of the lock.
class LockWatch : public FileCalls {
public:
    int32_t lockFile(afc_connection* files, afc_file_ref file) override {
        const int32_t status = FileCalls::lockFile(files, file);
        isHeldElsewhere_ = status == kAFCWouldBlock;
        return status;
    }

    bool isHeldElsewhere() const { return isHeldElsewhere_; }

private:
    std::atomic<bool> isHeldElsewhere_{false};
};

} // namespace

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
    LockWatch watch;
    const layer::Redirection redirection(phone_.phone()._rawDevice(), watch);
    if (phone_.phone().beginSync() != 1) {
        Failure failure = phone_.readFailure("a sync cannot begin");
        phone_.phone().endSync();
        for (int i = 0; i < kOpens; ++i) {
            phone_.phone().close();
        }
        throw failure;
    }
    if (watch.isHeldElsewhere()) {
        giveBack();
        throw Failure(FailureKind::CannotBegin,
                      fmt::format("another program is syncing {}", phone_.label()),
                      "Wait for its end, or close it, and run the same command again.");
    }
}

HeldSyncLock::~HeldSyncLock() {
    giveBack();
}

void HeldSyncLock::giveBack() {
    phone_.phone().endSync();
    phone_.phone().close();
}

} // namespace krl::engine
