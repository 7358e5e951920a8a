#pragma once

#include "engine/state/OpenPhone.h"

namespace krl::engine {

/// The phone's sync lock for a scope, as the library takes it for a sync: one that another program
/// does not give up within 7 seconds is gone on without.
class HeldSyncLock {
public:
    /// @throw Failure when the phone does not let a sync begin
    explicit HeldSyncLock(OpenPhone& phone);
    ~HeldSyncLock();
    HeldSyncLock(const HeldSyncLock&) = delete;
    HeldSyncLock& operator=(const HeldSyncLock&) = delete;

private:
    OpenPhone& phone_;
};

} // namespace krl::engine
