#include "engine/sync/SyncReports.h"

#include <algorithm>
#include <iterator>
#include <thread>
#include <utility>

namespace krl::engine {
namespace {

/// The store's modes of a status report.
enum Mode : int32_t { kPreparing = 0, kRemoving = 3, kBeforeUploads = 4, kUploading = 5 };

} // namespace

SyncReports::SyncReports(const Plan& plan, SyncListener& listener, std::function<bool()> isGone)
    : listener_(listener), isGone_(std::move(isGone)) {
    std::copy_if(plan.operations.begin(), plan.operations.end(), std::back_inserter(uploads_),
                 [](const Operation& one) { return one.kind == Operation::Kind::Upload; });
    progress_.filesTotal = uploads_.size();
    progress_.bytesTotal = plan.uploadBytes;
}

std::set<std::string> SyncReports::filesBegun() const {
    std::set<std::string> files;
    for (size_t i = 0; i < uploadsBegun_; ++i) {
        files.insert(uploads_[i].file);
    }
    return files;
}

bool SyncReports::cancels() noexcept {
    isCancelled_ = isCancelled_ || listener_.cancels();
    return isCancelled_;
}

bool SyncReports::answer(const SyncStep& step, bool isStopped) noexcept {
    try {
        if (!isStopped && !answeredCancel_ && !reachedRemovals_ && canPauseBefore(step)) {
            pause();
        }
    } catch (...) {
        // As below.
    }
    answeredCancel_ = answeredCancel_ || isStopped || cancels();
    try {
        take(step);
    } catch (...) {
        // Progress that cannot be shown is no reason to stop a sync half-way.
    }
    return !answeredCancel_;
}

bool SyncReports::isRemoval(const SyncStep& step) {
    return step.mode == kRemoving;
}

bool SyncReports::canPauseBefore(const SyncStep& step) {
    return isRemoval(step) || (step.mode == kUploading && step.status == 1);
}

/// Stands still for as long as the listener says. Nothing is sent in this time, so that it does not
/// count for how long the rest will take, and a phone that was pulled out fails the next request.
void SyncReports::pause() {
    constexpr std::chrono::milliseconds kMoment{50};
    if (!listener_.pauses() || isGone_()) {
        return;
    }
    const auto begin = Clock::now();
    listener_.stage(SyncStage::Paused);
    while (listener_.pauses() && !cancels() && !isGone_()) {
        std::this_thread::sleep_for(kMoment);
    }
    start_ += Clock::now() - begin;
}

bool SyncReports::pass(uint64_t bytes) noexcept {
    if (!isUploading_ || answeredCancel_) {
        return false;
    }
    try {
        move(bytes);
    } catch (...) {
        // As above.
    }
    answeredCancel_ = cancels();
    return answeredCancel_;
}

void SyncReports::move(uint64_t bytes) {
    const uint64_t all = uploads_.at(progress_.filesDone).bytes;
    const uint64_t moved = bytes == bytesOfLastFile_ ? 0 : std::min(bytes, all);
    if (moved > 0) {
        Progress progress = progress_;
        progress.bytesDone += moved;
        progress.elapsedSeconds = elapsed();
        listener_.fileMoves(progress);
    }
}

double SyncReports::elapsed() const {
    return std::chrono::duration<double>(Clock::now() - start_).count();
}

void SyncReports::take(const SyncStep& step) {
    switch (step.mode) {
    case kPreparing:
        ++preparingReports_;
        listener_.stage(SyncStage::Preparing);
        break;
    case kBeforeUploads:
        start_ = Clock::now();
        break;
    case kUploading:
        takeUpload(step.status == 1, step.name);
        break;
    case kRemoving:
        // One that is cancelled before the first removal has none.
        reachedRemovals_ = reachedRemovals_ || !isCancelled_;
        if (reachedRemovals_) {
            listener_.stage(SyncStage::Removing);
        }
        break;
    default:
        break;
    }
}

void SyncReports::takeUpload(bool begins, const std::string& name) {
    progress_.elapsedSeconds = elapsed();
    isUploading_ = begins;
    if (begins) {
        // One that is answered with a cancel is not begun.
        uploadsBegun_ += answeredCancel_ ? 0U : 1U;
        progress_.current = name;
        listener_.fileBegins(progress_);
    } else {
        bytesOfLastFile_ = uploads_.at(progress_.filesDone).bytes;
        progress_.bytesDone += bytesOfLastFile_;
        ++progress_.filesDone;
        listener_.fileEnds(progress_);
    }
}

} // namespace krl::engine
