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

void SafeKeeping::begin(const Intention& intention) {
    PhoneFiles files(device_);
    Restorer restorer(files, safe_, watch_);
    before_ = restorer.look();
    std::set<std::string> touched;
    const Snapshot after = afterwards(intention, touched);
    const Journal journal{.job = {what_, secondsNow(), safe_.keep(before_), safe_.keep(after)},
                          .number = safe_.history().count + 1,
                          .touched = std::move(touched)};
    if (safe_.index() != indexOf(before_)) {
        safe_.writeIndex(indexOf(before_));
    }
    safe_.write(journal);
    journal_ = journal;
}

Snapshot SafeKeeping::afterwards(const Intention& intention, std::set<std::string>& touched) {
    Snapshot after = before_;
    after.hasFolder = true;
    for (const IntendedChange& change : intention.changes) {
        touched.insert(change.file);
        auto file = after.files.extract(change.file);
        switch (change.kind) {
        case IntendedChange::Kind::Move:
            touched.insert(change.newFile);
            if (!file.empty()) {
                after.files.insert_or_assign(change.newFile, std::move(file.mapped()));
            }
            break;
        case IntendedChange::Kind::Write:
            after.files.insert_or_assign(
                change.file,
                Snapshot::File{change.source.empty() ? safe_.contents().put({})
                                                     : safe_.contents().putFile(change.source),
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
