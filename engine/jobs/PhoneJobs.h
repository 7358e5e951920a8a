#pragma once

#include "engine/jobs/WorkProgress.h"
#include "engine/restore/SafePhone.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace krl::engine {

// What is done with a phone and its safe, on the thread that knows phones. Each but the first opens
// the phone; each throws a Failure when it cannot be done.

/// A job as the history shows it.
struct PastJob {
    uint64_t time = 0;
    std::string what; ///< as the engine calls it
    RingtoneChanges changes;
    bool isUndone = false;
    Digest before; ///< the state before it
};

/// The jobs on a phone that its safe knows, the newest first. Asks no phone.
std::vector<PastJob> pastJobs(const std::string& udid);

/// Ends a job that was broken off.
/// @return how; none when there is no such job any more
std::optional<Ending> endBrokenJob(const std::string& udid, Wish wish, const WorkWatch& watch);

/// Takes the last job back that is not undone.
RingtoneChanges undoLast(const std::string& udid, const WorkWatch& watch);

/// The same, and what others have done since with it.
RingtoneChanges undoLastByForce(const std::string& udid, const WorkWatch& watch);

/// Puts the phone into the state that it had before a job.
/// @param before  that state, by the job's account
RingtoneChanges goBackTo(const std::string& udid, const Digest& before, const WorkWatch& watch);

} // namespace krl::engine
