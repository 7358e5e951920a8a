#pragma once

#include "engine/state/OpenPhone.h"

namespace krl::engine {

/// The phone's sync lock for a scope, taken as the library takes it for a sync, within 7 seconds.
/// The library goes on where it cannot be had. This does so only on a phone that knows no locks.
class HeldSyncLock {
public:
    /// @throw Failure when another program holds it, or the phone does not let a sync begin
    explicit HeldSyncLock(OpenPhone& phone);
    ~HeldSyncLock();
    HeldSyncLock(const HeldSyncLock&) = delete;
    HeldSyncLock& operator=(const HeldSyncLock&) = delete;

private:
    void giveBack();

    OpenPhone& phone_;
};

} // namespace krl::engine
