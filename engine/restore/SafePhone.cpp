#include "engine/restore/SafePhone.h"

#include "engine/restore/HeldSyncLock.h"

#include <fmt/format.h>

#include <utility>

namespace krl::engine {

SafePhone::SafePhone(OpenPhone& phone, RestoreWatch watch, std::function<void()> waits)
    : phone_(phone), facts_(phone.facts()), safe_(facts_.udid), watch_(std::move(watch)),
      waits_(std::move(waits)) {}

Snapshot SafePhone::look() {
    Snapshot now;
    withRestorer([&](Restorer& restorer) {
        now = restorer.look();
        safe_.writeIndex(indexOf(now));
    });
    return now;
}

Ending SafePhone::end(const Journal& journal, Wish wish) {
    Ending ending = Ending::NothingHappened;
    underLock([&](Restorer& restorer) {
        ending = endJob(safe_, restorer, journal, wish, JobTime::Earlier);
    });
    return ending;
}

SafePhone::Restored SafePhone::plan(const RestorationRequest& request) {
    Restored result;
    withRestorer([&](Restorer& restorer) {
        result = restored(request, Restoration(safe_, restorer, request));
    });
    return result;
}

SafePhone::Restored SafePhone::restore(const RestorationRequest& request) {
    Restored result;
    underLock([&](Restorer& restorer) {
        Restoration restoration(safe_, restorer, request);
        restoration.carryOut();
        result = restored(request, restoration);
    });
    return result;
}

SafePhone::Restored SafePhone::restored(const RestorationRequest& request,
                                        const Restoration& restoration) {
    return {restoration.plan(), ringtoneChanges(safe_, restoration.now(), request.target)};
}

void SafePhone::withRestorer(const std::function<void(Restorer&)>& action) {
    try {
        PhoneFiles files(phone_.phone()._rawDevice());
        Restorer restorer(files, safe_, watch_);
        action(restorer);
    } catch (const PhoneFileFailure& failure) {
        if (!phone_.isGone()) {
            throw;
        }
        throw Failure(FailureKind::PhoneGone,
                      fmt::format("{} was pulled out: {}", facts_.label(), failure.what()),
                      "Plug it in again and run the same command again: what was broken off is "
                      "put right first.");
    }
}

void SafePhone::underLock(const std::function<void(Restorer&)>& action) {
    waits_();
    const HeldSyncLock lock(phone_);
    withRestorer(action);
}

std::optional<RestorationRequest> undoingLast(PhoneSafe& safe) {
    History history = safe.history();
    const Job* const last = history.last();
    if (last == nullptr) {
        return std::nullopt;
    }
    RestorationRequest request{
        .what = "undo", .target = safe.snapshot(last->before), .own = {}, .undoes = true};
    request.own.add(safe.snapshot(last->after));
    return request;
}

Failure nothingToUndo(const PhoneFacts& facts) {
    return {FailureKind::NothingKept, fmt::format("there is nothing to undo on {}", facts.label()),
            "Five jobs are kept for each phone (vesk history). Nothing was changed on the phone."};
}

} // namespace krl::engine
