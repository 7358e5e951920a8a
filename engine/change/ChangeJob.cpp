#include "engine/change/ChangeJob.h"

#include "engine/change/Refusals.h"
#include "engine/restore/HeldSyncLock.h"
#include "engine/sync/Attempts.h"
#include "engine/sync/Submission.h"

#include <fmt/format.h>

#include <utility>

namespace krl::engine {

/// A piece of work that somebody listens to.
class ChangeJob::Piece {
public:
    explicit Piece(ChangeJob& job) : listener_(job.watcher_.begins()), place_(job.listener_) {
        place_ = listener_.get();
    }

    ~Piece() { place_ = nullptr; }

    Piece(const Piece&) = delete;
    Piece& operator=(const Piece&) = delete;

    ChangeListener& listener() { return *listener_; }

private:
    const std::unique_ptr<ChangeListener> listener_;
    ChangeListener*& place_;
};

ChangeJob::ChangeJob(OpenPhone& phone, const ChangeRules& rules, std::string what,
                     ChangeWatcher& watcher)
    : phone_(phone), rules_(rules), what_(std::move(what)), watcher_(watcher) {}

void ChangeJob::run(const Edit& edit) {
    runAttempts([&] { attemptOnce(edit); });
}

void ChangeJob::rebuild() {
    runAttempts([this] { rebuildOnce(); });
}

void ChangeJob::runAttempts(const std::function<void()>& once) {
    if (!rules_.isDryRun && rules_.keeps) {
        endBrokenJob();
    }
    attempt(phone_, state_, once,
            [this](const std::string& reason) { watcher_.beginsAgain(reason); });
}

/// Takes the phone's safe, and ends a job that was broken off earlier.
void ChangeJob::endBrokenJob() {
    if (!safeKeeping().hasBrokenJob()) {
        return;
    }
    Piece piece(*this);
    std::optional<SafeKeeping::Recovered> recovered;
    {
        const HeldSyncLock lock(phone_);
        recovered = keeping_->recover();
    }
    piece.listener().ended();
    watcher_.endedBrokenJob(*recovered);
}

SafeKeeping& ChangeJob::safeKeeping() {
    if (!keeping_) {
        keeping_.emplace(phone_.phone()._rawDevice(), phone_.facts().udid, what_, watch());
        if (rules_.keptJobs) {
            keeping_->safe().keepAtMost(*rules_.keptJobs);
        }
    }
    return *keeping_;
}

RestoreWatch ChangeJob::watch() {
    const auto moves = [this](SafeWork work) {
        return [this, work](uint64_t done, uint64_t total) {
            if (listener_ != nullptr) {
                listener_->moves(work, done, total);
            }
        };
    };
    return {.reading = moves(SafeWork::Reading),
            .writing = moves(SafeWork::PuttingRight),
            // Once: what is taken back then is not to be cancelled as well.
            .cancels = [this] {
                return mayCancel_ && listener_ != nullptr && listener_->cancels() &&
                       std::exchange(mayCancel_, false);
            }};
}

/// What holds for every change.
void ChangeJob::begin() {
    if (!rules_.isForced) {
        requireKnownFirmware(state_.facts);
    }
    watcher_.read(state_);
}

bool ChangeJob::needsRebuilding() const {
    return state_.catalogueIsUnreadable() || hasUnlistedRingtones(state_);
}

void ChangeJob::attemptOnce(const Edit& edit) {
    if (!rules_.isForced && !rules_.rebuilds) {
        requireReadableCatalogue(state_);
    }
    begin();
    if (rules_.rebuilds && needsRebuilding()) {
        rebuildFirst(edit);
        return;
    }
    edit(state_);
    const PreparedChange prepared = prepare(phone_, state_);
    if (!rules_.isForced && !lossesOf(prepared.plan).empty()) {
        repairInstead(prepared, edit);
    } else {
        finish(prepared);
    }
}

void ChangeJob::rebuildOnce() {
    begin();
    if (needsRebuilding()) {
        rebuildFirst([](const PhoneState&) {});
    } else {
        PreparedChange nothing;
        nothing.plan.afterwards = namesAndSizes(state_.ringtones);
        watcher_.done({state_, nothing});
    }
}

void ChangeJob::rebuildFirst(const Edit& edit) {
    const auto repaired = repair(RepairCause::Unlisted, edit);
    if (!repaired) {
        throw Failure(FailureKind::WouldLoseRingtones,
                      fmt::format("the catalogue of {} cannot be rebuilt without losing ringtones",
                                  state_.facts.label()),
                      "Copy its files off the phone first (vesk backup). Nothing was changed on "
                      "the phone.");
    }
    finishRepaired(*repaired);
}

/// Does with the phone put right what would lose ringtones on the phone as it is.
void ChangeJob::repairInstead(const PreparedChange& losing, const Edit& edit) {
    if (!rules_.keeps) {
        throw wouldLose(state_.facts, losing.plan,
                        "Without --no-backup they are put right first, with copies in the safe.");
    }
    std::optional<Repair> repaired;
    try {
        repaired = repair(RepairCause::WouldLose, edit);
    } catch (const Failure& failure) {
        if (failure.kind() != FailureKind::CannotKeep) {
            throw;
        }
        throw wouldLose(state_.facts, losing.plan,
                        fmt::format("They could be put right, but {}. Make room for copies here.",
                                    failure.what()));
    }
    if (!repaired) {
        throw wouldLose(state_.facts, losing.plan,
                        "No names were found with which they stay. Copy their files off the phone "
                        "first (vesk backup).");
    }
    finishRepaired(*repaired);
}

std::optional<Repair> ChangeJob::repair(RepairCause cause, const Edit& edit) {
    Piece piece(*this);
    auto repaired = planRepair(phone_, safeKeeping(), state_, cause, edit);
    piece.listener().ended();
    if (piece.listener().cancels()) {
        throw Failure(FailureKind::Cancelled, "cancelled; nothing was changed on the phone");
    }
    return repaired;
}

void ChangeJob::finishRepaired(const Repair& repair) {
    const PlannedChange planned{state_, repair.change, &repair};
    requireSpace(state_.facts, repair.change.plan);
    watcher_.planned(planned);
    if (!rules_.isDryRun && repair.change.plan.changesAnything) {
        carryOut(repair);
    }
    watcher_.done(planned);
}

void ChangeJob::finish(const PreparedChange& prepared) {
    const PlannedChange planned{state_, prepared};
    requireSpace(state_.facts, prepared.plan);
    watcher_.planned(planned);
    if (!rules_.isDryRun && prepared.plan.changesAnything) {
        carryOut(prepared);
    }
    watcher_.done(planned);
}

void ChangeJob::carryOut(const PreparedChange& prepared) {
    Piece piece(*this);
    submit(phone_, state_, prepared, piece.listener(), keeping_ ? &*keeping_ : nullptr);
}

void ChangeJob::carryOut(const Repair& repair) {
    Piece piece(*this);
    piece.listener().stage(SyncStage::WaitingForLock);
    mayCancel_ = true;
    krl::engine::carryOut(phone_, *keeping_, state_.facts, repair);
    mayCancel_ = false;
    piece.listener().ended();
    if (keeping_->leftBehind() > 0) {
        piece.listener().leavesBehind(keeping_->leftBehind());
    }
}

} // namespace krl::engine
