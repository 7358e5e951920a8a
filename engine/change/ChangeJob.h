#pragma once

#include "engine/change/ChangeWatcher.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

namespace krl::engine {

/// What a change may do.
struct ChangeRules {
    bool isForced = false; ///< it is made although ringtones are lost, or the firmware is unknown
    bool rebuilds = false; ///< files that the catalogue does not list are listed again with it
    bool keeps = true;     ///< what could be lost is kept on this computer
    std::optional<size_t> keptJobs = {}; ///< so many in the history; none: as before
    bool isDryRun = false;               ///< it is planned and not made
};

/// A change of a phone's ringtones, from the first look to the last: a job that was broken off is
/// ended first, what would be lost is put right or refused, and the rest is planned and carried out.
class ChangeJob {
public:
    /// @param what  the job's name in the history
    ChangeJob(OpenPhone& phone, const ChangeRules& rules, std::string what, ChangeWatcher& watcher);

    /// Reads the phone, edits the working list and does what comes of it.
    /// @throw Failure
    void run(const Edit& edit);

    /// Reads the phone, lists again what nothing lists any more, and does nothing else.
    /// @throw Failure
    void rebuild();

private:
    class Piece;

    void runAttempts(const std::function<void()>& once);
    void endBrokenJob();
    RestoreWatch watch();
    SafeKeeping& safeKeeping();

    bool needsRebuilding() const;
    void begin();
    void attemptOnce(const Edit& edit);
    void rebuildOnce();
    void finish(const PreparedChange& prepared);
    void finishRepaired(const Repair& repair);
    std::optional<Repair> repair(RepairCause cause, const Edit& edit);
    void repairInstead(const PreparedChange& losing, const Edit& edit);
    void rebuildFirst(const Edit& edit);
    void carryOut(const PreparedChange& prepared);
    void carryOut(const Repair& repair);

    OpenPhone& phone_;
    const ChangeRules rules_;
    const std::string what_;
    ChangeWatcher& watcher_;
    PhoneState state_;
    std::optional<SafeKeeping> keeping_;
    ChangeListener* listener_ = nullptr; ///< while there is a piece of work
    bool mayCancel_ = false;             ///< what the safe does at this moment
};

} // namespace krl::engine
