#include "desktop/session/Words.h"

#include "desktop/bridge/MirrorWork.h"
#include "desktop/session/Translation.h"
#include "engine/values/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

namespace krl::desktop {

using namespace engine;

namespace {

/// A translated pattern, filled in.
template <typename... Values>
std::string filled(const char* pattern, const Values&... values) {
    return fmt::format(fmt::runtime(pattern), values...);
}

std::string joined(const std::vector<std::string>& parts) {
    return fmt::format("{}", fmt::join(parts, ", "));
}

std::string sizeAndLength(const Row& row) {
    return row.seconds ? fmt::format("{} · {}", formatDuration(*row.seconds), formatBytes(row.size))
                       : formatBytes(row.size);
}

/// “A”, “B” and “C”, not more than a few.
std::string quoted(const std::vector<std::string>& names) {
    constexpr size_t kMost = 3;
    std::vector<std::string> shown;
    for (const std::string& name : names) {
        if (shown.size() < kMost) {
            shown.push_back(filled(_("“{}”"), name));
        }
    }
    const std::string list = joined(shown);
    const size_t more = names.size() - shown.size();
    return more == 0 ? list
                     : filled(ngettext_("{} and {} more", "{} and {} more", more), list, more);
}

std::string timeLeftText(double seconds) {
    if (seconds < 60) {
        return _("less than a minute left");
    }
    const auto minutes = static_cast<size_t>(seconds / 60 + 0.5);
    return filled(ngettext_("{} minute left", "{} minutes left", minutes), minutes);
}

std::string sendingText(const WorkProgress& progress) {
    std::string text =
        filled(_("Ringtone {} of {} · {} of {}"), progress.filesDone + 1, progress.filesTotal,
               formatBytes(progress.bytesDone), formatBytes(progress.bytesTotal));
    return progress.secondsLeft ? text + " · " + timeLeftText(*progress.secondsLeft) : text;
}

/// The engine's own account.
std::string detailsOf(const Failure& failure) {
    std::string text = capitalised(failure.what()) + ".";
    for (const std::string& line : failure.details()) {
        text += "\n" + line;
    }
    return text;
}

} // namespace

std::string capitalised(const std::string& text) {
    std::string result = text;
    if (!result.empty() && result.front() >= 'a' && result.front() <= 'z') {
        result.front() = static_cast<char>(result.front() - 'a' + 'A');
    }
    return result;
}

Explanation explained(const Failure& failure, const std::string& phone) {
    const std::string details = detailsOf(failure);
    switch (failure.kind()) {
    case FailureKind::PhoneGone:
        return {filled(_("“{}” was unplugged"), phone),
                _("Plug it in again: what was begun is then finished or taken back."), details};
    case FailureKind::NoPhone:
        return {filled(_("“{}” is not there any more"), phone), _("Plug it in again."), details};
    case FailureKind::NotPaired:
    case FailureKind::PairingFailed:
        return {filled(_("“{}” does not know this computer"), phone),
                _("Unlock the phone, keep it awake, and pair it with this computer."), details};
    case FailureKind::NotAnIphone:
        return {filled(_("“{}” is not an iPhone"), phone), _("Only iPhones have ringtones."),
                details};
    case FailureKind::CannotOpen:
        return {filled(_("“{}” does not answer"), phone),
                _("Unlock the phone, unplug it and plug it in again."), details};
    case FailureKind::NoDeviceLayer:
        return {_("This computer cannot reach phones"), failure.advice(), details};
    case FailureKind::NoSpace:
        return {filled(_("There is too little space on “{}”"), phone),
                _("Remove ringtones or other things from it first, or add fewer. Nothing on it has "
                  "changed."),
                details};
    case FailureKind::UnknownFirmware:
        return {filled(_("“{}” has a firmware that this is not made for"), phone),
                _("Custom ringtones are for firmware 1.0 and 1.1. Nothing on it has changed."),
                details};
    case FailureKind::NameTaken:
        return {filled(_("“{}” has a ringtone of that name already"), phone),
                _("Remove the old one first. Nothing on it has changed."), details};
    case FailureKind::CatalogueUnreadable:
        return {filled(_("The list of ringtones on “{}” is damaged"), phone),
                _("It can be put right; the ringtones stay."), details};
    case FailureKind::WouldLoseRingtones:
        return {filled(_("Syncing would lose ringtones that are on “{}”"), phone),
                _("So nothing was done, and nothing on it has changed."), details};
    case FailureKind::CannotKeep:
        return {_("There is no room on this computer for copies of the ringtones"),
                _("Nothing is changed without a copy. Make some room and try again."), details};
    case FailureKind::NothingKept:
        return {_("There is nothing to undo"), _("Only the last syncs of a phone are kept."),
                details};
    case FailureKind::ChangedByOthers:
        return {filled(_("Another program has changed the ringtones of “{}” since"), phone),
                _("To keep what it did, nothing was put back."), details};
    case FailureKind::CannotBegin:
        return {filled(_("Another program is syncing “{}”"), phone),
                _("Wait until it is done, or close it, and try again. Nothing on the phone has "
                  "changed."),
                details};
    case FailureKind::Cancelled:
        return {_("Cancelled"), _("Your changes are still here."), details};
    case FailureKind::SyncFailed:
    case FailureKind::NotAsWanted:
        return {filled(_("“{}” could not be synced"), phone),
                _("Your changes are still here. See what is on the phone, and sync again."),
                details};
    case FailureKind::Unexpected:
    case FailureKind::SeveralPhones:
    case FailureKind::UnsupportedType:
    case FailureKind::UnreadableFile:
    case FailureKind::EmptyFile:
    case FailureKind::FileTooLarge:
    case FailureKind::BadName:
    case FailureKind::SameNameTwice:
    case FailureKind::NameNotFound:
    case FailureKind::NeedsYes:
    case FailureKind::NotACatalogue:
        break;
    }
    return {_("That did not work"), failure.advice(), details};
}

std::string adviceFor(const Finding& finding) {
    if (finding.check == "pairing" || finding.check == "pair-record" || finding.check == "paired") {
        return _("Unlock the phone and pair it with this computer.");
    }
    if (finding.check == "catalogue") {
        return _("It can be put right; the ringtones stay.");
    }
    if (finding.check == "free-space") {
        return _("Remove music, pictures or ringtones from the phone.");
    }
    return finding.advice;
}

std::string markText(Mark mark) {
    switch (mark) {
    case Mark::OnPhone:
        return {};
    case Mark::Removed:
        return _("Removed");
    case Mark::Renamed:
        return _("Renamed");
    case Mark::Checking:
        return _("Checking");
    case Mark::Preparing:
        return _("Preparing");
    case Mark::New:
        return _("New");
    case Mark::NameTaken:
        return _("Held back");
    case Mark::Unusable:
        return _("Not usable");
    }
    return {};
}

std::string rowText(const Row& row) {
    if (row.hearing == Hearing::Fetching) {
        return _("Fetching it from the phone…");
    }
    switch (row.mark) {
    case Mark::OnPhone:
    case Mark::New:
        return sizeAndLength(row);
    case Mark::Removed:
        return _("Goes with the next sync");
    case Mark::Renamed:
        return filled(_("Was “{}”"), row.formerName) + " · " + sizeAndLength(row);
    case Mark::Checking:
        return _("Looking at the file…");
    case Mark::Preparing:
        return _("Making a ringtone of it…");
    case Mark::NameTaken:
        return _("There is a ringtone of this name already");
    case Mark::Unusable:
        return capitalised(row.reason);
    }
    return {};
}

std::string nameProblemText(NameProblem problem) {
    switch (problem) {
    case NameProblem::None:
        return {};
    case NameProblem::Empty:
        return _("A ringtone needs a name");
    case NameProblem::Unusable:
        return _("The phone cannot hold this name");
    case NameProblem::Taken:
        return _("There is a ringtone of this name already");
    case NameProblem::TakenUntilSync:
        return _("This name is free after the next sync");
    }
    return {};
}

std::string playProblemText(const Playing::Problem& problem, const std::string& phone) {
    switch (problem.kind) {
    case Playing::Problem::Kind::NoDevice:
        return _("There is no sound device to play on");
    case Playing::Problem::Kind::NotFetched:
        return filled(_("“{}” cannot be played: {}"), problem.name,
                      explained(*problem.failure, phone).title);
    case Playing::Problem::Kind::NotPlayed:
        return filled(_("“{}” cannot be played"), problem.name);
    }
    return {};
}

std::string preferenceProblemText(PreferenceDesk::Problem problem) {
    switch (problem) {
    case PreferenceDesk::Problem::NotRead:
        return _("Your preferences cannot be read; the usual ones are used");
    case PreferenceDesk::Problem::NotKept:
        return _("Your preferences cannot be kept");
    }
    return {};
}

std::string notRestoredText(const KeptEdits& kept, const std::string& phone) {
    if (kept.isDamaged) {
        return filled(_("Your last changes to “{}” cannot be read"), phone);
    }
    std::vector<std::string> names;
    for (const std::filesystem::path& song : kept.missing) {
        names.push_back(shownText(song.filename().string()));
    }
    return names.empty()
               ? std::string()
               : filled(ngettext_("{} is not there any more and was left out",
                                  "{} are not there any more and were left out", names.size()),
                        quoted(names));
}

std::string sumText(const EditSum& sum) {
    std::vector<std::string> parts;
    if (sum.added > 0) {
        parts.push_back(filled(ngettext_("{} new ({})", "{} new ({})", sum.added), sum.added,
                               formatBytes(sum.addedBytes)));
    }
    if (sum.removed > 0) {
        parts.push_back(
            filled(ngettext_("{} to be removed", "{} to be removed", sum.removed), sum.removed));
    }
    if (sum.renamed > 0) {
        parts.push_back(
            filled(ngettext_("{} to be renamed", "{} to be renamed", sum.renamed), sum.renamed));
    }
    if (sum.underWay > 0) {
        parts.push_back(filled(ngettext_("{} being prepared", "{} being prepared", sum.underWay),
                               sum.underWay));
    }
    return joined(parts);
}

std::string phoneText(const PhoneFacts& facts) {
    const std::string firmware = filled(_("Firmware {}"), facts.firmware);
    return facts.freeBytes ? firmware + " · " + filled(_("{} free"), formatBytes(*facts.freeBytes))
                           : firmware;
}

std::string progressText(const WorkProgress& progress) {
    switch (progress.stage) {
    case WorkProgress::Stage::Making:
        return filled(_("Making ringtone {} of {}…"),
                      std::min(progress.filesDone + 1, progress.filesTotal), progress.filesTotal);
    case WorkProgress::Stage::Starting:
        return _("Getting ready…");
    case WorkProgress::Stage::WaitingForLock:
        return _("Waiting for the phone…");
    case WorkProgress::Stage::Reading:
        return filled(_("Keeping copies · {} of {}"), formatBytes(progress.bytesDone),
                      formatBytes(progress.bytesTotal));
    case WorkProgress::Stage::Sending:
        return sendingText(progress);
    case WorkProgress::Stage::Paused:
        return _("Paused");
    case WorkProgress::Stage::Finishing:
        return _("Finishing…");
    case WorkProgress::Stage::PuttingBack:
        return filled(_("Putting back · {} of {}"), formatBytes(progress.bytesDone),
                      formatBytes(progress.bytesTotal));
    }
    return {};
}

std::string doneText(const ChangeDone& done) {
    std::vector<std::string> parts;
    if (done.added > 0) {
        parts.push_back(
            filled(ngettext_("{} ringtone added", "{} ringtones added", done.added), done.added));
    }
    if (done.removed > 0) {
        parts.push_back(filled(ngettext_("{} removed", "{} removed", done.removed), done.removed));
    }
    if (done.renamed > 0) {
        parts.push_back(filled(ngettext_("{} renamed", "{} renamed", done.renamed), done.renamed));
    }
    if (done.putRight > 0) {
        parts.push_back(
            filled(ngettext_("{} put right", "{} put right", done.putRight), done.putRight));
    }
    return parts.empty() ? _("Everything is on the phone already") : joined(parts);
}

std::string noteText(const ChangeDone& done) {
    std::vector<std::string> notes;
    if (done.hadNoLock) {
        notes.push_back(
            _("Another program was syncing the phone all the while. Close it before the "
              "next sync."));
    }
    if (done.wasPutRight) {
        notes.push_back(_("Something had not arrived as it should, and was put right."));
    }
    if (done.leftBehind > 0) {
        notes.push_back(_("Some files could not be deleted; the next sync tries again."));
    }
    if (done.wasTooLateToCancel) {
        notes.push_back(_("It was too late to cancel."));
    }
    return fmt::format("{}", fmt::join(notes, " "));
}

std::string changesText(const RingtoneChanges& changes) {
    std::vector<std::string> sentences;
    const auto say = [&](const char* pattern, const std::vector<std::string>& names) {
        if (!names.empty()) {
            sentences.push_back(filled(pattern, quoted(names)));
        }
    };
    say(_("Added {}"), changes.added);
    say(_("Removed {}"), changes.removed);
    say(_("Replaced {}"), changes.replaced);
    std::vector<std::string> renamed;
    for (const auto& [from, to] : changes.renamed) {
        renamed.push_back(to);
    }
    say(_("Renamed to {}"), renamed);
    return sentences.empty() ? std::string(_("No ringtone changed"))
                             : fmt::format("{}", fmt::join(sentences, ". "));
}

std::string jobText(const PastJob& job) {
    if (job.what == "undo") {
        return _("Undo");
    }
    if (job.what == "restore") {
        return _("Restored");
    }
    if (job.what == kMirrorJob) {
        return _("Folder mirrored");
    }
    return job.what == "rebuild" ? _("Put right") : _("Sync");
}

std::string endingText(Ending ending) {
    switch (ending) {
    case Ending::NothingHappened:
        return _("The last sync had not changed anything");
    case Ending::WasDone:
        return _("The last sync was complete");
    case Ending::Finished:
        return _("The last sync is finished now");
    case Ending::TakenBack:
        return _("The last sync was taken back");
    case Ending::ChangedByOthers:
        return _("Another program has changed the phone since; it was left as it is");
    }
    return {};
}

} // namespace krl::desktop
