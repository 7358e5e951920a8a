#include "engine/jobs/PhoneJobs.h"

#include <algorithm>
#include <utility>

namespace krl::engine {
namespace {

/// A phone and its safe, with nothing left undone from earlier.
class SafeWorkplace {
public:
    SafeWorkplace(const std::string& udid, const WorkWatch& watch)
        : phone_({.udid = udid}), safe_(phone_, restoreWatch(watch), [&watch] {
              watch.progress({.stage = WorkProgress::Stage::WaitingForLock});
          }) {}

    SafePhone& safe() { return safe_; }

    std::optional<Ending> endBrokenJob(Wish wish) {
        const auto journal = safe_.safe().journal();
        return journal ? std::optional(safe_.end(*journal, wish)) : std::nullopt;
    }

private:
    OpenPhone phone_;
    SafePhone safe_;
};

RingtoneChanges undo(const std::string& udid, const WorkWatch& watch, bool isForced) {
    SafeWorkplace phone(udid, watch);
    const auto broken = phone.safe().safe().journal();
    const auto ending = phone.endBrokenJob(Wish::Either);
    if (broken && broken->undoes && ending != Ending::ChangedByOthers) {
        return {}; // what was broken off is what is asked for again
    }
    auto request = undoingLast(phone.safe().safe());
    if (!request) {
        throw nothingToUndo(phone.safe().facts());
    }
    request->isForced = isForced;
    return phone.safe().restore(*request).changes;
}

} // namespace

std::vector<PastJob> pastJobs(const std::string& udid) {
    std::vector<PastJob> result;
    if (!knowsPhone(udid)) {
        return result;
    }
    PhoneSafe safe(udid);
    const History history = safe.history();
    for (auto job = history.jobs.rbegin(); job != history.jobs.rend(); ++job) {
        result.push_back(
            {job->time, job->what,
             ringtoneChanges(safe, safe.snapshot(job->before), safe.snapshot(job->after)),
             job->isUndone, job->before});
    }
    return result;
}

std::optional<Ending> endBrokenJob(const std::string& udid, Wish wish, const WorkWatch& watch) {
    return SafeWorkplace(udid, watch).endBrokenJob(wish);
}

RingtoneChanges undoLast(const std::string& udid, const WorkWatch& watch) {
    return undo(udid, watch, /*isForced=*/false);
}

RingtoneChanges undoLastByForce(const std::string& udid, const WorkWatch& watch) {
    return undo(udid, watch, /*isForced=*/true);
}

RingtoneChanges goBackTo(const std::string& udid, const Digest& before, const WorkWatch& watch) {
    SafeWorkplace phone(udid, watch);
    PhoneSafe& safe = phone.safe().safe();
    phone.endBrokenJob(Wish::Either);
    const History history = safe.history();
    if (std::none_of(history.jobs.begin(), history.jobs.end(),
                     [&](const Job& job) { return job.before == before; })) {
        throw Failure(FailureKind::NothingKept, "the state before that sync is not kept any more");
    }
    RestorationRequest request{.what = "restore", .target = safe.snapshot(before), .own = {}};
    if (history.left) {
        request.own.add(safe.snapshot(*history.left));
    }
    return phone.safe().restore(request).changes;
}

} // namespace krl::engine
