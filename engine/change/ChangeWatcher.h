#pragma once

#include "engine/repair/Repair.h"
#include "engine/sync/SyncListener.h"

#include <cstdint>
#include <memory>
#include <string>

namespace krl::engine {

/// What is done with a phone besides a sync.
enum class SafeWork {
    Reading,     ///< what it holds is taken into the safe
    PuttingRight ///< it is brought into a state that the safe has
};

/// Who waits for a piece of work on a phone: hears of syncs, and of the safe.
class ChangeListener : public SyncListener {
public:
    virtual void moves(SafeWork work, uint64_t done, uint64_t total) = 0;
};

/// A change as it is about to be made, or has been.
struct PlannedChange {
    const PhoneState& before;
    const PreparedChange& change;
    const Repair* repair = nullptr; ///< the phone is put right with it
};

/// Who has a change made. Called on the thread that makes it.
class ChangeWatcher {
public:
    virtual ~ChangeWatcher() = default;

    /// A piece of work begins that takes its time. The listener lives until it is over.
    virtual std::unique_ptr<ChangeListener> begins() = 0;

    /// A job that was broken off earlier has come to its end.
    virtual void endedBrokenJob(const SafeKeeping::Recovered& job) = 0;

    /// Another program was quicker: all is read and planned anew.
    virtual void beginsAgain(const std::string& reason) = 0;

    /// The phone was read, and may be changed as far as its firmware goes.
    virtual void read(const PhoneState& state) = 0;

    /// What is done next, if anything.
    virtual void planned(const PlannedChange& planned) = 0;

    virtual void done(const PlannedChange& done) = 0;
};

} // namespace krl::engine
