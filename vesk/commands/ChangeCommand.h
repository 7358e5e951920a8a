#pragma once

#include "engine/change/ChangeJob.h"
#include "vesk/invocation/Options.h"
#include "vesk/terminal/SyncDisplay.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

namespace vesk {

/// Shows or carries out a change of a phone's ringtones and says what came of it.
class ChangeCommand : private ChangeWatcher {
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
    std::unique_ptr<ChangeListener> begins() override;
    void endedBrokenJob(const SafeKeeping::Recovered& job) override;
    void beginsAgain(const std::string& reason) override;
    void read(const PhoneState& state) override;
    void planned(const PlannedChange& planned) override;
    void done(const PlannedChange& done) override;

    void noteWhatADryRunLeaves();
    void showPlan(const Plan& plan);
    void report(const PlannedChange& done);
    std::string summary(const PlannedChange& done) const;

    const Options& options_;
    Output& output_;
    std::map<std::string, std::function<Json()>> reported_;
    OpenPhone phone_;
    ChangeJob job_;
};

} // namespace vesk
