#include "engine/sync/Submission.h"

#include "engine/errors/Status.h"
#include "engine/phones/RemovalWatch.h"
#include "engine/restore/HeldSyncLock.h"
#include "engine/sync/Aftermath.h"
#include "engine/sync/Guard.h"
#include "engine/sync/Intentions.h"
#include "engine/sync/SyncReports.h"
#include "engine/sync/SyncRun.h"

#include <fmt/format.h>

#include <map>
#include <memory>
#include <optional>
#include <utility>

namespace krl::engine {
namespace {

class Submission {
public:
    Submission(OpenPhone& phone, const PhoneState& before, const PreparedChange& change,
               SyncListener& listener, SafeKeeping* keeping)
        : phone_(phone), before_(before), change_(change), listener_(listener), keeping_(keeping),
          reports_(change.plan, listener, [this] { return isPulledOut(); }),
          aftermath_(phone, before, change, reports_) {}

    void run() {
        const auto failure = carryOutOrTakeBack();
        phone_.disconnect();
        listener_.ended();
        const bool isCancelled = reports_.isCancelled();
        const bool isDone = !guard_.isStopped() && !isCancelled && !failure;
        const auto ending = settle(isDone ? Wish::Finish : Wish::TakeBack);
        // Calls that a cancel has ended look to the guard like a phone that says other things.
        if (isCancelled) {
            throw aftermath_.cancelled();
        }
        if (guard_.isStopped()) {
            throw aftermath_.stopped(guard_.reason(), guard_.hasChanged());
        }
        if (failure) {
            throw aftermath_.failed(*failure);
        }
        if (ending == Ending::TakenBack) {
            throw takenBack();
        }
        verify();
        tellOfRest(ending);
    }

private:
    std::optional<std::string> carryOutOrTakeBack() {
        try {
            return carryOut();
        } catch (const Failure&) {
            settle(Wish::TakeBack);
            throw;
        }
    }

    /// Has the safe put right what went wrong. Where it cannot, the phone is looked at all the same,
    /// and the next command tries again.
    std::optional<Ending> settle(Wish wish) {
        if (keeping_ == nullptr) {
            return std::nullopt;
        }
        std::optional<Ending> ending;
        try {
            ending =
                keeping_->finish(wish, [this] { return std::make_shared<HeldSyncLock>(phone_); });
        } catch (const Failure&) {
            // What remains is told below.
        }
        aftermath_.leaveToSafe(ending);
        return ending;
    }

    void tellOfRest(std::optional<Ending> ending) {
        const size_t left = ending ? keeping_->leftBehind() : guard_.leftBehind();
        if (left > 0) {
            listener_.leavesBehind(left);
        } else if (ending == Ending::Finished) {
            listener_.wasPutRight();
        }
    }

    Failure takenBack() const {
        return {FailureKind::SyncFailed,
                fmt::format("the sync of {} could not be finished, because the phone did not take "
                            "its new catalogue; it has been put back as it was before",
                            before_.facts.label()),
                "\"vesk info\" shows the free space. Run the same command again once there is "
                "enough."};
    }

    /// @return why it failed
    std::optional<std::string> carryOut() {
        // A phone closes a connection on which nothing was asked for a while, but for files.
        phone_.disconnect();
        phone_.keepOpen();
        am_device* const device = phone_.phone()._rawDevice();
        {
            const layer::Redirection redirection(device, guard_);
            begin();
        }
        keep();
        const layer::Redirection redirection(device, guard_);
        guard_.begin();
        makeReadyForSync();
        return runSync(
            tones_, [this](const SyncStep& step) noexcept { return answer(step); },
            [this]() noexcept { pass(); });
    }

    /// The library's removals cannot be cancelled, but the guard lets none of them through.
    bool answer(const SyncStep& step) noexcept {
        const bool goesOn = reports_.answer(step, guard_.isStopped());
        if (reports_.isCancelled() && SyncReports::isRemoval(step)) {
            guard_.cancel();
        }
        return goesOn;
    }

    /// The news that the thread's own run loop has of phones wait for the end of the sync.
    bool isPulledOut() {
        if (!removal_) {
            removal_.emplace(phone_.phone()._rawDevice());
        }
        return removal_->isGone();
    }

    /// Shows how far a file is, and breaks it off. Not every provider can.
    void pass() noexcept {
        am_device* const device = phone_.phone()._rawDevice();
        const uint64_t bytes =
            AMDeviceGetTransferredBytes == nullptr ? 0 : AMDeviceGetTransferredBytes(device);
        if (reports_.pass(bytes) && AMDeviceCancelCalls != nullptr) {
            AMDeviceCancelCalls(device);
        }
    }

