#pragma once

#include "engine/restore/Restorer.h"

#include <functional>
#include <memory>
#include <string>

namespace krl::engine {

/// How a job is to end that has not been seen to end well.
enum class Wish {
    Either, ///< finished if all files have come, else taken back
    Finish,
    TakeBack
};

/// How a job has ended.
enum class Ending {
    NothingHappened, ///< the phone is as it was before
    WasDone,         ///< the phone is as it was to be
    Finished,        ///< now
    TakenBack,       ///< now
    ChangedByOthers  ///< the phone is not the one that the job left: nothing was put over it
};

/// When a job was at work.
enum class JobTime {
    Now,    ///< nobody else has been there since
    Earlier ///< others may have changed the phone since
};

/// Takes a phone's sync lock, which is held as long as what this returns lives.
/// @throw Failure when it cannot be had
using TakeLock = std::function<std::shared_ptr<void>()>;

/// Ends the job of a journal: looks at what the phone holds, finishes it or takes it back, moved
/// files included, takes it into the history and the journal away.
/// @param takeLock  called before anything is written; null when the lock is held already
/// @throw Failure when it could not be ended; the journal stays then
Ending endJob(PhoneSafe& safe, Restorer& restorer, const Journal& journal, Wish wish, JobTime time,
              const TakeLock& takeLock = nullptr);

/// What has become of a job that was broken off, in words.
std::string endingText(Ending ending, const Job& job);

} // namespace krl::engine
