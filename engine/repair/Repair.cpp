#include "engine/repair/Repair.h"

#include "engine/repair/LostEntries.h"
#include "engine/repair/RepairOperations.h"
#include "engine/restore/HeldSyncLock.h"
#include "engine/sync/Intentions.h"
#include "engine/sync/Submission.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

namespace krl::engine {
namespace {

/// Files with sound that the catalogue does not list.
std::set<std::string> unlistedFiles(const PhoneState& phone) {
    std::set<std::string> files;
    for (const FolderFile& file : phone.folder) {
        if (file.size > 0) {
            files.insert(file.name);
        }
    }
    for (const CatalogueEntry& entry : phone.catalogue.entries) {
        files.erase(entry.file);
    }
    return files;
}

/// What a file is called after these operations; empty when it is gone.
std::string nameAfter(const std::vector<Operation>& operations, std::string file) {
    for (const Operation& operation : operations) {
        const bool writesOver = operation.kind != Operation::Kind::Rename && operation.file == file;
        const bool movesOver = operation.kind == Operation::Kind::Rename &&
                               operation.newFile == file && operation.file != file;
        if (operation.kind == Operation::Kind::Rename && operation.file == file) {
            file = operation.newFile;
        } else if (writesOver || movesOver) {
            return {};
        }
    }
    return file;
}

/// A state with files under other names.
Snapshot withMoves(const Snapshot& before, const std::map<std::string, std::string>& moves) {
    Snapshot moved = before;
    for (const auto& [from, to] : moves) {
        auto file = moved.files.extract(from);
        if (!file.empty()) {
            file.key() = to;
            moved.files.insert(std::move(file));
        }
    }
    return moved;
}

class RepairWork {
public:
    RepairWork(OpenPhone& phone, SafeKeeping& keeping, const PhoneState& state)
        : phone_(phone), keeping_(keeping), state_(state) {}

    std::optional<Repair> run(RepairCause cause, const Edit& edit) {
        repair_.before = keeping_.look();
        if (!isAsRead(phone_, state_)) {
            throw ChangedMeanwhile(state_.facts.label());
        }
        found_ = listedRingtones(state_);
        listed_ = found_.size();
        known_ = listed_;
        if (cause == RepairCause::Unlisted) {
            addUnlisted();
        }
        tellApart(found_, state_.facts.olderLayout);
        auto lossless = planLosslessChange(phone_, state_, found_, edit);
        if (!lossless) {
            return std::nullopt;
        }
        moves_ = std::move(lossless->moves);
        repair_.state = std::move(lossless->state);
        repair_.change = std::move(lossless->change);
        workOut();
        return std::move(repair_);
    }

private:
    void addUnlisted() {
        LocalFiles titles;
        LostEntries lost =
            findLostEntries(keeping_.safe(), titles, repair_.before, unlistedFiles(state_));
        known_ += lost.known;
        std::move(lost.ringtones.begin(), lost.ringtones.end(), std::back_inserter(found_));
        repair_.unreadableTags = titles.unreadableTags();
    }

    void workOut() {
        Plan& plan = repair_.change.plan;
        repair_.after = keeping_.afterwards(withMoves(repair_.before, moves_), intentionOf(plan));
        OwnContents own;
        own.add(repair_.before);
        repair_.steps = planRestore(repair_.before, repair_.after, own, /*roomFirst=*/false);
        describeRingtones(plan);
        plan.operations = operationsOf(repair_, state_);
        plan.strays = strays();
        plan.spaceNeeded = repair_.steps.uploadBytes;
        plan.uploadBytes =
            plan.spaceNeeded - std::min<uint64_t>(plan.spaceNeeded, plan.catalogue.size());
        plan.changesAnything = !repair_.steps.steps.empty();
    }

    void describeRingtones(Plan& plan) {
        plan.moved = 0;
        for (size_t i = 0; i < found_.size(); ++i) {
            const FoundRingtone& ringtone = found_[i];
            const auto move = moves_.find(ringtone.file);
            const std::string file =
                nameAfter(plan.operations, move == moves_.end() ? ringtone.file : move->second);
            const bool hasMoved = !file.empty() && file != ringtone.file;
            plan.moved += hasMoved ? 1U : 0U;
            if (!ringtone.isSeen || ringtone.isChanged || move != moves_.end()) {
                repair_.ringtones.push_back({ringtone.file, file, ringtone.name, ringtone.listedAs,
                                             /*wasListed=*/i < listed_, /*isTitled=*/i >= known_});
            }
        }
    }

