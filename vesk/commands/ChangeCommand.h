#pragma once

#include "engine/plan/Change.h"
#include "engine/restore/SafeKeeping.h"
#include "engine/state/PhoneState.h"
#include "vesk/invocation/Options.h"
#include "vesk/terminal/SyncDisplay.h"

#include <functional>
#include <optional>
#include <string>

namespace vesk {

/// Shows or carries out a change of a phone's ringtones and says what came of it.
class ChangeCommand {
public:
    /// Edits the working list of a phone that is in this state.
    using Edit = std::function<void(const PhoneState& state)>;

    /// @param what  the command, as the history has it
    ChangeCommand(const Options& options, Output& output, std::string what);

    OpenPhone& phone() { return phone_; }

    /// Reads the phone, edits the working list and does what comes of it.
    ExitCode run(const Edit& edit);

private:
    class Shown;

    void keep();
    RestoreWatch watch();
    void attemptOnce(const Edit& edit);
    void carryOut(const PreparedChange& prepared);
    void showPlan(const Plan& plan);
    void report(const PreparedChange& prepared);
    std::string spaceText(const Plan& plan) const;
    std::string summary(const PreparedChange& prepared) const;

    const Options& options_;
    Output& output_;
    const std::string what_;
    OpenPhone phone_;
    PhoneState state_;
    std::optional<SafeKeeping> keeping_;
    SyncDisplay* display_ = nullptr; ///< while there is one
};

} // namespace vesk
