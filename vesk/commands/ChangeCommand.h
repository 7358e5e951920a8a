#pragma once

#include "engine/repair/Repair.h"
#include "vesk/invocation/Options.h"
#include "vesk/terminal/SyncDisplay.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace vesk {

/// Shows or carries out a change of a phone's ringtones and says what came of it.
class ChangeCommand {
public:
    /// @param what  the command, as the history has it
    ChangeCommand(const Options& options, Output& output, std::string what);

    OpenPhone& phone() { return phone_; }

    /// Puts something of the command's own into the document of what was done.
    void alsoReports(const char* key, std::function<Json()> value) {
        reported_.emplace(key, std::move(value));
    }

    /// Reads the phone, edits the working list and does what comes of it.
    ExitCode run(const Edit& edit);

    /// Reads the phone, lists again what nothing lists any more, and does nothing else.
    ExitCode rebuild();

private:
    class Shown;

    ExitCode runAttempts(const std::function<void()>& once);
    void keep();
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
    void showPlan(const Plan& plan);
    void report(const PreparedChange& prepared, const Repair* repair = nullptr);
    std::string spaceText(const Plan& plan) const;
    std::string summary(const PreparedChange& prepared, const Repair* repair) const;

    const Options& options_;
    Output& output_;
    const std::string what_;
    std::map<std::string, std::function<Json()>> reported_;
    OpenPhone phone_;
    PhoneState state_;
    std::optional<SafeKeeping> keeping_;
    SyncDisplay* display_ = nullptr; ///< while there is one
    bool mayCancel_ = false;         ///< what the safe does at this moment
};

} // namespace vesk
