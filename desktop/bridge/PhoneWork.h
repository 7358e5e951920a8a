#pragma once

#include "engine/change/ChangeJob.h"
#include "engine/diagnosis/Diagnosis.h"
#include "engine/files/NamelessFile.h"
#include "engine/restore/SafePhone.h"
#include "engine/state/PhoneState.h"

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace krl::desktop {

// What is done with a phone, on the thread that knows phones. Each of these opens the phone, and
// throws a Failure when it cannot be done.

/// A job as the history shows it.
struct PastJob {
    uint64_t time = 0;
    std::string what; ///< as the engine calls it
    engine::RingtoneChanges changes;
    bool isUndone = false;
    engine::Digest before; ///< the state before it
};

/// A phone as it was read.
struct PhoneReading {
    engine::PhoneFacts facts;
    std::optional<uint64_t> totalBytes; ///< of the phone's space
    std::vector<engine::PhoneRingtone> ringtones;
    bool catalogueIsUnreadable = false;
    std::optional<engine::Job> brokenJob;
    std::vector<PastJob> history; ///< the newest first
};

/// Fetches a ringtone's file into one of this computer.
std::shared_ptr<engine::NamelessFile> fetchSound(const std::string& udid,
                                                 const engine::PhoneRingtone& ringtone);

PhoneReading readPhone(const std::string& udid);

/// What is to become of a phone's ringtones.
struct WantedChange {
    std::vector<engine::LocalRingtone> added;
    std::vector<std::string> removed; ///< names; one that is gone already is no failure

    /// Names and those that they are to have, which no ringtone has; nor is one that is gone a failure.
    std::vector<std::pair<std::string, std::string>> renamed;
    bool rebuilds = false; ///< what the catalogue does not list is listed again
};

/// What was done.
struct ChangeDone {
    size_t added = 0;
    size_t removed = 0;
    size_t renamed = 0;
    size_t putRight = 0; ///< ringtones that a sync would have lost as they lay there
    bool changedAnything = false;
    bool wasTooLateToCancel = false;
    bool hadNoLock = false;   ///< another program held the sync lock all the while
    bool wasPutRight = false; ///< something had not arrived, and has then
    size_t leftBehind = 0;    ///< files that no catalogue lists and that the phone did not delete
};

/// How far work on a phone is.
struct WorkProgress {
    enum class Stage { Starting, WaitingForLock, Reading, Sending, Finishing, PuttingBack };
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

/// Hears of work, on the phones' thread, and may cancel it.
struct WorkWatch {
    std::function<void(const WorkProgress&)> progress;
    std::shared_ptr<std::atomic<bool>> isCancelled = std::make_shared<std::atomic<bool>>(false);
};

ChangeDone changePhone(const std::string& udid, const WantedChange& wanted, const WorkWatch& watch);

/// Ends a job that was broken off.
/// @return how; none when there is no such job any more
std::optional<engine::Ending> endBrokenJob(const std::string& udid, engine::Wish wish,
                                           const WorkWatch& watch);

/// Takes the last job back that is not undone.
engine::RingtoneChanges undoLast(const std::string& udid, const WorkWatch& watch);

/// Puts the phone into the state that it had before a job.
/// @param before  that state, by the job's account
engine::RingtoneChanges goBackTo(const std::string& udid, const engine::Digest& before,
                                 const WorkWatch& watch);

} // namespace krl::desktop
