#pragma once

#include "engine/restore/Restorer.h"
#include "engine/sync/Progress.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace krl::engine {

/// How far work on a phone is.
struct WorkProgress {
    /// Making: ringtones out of songs, before the phone is asked.
    enum class Stage {
        Making,
        Starting,
        WaitingForLock,
        Reading,
        Sending,
        Paused,
        Finishing,
        PuttingBack
    };
    Stage stage = Stage::Starting;
    size_t filesDone = 0;
    size_t filesTotal = 0;
    uint64_t bytesDone = 0;
    uint64_t bytesTotal = 0;
    std::optional<double> secondsLeft = {};
    std::string current = {}; ///< the name of the ringtone under way

    /// From 0 to 1; none where nothing is counted.
    std::optional<double> fraction() const;
};

/// Hears of work, on the phones' thread, and may cancel it, or pause a change.
struct WorkWatch {
    std::function<void(const WorkProgress&)> progress;
    std::shared_ptr<std::atomic<bool>> isCancelled = std::make_shared<std::atomic<bool>>(false);
    std::shared_ptr<std::atomic<bool>> isPaused = std::make_shared<std::atomic<bool>>(false);
};

/// A file of a sync under way.
WorkProgress sending(const Progress& progress);

WorkProgress bytesOf(WorkProgress::Stage stage, uint64_t done, uint64_t total);

/// The same for what moves between a phone and its safe.
/// @param watch  outlives it
RestoreWatch restoreWatch(const WorkWatch& watch);

} // namespace krl::engine
