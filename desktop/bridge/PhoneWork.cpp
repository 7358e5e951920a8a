#include "desktop/bridge/PhoneWork.h"

#include "engine/fetch/RingtoneFetch.h"
#include "engine/values/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace krl::desktop {

using namespace engine;

namespace {

using Stage = WorkProgress::Stage;

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

/// A safe that cannot be read is said by those who need it.
template <typename T>
T orNothing(const std::function<T()>& look) {
    try {
        return look();
    } catch (const Failure&) {
        return {};
    }
}

WorkProgress sending(const Progress& progress) {
    return {.stage = Stage::Sending,
            .filesDone = progress.filesDone,
            .filesTotal = progress.filesTotal,
            .bytesDone = progress.bytesDone,
            .bytesTotal = progress.bytesTotal,
            .secondsLeft = progress.secondsLeft(),
            .current = progress.current};
}

WorkProgress bytesOf(Stage stage, uint64_t done, uint64_t total) {
    return {.stage = stage, .bytesDone = done, .bytesTotal = total};
}

/// Passes on how far a change is.
class Listener : public ChangeListener {
public:
    Listener(const WorkWatch& watch, ChangeDone& done) : watch_(watch), done_(done) {}

    void stage(SyncStage stage) override {
        switch (stage) {
        case SyncStage::WaitingForLock:
            watch_.progress({.stage = Stage::WaitingForLock});
            break;
        case SyncStage::CatalogueDropped:
        case SyncStage::Preparing:
            watch_.progress({.stage = Stage::Starting});
            break;
        case SyncStage::Removing:
            watch_.progress({.stage = Stage::Finishing});
            break;
        }
    }

    void fileBegins(const Progress& progress) override { watch_.progress(sending(progress)); }

    void fileMoves(const Progress& progress) override { watch_.progress(sending(progress)); }

    void fileEnds(const Progress& progress) override { watch_.progress(sending(progress)); }

    void moves(SafeWork work, uint64_t done, uint64_t total) override {
        watch_.progress(
            bytesOf(work == SafeWork::Reading ? Stage::Reading : Stage::PuttingBack, done, total));
    }

    void goesOnWithoutLock() override { done_.hadNoLock = true; }

    void leavesBehind(size_t files) override { done_.leftBehind = files; }

    void wasPutRight() override { done_.wasPutRight = true; }

    void ended() override {}

    bool cancels() noexcept override { return *watch_.isCancelled; }

private:
    const WorkWatch& watch_;
    ChangeDone& done_;
};

/// Waits for a change and notes what came of it.
class Watcher : public ChangeWatcher {
public:
    explicit Watcher(const WorkWatch& watch) : watch_(watch) {}

    const ChangeDone& result() const { return result_; }

    std::unique_ptr<ChangeListener> begins() override {
        return std::make_unique<Listener>(watch_, result_);
    }

    void endedBrokenJob(const SafeKeeping::Recovered& /*job*/) override {}

    void beginsAgain(const std::string& /*reason*/) override {}

    void read(const PhoneState& /*state*/) override {}

    void planned(const PlannedChange& /*planned*/) override {}

