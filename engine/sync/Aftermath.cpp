#include "engine/sync/Aftermath.h"

#include "engine/values/Text.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <tuple>
#include <unistd.h>

namespace krl::engine {
namespace {

cf::CFRef<CFStringRef> path(const std::string& file) {
    return cf::string(fmt::format("{}/{}", kRingtonesFolder, file));
}

bool removesCatalogue(const Plan& plan) {
    return plan.count(Operation::Kind::RemoveCatalogue) > 0;
}

} // namespace

/// What the phone holds until the removals have begun.
std::string Aftermath::stateText() const {
    const std::string done = reports_.uploadsPlanned() == 0
                                 ? "nothing had been removed"
                                 : fmt::format("{} of {} had been uploaded", reports_.uploaded(),
                                               counted(reports_.uploadsPlanned(), "ringtone"));
    return done + (removesCatalogue(change_.plan) ? "; the unreadable catalogue is gone"
                                                  : "; the phone's catalogue is the old one");
}

void Aftermath::leaveToSafe(std::optional<Ending> ending) {
    isLeftToSafe_ = true;
    ending_ = ending;
}

/// What the safe has made of it.
std::optional<std::string> Aftermath::safeText() const {
    if (!isLeftToSafe_) {
        return std::nullopt;
    }
    if (!ending_) {
        return "it could not be put in order yet; what it held is kept on this computer";
    }
    switch (*ending_) {
    case Ending::NothingHappened:
    case Ending::TakenBack:
        return "it holds what it held before";
    case Ending::WasDone:
    case Ending::Finished:
        return "it holds what was wanted";
    case Ending::ChangedByOthers:
        return "another program has changed it meanwhile, and it stays as it is; what it held is "
               "kept on this computer";
    }
    return std::nullopt;
}

std::string Aftermath::advice() const {
    if (!isLeftToSafe_) {
        return "Run the same command again: files that no catalogue lists are deleted or replaced "
               "then.";
    }
    if (!ending_) {
        return "Close other programs that use it, plug it in again and run the same command again: "
               "what was broken off is put in order first.";
    }
    return *ending_ == Ending::ChangedByOthers
               ? "\"vesk list\" shows what it holds; \"vesk undo --force\" puts back what it held "
                 "before."
               : "Run the same command again.";
}

Failure Aftermath::failed(const std::string& reason) {
    if (phone_.isGone()) {
        return pulledOut();
    }
    const std::string where =
        reports_.underWay().empty() ? "" : fmt::format(" at \"{}\"", reports_.underWay());
    return withState(FailureKind::SyncFailed,
                     fmt::format("the sync of {} failed{}: {}", before_.facts.label(), where,
                                 unreadableSource().value_or(reason)));
}

/// Of a file on this computer the library only says that it could not be read.
std::optional<std::string> Aftermath::unreadableSource() const {
    for (const Operation& operation : change_.plan.operations) {
        if (operation.kind == Operation::Kind::Upload && operation.name == reports_.underWay() &&
            ::access(operation.source.c_str(), R_OK) != 0) {
            return fmt::format("\"{}\" cannot be read: {}", operation.source, std::strerror(errno));
        }
    }
    return std::nullopt;
}

Failure Aftermath::cancelled() {
    if (phone_.isGone()) {
        return pulledOut();
    }
    return withState(FailureKind::Cancelled,
                     fmt::format("the sync of {} was cancelled", before_.facts.label()));
}

Failure Aftermath::stopped(const std::string& reason, bool hasChanged) {
    if (phone_.isGone()) {
        return pulledOut();
    }
    const std::string sentence =
        fmt::format("the sync of {} was stopped: {}", before_.facts.label(), reason);
    return hasChanged ? withState(FailureKind::SyncFailed, sentence)
                      : Failure(FailureKind::CannotBegin, sentence,
                                "Nothing was changed on the phone. Close programs that use it, "
                                "plug it in again and run the same command again.");
}

/// Adds what the phone holds now.
Failure Aftermath::withState(FailureKind kind, const std::string& sentence) {
    std::vector<std::string> details{stateText()};
    if (const auto text = safeText()) {
        details.push_back(*text);
    }
    try {
        if (!isLeftToSafe_) {
            undoRenames();
        }
        describeOldRingtones(details);
    } catch (const Failure& failure) {
        details.push_back(fmt::format("the phone could not be looked at: {}", failure.what()));
    }
    return {kind, sentence, advice(), details};
}

void Aftermath::describeOldRingtones(std::vector<std::string>& details) {
    const auto now = namesOf(phone_.ringtones());
    const std::set<std::string> overwritten = reports_.filesBegun();
    size_t intact = 0;
    for (const PhoneRingtone& ringtone : before_.ringtones) {
        if (!now.contains(ringtone.name)) {
            details.push_back(fmt::format("\"{}\" is not on the phone any more", ringtone.name));
        } else if (overwritten.contains(ringtone.file)) {
            details.push_back(fmt::format("\"{}\", which was to go, has been overwritten by a new "
                                          "file of the same name, {}",
                                          ringtone.name, ringtone.file));
        } else {
            ++intact;
        }
    }
    if (intact == before_.ringtones.size()) {
        details.push_back(intact == 0 ? "it had no ringtones before and lists none now"
                                      : fmt::format("all {} that it had are still there",
                                                    counted(intact, "ringtone")));
    }
}

/// The old catalogue lists the old names: under the new ones the ringtones would be missing,
/// and deleted by the next sync.
void Aftermath::undoRenames() {
    const auto names = phone_.folderNames().value_or(std::vector<std::string>{});
    std::set<std::string> folder(names.begin(), names.end());
    const auto& operations = change_.plan.operations;
    for (auto operation = operations.rbegin(); operation != operations.rend(); ++operation) {
        const auto& [from, to] = std::tie(operation->file, operation->newFile);
        const bool moved = operation->kind == Operation::Kind::Rename && folder.contains(to) &&
                           !folder.contains(from);
        if (moved && !phone_.phone().renameFileAtPath(path(to).get(), path(from).get())) {
            folder.erase(to);
            folder.insert(from);
        }
    }
}

Failure Aftermath::pulledOut() const {
    std::vector<std::string> details;
    if (reports_.reachedRemovals()) {
        details.emplace_back("all uploads had arrived; whether the new catalogue was written is "
                             "not known");
    } else {
        details.push_back(stateText());
        if (!isLeftToSafe_) {
            describeMoved(details);
        }
    }
    return {FailureKind::PhoneGone,
            fmt::format("{} was pulled out during the sync", before_.facts.label()),
            isLeftToSafe_ ? "Plug it in again and run the same command again: what was broken off "
                            "is put in order first."
                          : "Plug it in again and run the same command again.",
            details};
}

void Aftermath::describeMoved(std::vector<std::string>& details) const {
    if (reports_.entriesRenamed() == 0) {
        return;
    }
    for (const Operation& operation : change_.plan.operations) {
        if (operation.kind == Operation::Kind::Rename) {
            details.push_back(fmt::format("\"{}\" may have moved from {} to {}, where the old "
                                          "catalogue does not find it: keep a copy of it",
                                          operation.name, operation.file, operation.newFile));
        }
    }
}

Failure Aftermath::unverified(const Failure& failure) const {
    return {FailureKind::NotAsWanted,
            fmt::format("the sync of {} ended, but the phone cannot be looked at: {}",
                        before_.facts.label(), failure.what()),
            "Plug it in anew and run \"vesk info\", which also says whether its catalogue can be "
            "read."};
}

Failure Aftermath::notAsWanted(const std::map<std::string, uint64_t>& now,
                               bool catalogueIsUnreadable) const {
    std::vector<std::string> details;
    for (const auto& [name, size] : change_.plan.afterwards) {
        const auto found = now.find(name);
        if (found == now.end()) {
            details.push_back(fmt::format("missing: \"{}\"", name));
        } else if (found->second != size) {
            details.push_back(
                fmt::format("\"{}\" has {} instead of {} bytes", name, found->second, size));
        }
    }
    for (const auto& [name, size] : now) {
        if (!change_.plan.afterwards.contains(name)) {
            details.push_back(fmt::format("still there: \"{}\"", name));
        }
    }
    return {FailureKind::NotAsWanted,
            fmt::format("the sync of {} ended, but the phone does not hold what it should; "
                        "perhaps its catalogue could not be written",
                        before_.facts.label()),
            isLeftToSafe_
                ? "Run the same command again: what is not as it should be is put in order first. "
                  "\"vesk undo\" puts back what it held before."
            : catalogueIsUnreadable
                ? "Its catalogue cannot be read now, so that most commands are refused. \"vesk "
                  "rebuild\" lists the ringtones again whose files are there. \"vesk info\" shows "
                  "the free space; \"vesk sync FOLDER --force\" puts a folder's ringtones onto it "
                  "and deletes all others."
                : "\"vesk info\" shows the free space and \"vesk list\" what it holds: add what "
                  "is missing, remove what should not be there.",
            details};
}

} // namespace krl::engine
