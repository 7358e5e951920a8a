#pragma once

#include "engine/diagnosis/Diagnosis.h"
#include "engine/files/NamelessFile.h"
#include "engine/jobs/ChangeNotes.h"
#include "engine/jobs/PhoneJobs.h"
#include "engine/state/PhoneState.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace krl::desktop {

using engine::ChangeDone;
using engine::PastJob;
using engine::WorkProgress;
using engine::WorkWatch;

// What is done with a phone, on the thread that knows phones. Each of these opens the phone, and
// throws a Failure when it cannot be done.

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
    bool rebuilds = false;               ///< what the catalogue does not list is listed again
    std::optional<size_t> keptJobs = {}; ///< so many of the phone's last; none: as before
};

ChangeDone changePhone(const std::string& udid, const WantedChange& wanted, const WorkWatch& watch);

} // namespace krl::desktop
