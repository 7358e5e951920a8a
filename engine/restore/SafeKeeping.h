#pragma once

#include "engine/restore/Recovery.h"

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace krl::engine {

/// A change that a job makes in the ringtone folder.
struct IntendedChange {
    enum class Kind {
        Move,  ///< file becomes newFile
        Write, ///< source, a file on this computer, goes to file; an empty file where there is none
        Remove
    };
    Kind kind = Kind::Write;
    std::string file = {};
    std::string newFile = {};
    std::string source = {};
};

/// All that a job is going to change.
struct Intention {
    std::vector<IntendedChange> changes; ///< in the order in which they happen
    std::string catalogue;               ///< the bytes that it is to have afterwards
};

/// Keeps a job safe that somebody else carries out: before it, what could be lost is put in the safe
/// and a journal is written; after it, the phone is compared with what it was to be, and put right.
/// Three calls, in this order; each asks the phone over a connection of its own.
class SafeKeeping {
public:
    /// Takes the phone's safe, for itself alone as long as it lives.
    /// @param what  the job's command
    SafeKeeping(am_device* device, const std::string& udid, std::string what, RestoreWatch watch,
                Disk& disk = realDisk());

    /// Whether there is a job to be ended by recover(), which is to be done under the sync lock.
    bool hasBrokenJob() const { return safe_.journal().has_value(); }

    struct Recovered {
        Ending ending;
        Job job;
    };

    /// Before the phone is read to plan with: ends a job that was broken off earlier.
    std::optional<Recovered> recover();

    /// The phone as it is now, in the safe.
    Snapshot look();

    /// Whether it holds what it held then.
    bool isStill(const Snapshot& then);

    /// The state that a job leaves; what it writes is in the safe then.
    Snapshot afterwards(const Snapshot& before, const Intention& intention);

    /// Before the first write, under the sync lock or with a look under it at whether the phone is
    /// still the same.
    /// @throw Failure when something cannot be kept; nothing has been changed on the phone then
    void begin(const Intention& intention);

    /// The same for a job that finish() carries out, all of it.
    /// @param before   the phone as it is at this moment
    /// @param touched  files of the ringtone folder that may be left unfinished
    void begin(const Snapshot& before, const Snapshot& after, std::set<std::string> touched);

    /// After the last write, also when the job has failed. Without a begin there is nothing to do.
    /// @param takeLock  called before anything is put right; null when the lock is held already
    /// @return how it ended; none without a begin
    /// @throw Failure when it could not be ended; the next job does it
    std::optional<Ending> finish(Wish wish, const TakeLock& takeLock = nullptr);

    /// How many files the phone did not remove, after a finish.
    size_t leftBehind() const { return leftBehind_; }

    PhoneSafe& safe() { return safe_; }

private:
    am_device* device_;
    PhoneSafe safe_;
    std::string what_;
    RestoreWatch watch_;
    std::optional<Journal> journal_;
    size_t leftBehind_ = 0;
};

} // namespace krl::engine
