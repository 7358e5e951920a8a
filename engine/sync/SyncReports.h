#pragma once

#include "engine/plan/Plan.h"
#include "engine/sync/SyncListener.h"
#include "engine/sync/SyncRun.h"

#include <chrono>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace krl::engine {

/// What a sync reported step by step, and the answers to it.
class SyncReports {
public:
    /// @param isGone  whether the phone was pulled out; asked while the sync stands still
    SyncReports(const Plan& plan, SyncListener& listener, std::function<bool()> isGone);

    /// Takes a step; whether to go on.
    /// @param isStopped  somebody else than the listener has ended the sync
    bool answer(const SyncStep& step, bool isStopped) noexcept;

    /// Whether a step is about what goes.
    static bool isRemoval(const SyncStep& step);

    /// A moment has passed within a step.
    /// @param bytes  how far the file that was opened last has come
    /// @return whether the upload under way is to be broken off; said once
    bool pass(uint64_t bytes) noexcept;

    /// Files that have arrived whole.
    size_t uploaded() const { return progress_.filesDone; }

    size_t uploadsPlanned() const { return progress_.filesTotal; }

    /// Catalogue entries whose renames were tried.
    size_t entriesRenamed() const { return preparingReports_ > 0 ? preparingReports_ - 1 : 0; }

    /// The name of the ringtone whose upload began last; empty before.
    const std::string& underWay() const { return progress_.current; }

    /// Files on the phone that were written to.
    std::set<std::string> filesBegun() const;

    bool reachedRemovals() const { return reachedRemovals_; }

    /// Whether the listener has cancelled it, before anything else ended it and before the removals.
    bool isCancelled() const { return isCancelled_ && !reachedRemovals_; }

private:
    using Clock = std::chrono::steady_clock;

    bool cancels() noexcept;
    static bool canPauseBefore(const SyncStep& step);
    void pause();
    void take(const SyncStep& step);
    void takeUpload(bool begins, const std::string& name);
    void move(uint64_t bytes);
    double elapsed() const;

    SyncListener& listener_;
    const std::function<bool()> isGone_;
    std::vector<Operation> uploads_;
    Progress progress_;
    Clock::time_point start_ = Clock::now();
    size_t preparingReports_ = 0;
    size_t uploadsBegun_ = 0;
    bool isUploading_ = false;
    uint64_t bytesOfLastFile_ = 0; ///< what is said until the next one is opened
    bool reachedRemovals_ = false;
    bool answeredCancel_ = false;
    bool isCancelled_ = false;
};

} // namespace krl::engine