    /// What is deleted although nobody asked for it: it has no entry.
    std::vector<std::string> strays() const {
        std::set<std::string> files = unlistedFiles(state_);
        for (const FoundRingtone& ringtone : found_) {
            files.erase(ringtone.file);
        }
        std::vector<std::string> strays;
        std::copy_if(files.begin(), files.end(), std::back_inserter(strays),
                     [&](const std::string& name) {
                         const auto after = repair_.after.files.find(name);
                         const auto before = repair_.before.files.find(name);
                         return before != repair_.before.files.end() &&
                                (after == repair_.after.files.end() ||
                                 after->second.content != before->second.content);
                     });
        return strays;
    }

    OpenPhone& phone_;
    SafeKeeping& keeping_;
    const PhoneState& state_;
    std::vector<FoundRingtone> found_;
    size_t listed_ = 0; ///< so many of them, the first ones, the catalogue lists
    size_t known_ = 0;  ///< the same, with those whose entry is known
    std::map<std::string, std::string> moves_;
    Repair repair_;
};

std::set<std::string> touchedBy(const RestorePlan& plan) {
    std::set<std::string> touched;
    for (const RestoreStep& step : plan.steps) {
        for (const std::string& name : {step.file, step.newFile}) {
            if (!name.empty() && !isTemporary(name)) {
                touched.insert(name);
            }
        }
    }
    return touched;
}

Failure takenBack(const PhoneFacts& facts) {
    return {FailureKind::SyncFailed,
            fmt::format("{} did not take what was to be written; it has been put back as it was "
                        "before",
                        facts.label()),
            "\"vesk info\" shows the free space. Run the same command again once there is enough."};
}

/// Has the safe bring the phone to the state after.
void finish(SafeKeeping& keeping, const PhoneFacts& facts) {
    std::optional<Ending> ending;
    try {
        ending = keeping.finish(Wish::Finish);
    } catch (const Failure& failure) {
        if (failure.kind() != FailureKind::Cancelled) {
            throw;
        }
        keeping.finish(Wish::TakeBack);
        throw Failure(
            FailureKind::Cancelled,
            fmt::format("cancelled; {} has been put back as it was before", facts.label()));
    }
    if (ending == Ending::TakenBack) {
        throw takenBack(facts);
    }
    if (ending == Ending::ChangedByOthers) {
        throw ChangedMeanwhile(facts.label());
    }
}

void verify(OpenPhone& phone, const PhoneFacts& facts, const Plan& plan) {
    if (namesAndSizes(phone.ringtones()) != plan.afterwards) {
        throw Failure(FailureKind::NotAsWanted,
                      fmt::format("{} does not hold what it should afterwards", facts.label()),
                      "\"vesk list\" shows what it holds, and \"vesk undo\" puts it back as it "
                      "was before.");
    }
}

} // namespace

bool hasUnlistedRingtones(const PhoneState& phone) {
    const auto files = unlistedFiles(phone);
    return std::any_of(files.begin(), files.end(),
                       [](const std::string& file) { return isSupportedType(typeOf(file)); });
}

std::optional<Repair> planRepair(OpenPhone& phone, SafeKeeping& keeping, const PhoneState& state,
                                 RepairCause cause, const Edit& edit) {
    return RepairWork(phone, keeping, state).run(cause, edit);
}

void carryOut(OpenPhone& phone, SafeKeeping& keeping, const PhoneFacts& facts,
              const Repair& repair) {
    try {
        const HeldSyncLock lock(phone);
        if (!keeping.isStill(repair.before)) {
            throw ChangedMeanwhile(facts.label());
        }
        keeping.begin(repair.before, repair.after, touchedBy(repair.steps));
        finish(keeping, facts);
    } catch (const PhoneFileFailure& failure) {
        if (!phone.isGone()) {
            throw;
        }
        throw Failure(FailureKind::PhoneGone,
                      fmt::format("{} was pulled out: {}", facts.label(), failure.what()),
                      "Plug it in again and run the same command again: what was broken off is put "
                      "right first.");
    }
    verify(phone, facts, repair.change.plan);
}

} // namespace krl::engine
