#include "desktop/session/MirrorWords.h"

#include "desktop/session/Translation.h"

#include <fmt/format.h>

namespace krl::desktop {

using engine::Failure;
using engine::FailureKind;

std::string folderName(const std::filesystem::path& folder) {
    const std::string name = folder.filename().string();
    return shownText(name.empty() ? folder.string() : name);
}

Explanation mirrorProblem(const Failure& failure, const std::string& phone) {
    Explanation explanation = explained(failure, phone);
    switch (failure.kind()) {
    case FailureKind::UnreadableFile:
        explanation.title = _("The folder cannot be read");
        explanation.advice =
            _("Nothing is removed from the phone. It goes on when the folder is there again.");
        break;
    case FailureKind::Cancelled:
        explanation.advice = _("The next change of the folder begins it anew.");
        break;
    case FailureKind::SyncFailed:
    case FailureKind::NotAsWanted:
        explanation.advice = _("See what is on the phone, and try again.");
        break;
    default:
        break;
    }
    return explanation;
}

std::string mirrorTitle(const MirrorView& mirror) {
    return fmt::format(fmt::runtime(_("Mirrors “{}”")), folderName(mirror.folder));
}

std::string mirrorQuestion(const MirrorView& mirror) {
    return fmt::format(fmt::runtime(_("Mirror “{}”?")), folderName(mirror.folder));
}

std::string mirrorText(const MirrorView& mirror) {
    const size_t unusable = mirror.unusable.size();
    switch (mirror.state) {
    case MirrorState::UpToDate:
        return unusable == 0
                   ? std::string(_("The phone holds what is in this folder"))
                   : fmt::format(fmt::runtime(ngettext_(
                                     "{} song cannot be used; nothing is removed until it can",
                                     "{} songs cannot be used; nothing is removed until they can",
                                     unusable)),
                                 unusable);
    case MirrorState::Due:
    case MirrorState::AtWork:
        return _("Looking at the folder…");
    case MirrorState::Asks:
        return mirror.isAgreed ? _("More would go from the phone than expected. Nothing is done "
                                   "before you agree.")
                               : _("Nothing is done before you have seen what it does.");
    case MirrorState::Paused:
        return _("Paused, because it was taken back. Nothing is done until you go on.");
    case MirrorState::WaitsForEdits:
        return _("Waits until your changes are synced or taken back.");
    case MirrorState::Interrupted:
        return _("Waits until the interrupted sync is finished or taken back.");
    case MirrorState::Unreadable:
        return _("Waits until the phone's list is put right.");
    case MirrorState::Unsuitable:
        return _("Waits, for this phone can only be looked at.");
    case MirrorState::Failed:
        return mirror.problem ? mirror.problem->title + ". " + mirror.problem->advice
                              : std::string();
    }
    return {};
}

} // namespace krl::desktop
