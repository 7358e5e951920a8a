#include "engine/restore/SafeKeeping.h"

#include <utility>

namespace krl::engine {

SafeKeeping::SafeKeeping(am_device* device, const std::string& udid, std::string what,
                         RestoreWatch watch, Disk& disk)
    : device_(device), safe_(udid, stateFolder(), disk), what_(std::move(what)),
      watch_(std::move(watch)) {}

std::optional<SafeKeeping::Recovered> SafeKeeping::recover() {
    const auto journal = safe_.journal();
    if (!journal) {
        return std::nullopt;
    }
    PhoneFiles files(device_);
    Restorer restorer(files, safe_, watch_);
    return Recovered{endJob(safe_, restorer, *journal, Wish::Either, JobTime::Earlier),
                     journal->job};
}

Snapshot SafeKeeping::look() {
    PhoneFiles files(device_);
    return Restorer(files, safe_, watch_).look();
}

bool SafeKeeping::isStill(const Snapshot& then) {
    PhoneFiles files(device_);
    return sameContents(takeSnapshot(files, safe_, indexOf(then), watch_.reading), then);
}

void SafeKeeping::begin(const Intention& intention) {
    const Snapshot before = look();
    std::set<std::string> touched;
    for (const IntendedChange& change : intention.changes) {
        touched.insert(change.file);
        if (change.kind == IntendedChange::Kind::Move) {
            touched.insert(change.newFile);
        }
    }
    begin(before, afterwards(before, intention), std::move(touched));
}

void SafeKeeping::begin(const Snapshot& before, const Snapshot& after,
                        std::set<std::string> touched) {
    const Journal journal{.job = {what_, secondsNow(), safe_.keep(before), safe_.keep(after)},
                          .number = safe_.history().count + 1,
                          .touched = std::move(touched)};
    if (safe_.index() != indexOf(before)) {
        safe_.writeIndex(indexOf(before));
    }
    safe_.write(journal);
    journal_ = journal;
}

Snapshot SafeKeeping::afterwards(const Snapshot& before, const Intention& intention) {
    Snapshot after = before;
    after.hasFolder = true;
    ContentDigests digests;
    for (const IntendedChange& change : intention.changes) {
        auto file = after.files.extract(change.file);
        switch (change.kind) {
        case IntendedChange::Kind::Move:
            if (!file.empty()) {
                after.files.insert_or_assign(change.newFile, std::move(file.mapped()));
            }
            break;
        case IntendedChange::Kind::Write:
            after.files.insert_or_assign(
                change.file, Snapshot::File{change.source.empty()
                                                ? safe_.contents().put({})
                                                : safe_.contents().putFile(change.source, digests),
                                            {}});
            break;
        case IntendedChange::Kind::Remove:
            break;
        }
    }
    after.catalogue = safe_.contents().put(intention.catalogue);
    return after;
}

std::optional<Ending> SafeKeeping::finish(Wish wish, const TakeLock& takeLock) {
    if (!journal_) {
        return std::nullopt;
    }
    PhoneFiles files(device_);
    Restorer restorer(files, safe_, watch_);
    const Ending ending = endJob(safe_, restorer, *journal_, wish, JobTime::Now, takeLock);
    journal_.reset();
    leftBehind_ = restorer.leftBehind().size();
    return ending;
}

} // namespace krl::engine
