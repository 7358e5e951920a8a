#include "engine/jobs/ChangeNotes.h"

namespace krl::engine {
namespace {

using Stage = WorkProgress::Stage;

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
        case SyncStage::Paused:
            watch_.progress({.stage = Stage::Paused});
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

    bool pauses() noexcept override { return *watch_.isPaused; }

private:
    const WorkWatch& watch_;
    ChangeDone& done_;
};

} // namespace

std::unique_ptr<ChangeListener> ChangeNotes::begins() {
    return std::make_unique<Listener>(watch_, result_);
}

void ChangeNotes::done(const PlannedChange& done) {
    result_.added = done.change.added.size();
    result_.removed = done.change.removed.size();
    result_.renamed = done.change.renamed.size();
    result_.putRight = done.repair == nullptr ? 0 : done.repair->ringtones.size();
    result_.changedAnything = done.change.plan.changesAnything;
    result_.wasTooLateToCancel = result_.changedAnything && *watch_.isCancelled;
}

} // namespace krl::engine