    void done(const PlannedChange& done) override {
        result_.added = done.change.added.size();
        result_.removed = done.change.removed.size();
        result_.renamed = done.change.renamed.size();
        result_.putRight = done.repair == nullptr ? 0 : done.repair->ringtones.size();
        result_.changedAnything = done.change.plan.changesAnything;
        result_.wasTooLateToCancel = result_.changedAnything && *watch_.isCancelled;
    }

private:
    const WorkWatch& watch_;
    ChangeDone result_;
};

void requireFree(const PhoneState& state, const WantedChange& wanted) {
    std::set<std::string> going(wanted.removed.begin(), wanted.removed.end());
    const Spellings spellings(state.ringtones);
    std::vector<std::string> taken;
    for (const auto& [from, to] : wanted.renamed) {
        const auto there = spellings.of(to);
        if (there && *there != from && spellings.of(from)) {
            taken.push_back(*there);
        }
        going.insert(from);
    }
    for (const LocalRingtone& ringtone : wanted.added) {
        const auto there = spellings.of(ringtone.name);
        if (there && !going.contains(*there)) {
            taken.push_back(*there);
        }
    }
    if (!taken.empty()) {
        throw Failure(FailureKind::NameTaken,
                      fmt::format("{} already has {}", state.facts.label(), quotedList(taken)));
    }
}

void rename(KRTRingtoneManager& tones, const PhoneState& state,
            const std::vector<std::pair<std::string, std::string>>& renamed) {
    const std::set<std::string> there = namesOf(state.ringtones);
    for (const auto& [from, to] : renamed) {
        if (there.contains(from)) {
            renameRingtone(tones, from, to);
        }
    }
}

std::vector<std::string> stillThere(const PhoneState& state,
                                    const std::vector<std::string>& names) {
    const std::set<std::string> there = namesOf(state.ringtones);
    std::vector<std::string> result;
    std::copy_if(names.begin(), names.end(), std::back_inserter(result),
                 [&](const std::string& name) { return there.contains(name); });
    return result;
}

RestoreWatch restoreWatch(const WorkWatch& watch) {
    return {.reading =
                [&watch](uint64_t done, uint64_t total) {
                    watch.progress(bytesOf(Stage::Reading, done, total));
                },
            .writing =
                [&watch](uint64_t done, uint64_t total) {
                    watch.progress(bytesOf(Stage::PuttingBack, done, total));
                },
            .cancels = [&watch] { return watch.isCancelled->load(); }};
}

/// A phone and its safe, with nothing left undone from earlier.
class SafeWorkplace {
public:
    SafeWorkplace(const std::string& udid, const WorkWatch& watch)
        : phone_({.udid = udid}), safe_(phone_, restoreWatch(watch), [&watch] {
              watch.progress({.stage = Stage::WaitingForLock});
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

} // namespace

std::optional<double> WorkProgress::fraction() const {
    if (bytesTotal > 0) {
        return static_cast<double>(bytesDone) / static_cast<double>(bytesTotal);
    }
    if (filesTotal > 0) {
        return static_cast<double>(filesDone) / static_cast<double>(filesTotal);
    }
    return std::nullopt;
}

PhoneReading readPhone(const std::string& udid) {
    OpenPhone phone({.udid = udid});
    PhoneState state = readRingtones(phone);
    return {.facts = state.facts,
            .totalBytes = PhoneFiles(phone.phone()._rawDevice()).totalBytes(),
            .ringtones = std::move(state.ringtones),
            .catalogueIsUnreadable = state.catalogueIsUnreadable(),
            .brokenJob = orNothing<std::optional<Job>>([&] { return unfinishedJob(udid); }),
            .history = orNothing<std::vector<PastJob>>([&] { return pastJobs(udid); })};
}

std::shared_ptr<NamelessFile> fetchSound(const std::string& udid, const PhoneRingtone& ringtone) {
    OpenPhone phone({.udid = udid});
    auto file = std::make_shared<NamelessFile>();
    try {
        PhoneFiles files(phone.phone()._rawDevice());
        readRingtone(files, ringtone, [&](std::string_view piece) { file->add(piece); });
    } catch (const PhoneFileFailure& failure) {
        if (phone.isGone()) {
            throw Failure(FailureKind::PhoneGone, failure.what());
        }
        throw;
    }
    return file;
}

ChangeDone changePhone(const std::string& udid, const WantedChange& wanted,
                       const WorkWatch& watch) {
    OpenPhone phone({.udid = udid});
    Watcher watcher(watch);
    ChangeJob job(phone, {.rebuilds = wanted.rebuilds}, "sync", watcher);
    job.run([&](const PhoneState& state) {
        requireFree(state, wanted);
        rename(phone.tones(), state, wanted.renamed);
        removeRingtones(phone.tones(), stillThere(state, wanted.removed));
        addRingtones(phone.tones(), wanted.added);
    });
    return watcher.result();
}

std::optional<Ending> endBrokenJob(const std::string& udid, Wish wish, const WorkWatch& watch) {
    return SafeWorkplace(udid, watch).endBrokenJob(wish);
}

RingtoneChanges undoLast(const std::string& udid, const WorkWatch& watch) {
    SafeWorkplace phone(udid, watch);
    const auto broken = phone.safe().safe().journal();
    const auto ending = phone.endBrokenJob(Wish::Either);
    if (broken && broken->undoes && ending != Ending::ChangedByOthers) {
        return {}; // what was broken off is what is asked for again
    }
    const auto request = undoingLast(phone.safe().safe());
    if (!request) {
        throw Failure(FailureKind::NothingKept, "there is nothing to undo");
    }
    return phone.safe().restore(*request).changes;
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

} // namespace krl::desktop
