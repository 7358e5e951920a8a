#pragma once

#include "engine/sync/Progress.h"

namespace krl::engine {

/// Where a sync is, besides its uploads.
enum class SyncStage {
    WaitingForLock,
    CatalogueDropped, ///< an unreadable one, before the sync: there is none until the end
    Preparing,
    Paused,  ///< stands still, because the listener pauses it
    Removing ///< from here on it is completed, whatever the listener says
};

/// Who waits for a sync: hears how far it is and may cancel it. Called on the thread that waits.
/// What a call of these throws does not end the sync.
class SyncListener {
public:
    virtual ~SyncListener() = default;

    virtual void stage(SyncStage stage) = 0;
    virtual void fileBegins(const Progress& progress) = 0;
    /// Some more of the file has arrived.
    virtual void fileMoves(const Progress& progress) = 0;

    virtual void fileEnds(const Progress& progress) = 0;

    /// Another program did not give the sync lock up in time.
    virtual void goesOnWithoutLock() = 0;

    /// The sync is done, but for files that no catalogue lists and that the phone did not delete.
    virtual void leavesBehind(size_t files) = 0;

    /// What the sync had left wrong has been put right from the safe.
    virtual void wasPutRight() = 0;

    /// Nothing more is to be heard of.
    virtual void ended() = 0;

    /// Whether the sync is to be cancelled. Asked at each step, and every 50 ms.
    virtual bool cancels() noexcept = 0;

    /// Whether the sync is to stand still. Asked before each file and before the removals, and then
    /// every 50 ms. The phone keeps its sync lock meanwhile.
    virtual bool pauses() noexcept { return false; }
};

} // namespace krl::engine