    /// Takes the sync lock before the sync does: that one goes on without it when it cannot be had.
    void begin() {
        listener_.stage(SyncStage::WaitingForLock);
        KRTErrorClear();
        if (phone_.phone().open()) {
            listener_.ended();
            throw phone_.readFailure("the phone cannot be opened");
        }
        if (phone_.phone().beginSync() != 1) {
            throw notBegun(lastFailureText());
        }
        if (listener_.cancels()) {
            end();
            throw Failure(FailureKind::Cancelled, "cancelled; nothing was changed on the phone");
        }
        if (!guard_.hasLock()) {
            listener_.goesOnWithoutLock();
        }
        requireAsPlanned();
    }

    /// Over a connection of its own, beside the guard: it has names of any bytes.
    void keep() {
        if (keeping_ == nullptr) {
            return;
        }
        try {
            keeping_->begin(intentionOf(change_.plan));
        } catch (const PhoneFileFailure& failure) {
            throw notBegun(failure.what());
        } catch (const Failure&) {
            end();
            throw;
        }
    }

    /// Another program may have written since the plan was made, and have held the lock for that.
    void requireAsPlanned() {
        bool isAsPlanned = false;
        try {
            isAsPlanned = isAsRead(phone_, before_);
        } catch (const Failure& failure) {
            end();
            throw;
        }
        if (!isAsPlanned) {
            end();
            throw ChangedMeanwhile(before_.facts.label());
        }
    }

    void makeReadyForSync() {
        const bool dropsCatalogue = change_.plan.count(Operation::Kind::RemoveCatalogue) > 0;
        // There is no sync of a list that cannot be loaded.
        const auto lists = tones_->generateChangeLists();
        const auto added =
            cf::adopt(CFDictionaryCreateCopy(nullptr, cf::dictionaryAt(lists.get(), kAddedList)));
        KRTErrorClear();
        if (makeReady(phone_, before_, dropsCatalogue)) {
            throw notBegun(lastFailureText());
        }
        if (dropsCatalogue) {
            listener_.stage(SyncStage::CatalogueDropped);
            tones_->rebuildRingtoneListFromOriginal();
            for (const auto& [name, ringtone] : cf::pairs(added.get())) {
                tones_->addRingtone(
                    static_cast<CFMutableDictionaryRef>(const_cast<void*>(ringtone)));
            }
        }
    }

    Failure notBegun(const std::string& reason) {
        end();
        const bool gone = phone_.isGone();
        return {
            gone ? FailureKind::PhoneGone : FailureKind::CannotBegin,
            fmt::format("the sync on {} could not begin: {}", before_.facts.label(),
                        gone ? "the phone was pulled out" : reason),
            "Another program may be syncing the phone, or it is going away. Nothing was changed "
            "on it. Close the other program, plug the phone in and try again."};
    }

    /// Gives the sync lock back without a sync.
    void end() {
        phone_.phone().endSync();
        phone_.phone().close();
        listener_.ended();
    }

    /// Over a new connection: what the sync itself reads at its end, when the phone has gone, is an
    /// empty list.
    void verify() {
        std::map<std::string, uint64_t> now;
        bool catalogueIsUnreadable = false;
        try {
            now = namesAndSizes(phone_.ringtones());
            if (now != change_.plan.afterwards) {
                catalogueIsUnreadable = readRingtones(phone_).catalogueIsUnreadable();
            }
        } catch (const Failure& failure) {
            throw failure.kind() == FailureKind::PhoneGone ? aftermath_.pulledOut()
                                                           : aftermath_.unverified(failure);
        }
        if (now != change_.plan.afterwards) {
            throw aftermath_.notAsWanted(now, catalogueIsUnreadable);
        }
    }

    OpenPhone& phone_;
    const std::shared_ptr<KRTRingtoneManager> tones_ = phone_.tones().shared_from_this();
    const PhoneState& before_;
    const PreparedChange& change_;
    SyncListener& listener_;
    SafeKeeping* keeping_;
    Guard guard_{before_, change_.plan};
    SyncReports reports_;
    Aftermath aftermath_;
    std::optional<RemovalWatch> removal_; ///< from the first pause on
};

} // namespace

void submit(OpenPhone& phone, const PhoneState& before, const PreparedChange& change,
            SyncListener& listener, SafeKeeping* keeping) {
    Submission(phone, before, change, listener, keeping).run();
}

} // namespace krl::engine
