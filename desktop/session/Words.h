#pragma once

#include "desktop/bridge/EditDesk.h"
#include "desktop/bridge/PreferenceDesk.h"
#include "desktop/session/PhoneBook.h"
#include "desktop/session/Playing.h"
#include "engine/diagnosis/Diagnosis.h"

#include <string>

namespace krl::desktop {

// What the window says, in the person's language.

/// A text of the engine as a sentence of its own begins.
std::string capitalised(const std::string& text);

/// A failure for a person: what it means, and what to do.
struct Explanation {
    std::string title;
    std::string advice;
    std::string details; ///< the engine's own sentence
};

/// @param phone  the phone's name
Explanation explained(const engine::Failure& failure, const std::string& phone);

/// What to do about a finding that is not good.
std::string adviceFor(const engine::Finding& finding);

/// "0:28 · 6.5 KiB", or what becomes of it.
std::string rowText(const Row& row);

/// "New", "Removed"; empty for what is simply there.
std::string markText(Mark mark);

/// Why a name cannot be given; empty when nothing stands against it.
std::string nameProblemText(NameProblem problem);

/// Why there is nothing to be heard.
/// @param phone  the phone's name
std::string playProblemText(const Playing::Problem& problem, const std::string& phone);

std::string preferenceProblemText(PreferenceDesk::Problem problem);

/// What of the edits that were kept is not there any more; empty when all is.
/// @param phone  the phone's name
std::string notRestoredText(const KeptEdits& kept, const std::string& phone);

/// "2 new (10.9 KiB), 1 to be removed".
std::string sumText(const EditSum& sum);

/// "Firmware 1.1.1 · 6.9 GiB free".
std::string phoneText(const engine::PhoneFacts& facts);

std::string progressText(const WorkProgress& progress);

/// "2 ringtones added, 1 removed".
std::string doneText(const ChangeDone& done);

/// What else is to be said of it; empty as a rule.
std::string noteText(const ChangeDone& done);

/// "Added “A” and “B”. Removed “C”."
std::string changesText(const engine::RingtoneChanges& changes);

/// "Sync", "Undo"…
std::string jobText(const PastJob& job);

/// How a job that was broken off has ended.
std::string endingText(engine::Ending ending);

} // namespace krl::desktop
