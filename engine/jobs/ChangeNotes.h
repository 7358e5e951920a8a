#pragma once

#include "engine/change/ChangeWatcher.h"
#include "engine/jobs/WorkProgress.h"

#include <cstddef>
#include <memory>
#include <string>

namespace krl::engine {

/// What was done.
struct ChangeDone {
    size_t added = 0;
    size_t removed = 0;
    size_t renamed = 0;
    size_t putRight = 0; ///< ringtones that a sync would have lost as they lay there
    bool changedAnything = false;
    bool wasTooLateToCancel = false;
    bool hadNoLock = false;   ///< another program held the sync lock all the while
    bool wasPutRight = false; ///< something had not arrived, and has then
    size_t leftBehind = 0;    ///< files that no catalogue lists and that the phone did not delete
};

/// Waits for a change, and notes what came of it.
class ChangeNotes : public ChangeWatcher {
public:
    /// @param watch  outlives it
    explicit ChangeNotes(const WorkWatch& watch) : watch_(watch) {}

    const ChangeDone& result() const { return result_; }

    std::unique_ptr<ChangeListener> begins() override;

    void endedBrokenJob(const SafeKeeping::Recovered& /*job*/) override {}

    void beginsAgain(const std::string& /*reason*/) override {}

    void read(const PhoneState& /*state*/) override {}

    void planned(const PlannedChange& /*planned*/) override {}

    void done(const PlannedChange& done) override;

private:
    const WorkWatch& watch_;
    ChangeDone result_;
};

} // namespace krl::engine
