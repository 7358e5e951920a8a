#include "vesk/commands/Commands.h"

#include "engine/restore/Backup.h"
#include "engine/restore/SafePhone.h"
#include "engine/values/Text.h"
#include "vesk/commands/PhoneJson.h"
#include "vesk/commands/UnfinishedJob.h"
#include "vesk/terminal/Interrupt.h"
#include "vesk/terminal/ProgressDisplay.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>
#include <type_traits>

namespace vesk {
namespace {

std::string timeText(uint64_t seconds) {
    return fmt::format("{:%Y-%m-%d %H:%M}", fmt::localtime(static_cast<std::time_t>(seconds)));
}

Json changesJson(const RingtoneChanges& changes) {
    return {{"added", changes.added},
            {"removed", changes.removed},
            {"replaced", changes.replaced},
            {"renamed", renamedJson(changes.renamed)}};
}

std::string moved(const char* what, uint64_t done, uint64_t total) {
    return fmt::format("{}: {} of {} ...", what, formatBytes(done), formatBytes(total));
}

Json stepJson(const RestoreStep& step) {
    Json json{{"operation", stepName(step.kind)}};
    if (!step.file.empty()) {
        json["file"] = utf8(codePoints(step.file));
    }
    if (!step.newFile.empty()) {
        json["newFile"] = utf8(codePoints(step.newFile));
    }
    json["bytes"] = step.content ? step.content->size : 0;
    return json;
}

/// A phone and its safe, on the terminal.
class ShownSafe {
public:
    ShownSafe(const Options& options, Output& output)
        : options_(options), output_(output), phone_(options.phone), display_(output),
          safe_(phone_, watch(),
                [this] { display_.stage("Waiting for the phone's sync lock ..."); }) {}

    const PhoneFacts& facts() const { return safe_.facts(); }

    PhoneSafe& safe() { return safe_.safe(); }

    Snapshot look() {
        return shown([this] { return safe_.look(); });
    }

    /// Ends a job that was broken off earlier.
    /// @return it, when there was one
    std::optional<Journal> endBrokenJob() {
        const auto journal = safe().journal();
        if (!journal) {
            return std::nullopt;
        }
        if (options_.dryRun) {
            noteUnfinishedJob(facts().udid, kPlanIsOfPhoneAsItIs, output_);
            return std::nullopt;
        }
        const Ending ending = interruptible([&] { return safe_.end(*journal, Wish::Either); });
        output_.warning(endingText(ending, journal->job));
        return ending == Ending::ChangedByOthers ? std::nullopt : journal;
    }

    /// Carries a restoration out; with --dry-run only works it out.
    SafePhone::Restored restore(const RestorationRequest& request) {
        return options_.dryRun ? shown([&] { return safe_.plan(request); })
                               : interruptible([&] { return safe_.restore(request); });
    }

private:
    /// Ctrl-C ends it between two requests.
    template <typename Action>
    std::invoke_result_t<Action> interruptible(Action action) {
        const DeedScope scope(OnInterrupt::FinishStep);
        return shown(action);
    }

    template <typename Action>
    std::invoke_result_t<Action> shown(Action action) {
        try {
            auto result = action();
            display_.clear();
            return result;
        } catch (const Failure&) {
            display_.clear();
            throw;
        }
    }

    RestoreWatch watch() {
        return {.reading =
                    [this](uint64_t done, uint64_t total) {
                        display_.stage(moved("Reading what the phone holds", done, total));
                    },
                .writing =
                    [this](uint64_t done, uint64_t total) {
                        display_.stage(moved("Putting back", done, total));
                    },
                .cancels = interrupted};
    }

    const Options& options_;
    Output& output_;
    OpenPhone phone_;
    ProgressDisplay display_;
    SafePhone safe_;
};

Table stepTable(const RestorePlan& plan) {
    Table table({{"OPERATION"}, {"FILE ON THE PHONE"}, {"BYTES", Table::Align::Right}});
    for (const RestoreStep& step : plan.steps) {
        table.add({stepName(step.kind),
                   step.newFile.empty() ? step.file : step.file + " -> " + step.newFile,
                   step.content ? std::to_string(step.content->size) : ""});
    }
    return table;
}

/// Says what came of a restoration, or would.
void report(const Options& options, Output& output, const PhoneFacts& facts,
            const SafePhone::Restored& restored, const std::string& what) {
    const RestorePlan& plan = restored.plan;
    const bool nothing = plan.steps.empty();
    if (options.dryRun && !nothing) {
        output.table(stepTable(plan));
    }
    if (options.dryRun && plan.isBlocked()) {
        output.warning("others have changed the phone's ringtones since: without --force nothing "
                       "would be put over them");
    }
    Json steps = Json::array();
    for (const RestoreStep& step : plan.steps) {
        steps.push_back(stepJson(step));
    }
    const char* result = nothing ? "nothing-to-do" : options.dryRun ? "dry-run" : "done";
    output.document({{"phone", phoneJson(facts)},
                     {"result", result},
                     {"operations", steps},
                     {"uploadBytes", plan.uploadBytes},
                     {"changes", changesJson(restored.changes)}});
    if (nothing) {
        output.summary(fmt::format("{}: nothing to do, it is as it was {}.", facts.label(), what));
    } else {
        output.summary(fmt::format(
            "{}: {} {}: {}.{}", facts.label(),
            options.dryRun ? "would be put back as it was" : "put back as it was", what,
            describe(restored.changes), options.dryRun ? " Dry run: nothing was changed." : ""));
    }
}

std::string jobText(const Job& job) {
    return fmt::format("before \"vesk {}\" of {}", job.what, timeText(job.time));
}

} // namespace

ExitCode runUndo(const Options& options, Output& output) {
    ShownSafe phone(options, output);
    const auto broken = phone.endBrokenJob();
    if (broken && broken->undoes) {
        // What was broken off is what is asked for again.
        output.summary(
            fmt::format("{}: the undo that was broken off is complete.", phone.facts().label()));
        output.document({{"phone", phoneJson(phone.facts())}, {"result", "done"}});
        return ExitCode::Success;
    }
    History history = phone.safe().history();
    auto request = undoingLast(phone.safe());
    if (!request) {
        throw nothingToUndo(phone.facts());
    }
    request->isForced = options.force;
    report(options, output, phone.facts(), phone.restore(*request), jobText(*history.last()));
    return ExitCode::Success;
}

ExitCode runRestore(const Options& options, Output& output) {
    ShownSafe phone(options, output);
    const Backup backup = readBackup(phone.safe(), options.arguments.front());
    phone.endBrokenJob();
    if (!sameUdid(backup.udid, phone.facts().udid)) {
        output.note(fmt::format("the backup is of another phone, \"{}\"", backup.phoneName));
    }
    RestorationRequest request{
        .what = "restore", .target = backup.snapshot, .own = {}, .isForced = options.force};
    const History history = phone.safe().history();
    if (history.left) {
        request.own.add(phone.safe().snapshot(*history.left));
    }
    report(options, output, phone.facts(), phone.restore(request),
           fmt::format("in the backup of {}", timeText(backup.time)));
    return ExitCode::Success;
}

ExitCode runBackup(const Options& options, Output& output) {
    ShownSafe phone(options, output);
    const std::string& folder = options.arguments.front();
    const Backup backup{phone.look(), secondsNow(), phone.facts().udid, phone.facts().name};
    writeBackup(phone.safe(), backup, folder);
    uint64_t bytes = 0;
    for (const auto& [name, file] : backup.snapshot.files) {
        bytes += file.content.size;
    }
    const size_t files = backup.snapshot.files.size();
    output.summary(fmt::format("{}: {} ({}) in \"{}\".", phone.facts().label(),
                               counted(files, "file"), formatBytes(bytes), folder));
    output.document({{"phone", phoneJson(phone.facts())},
                     {"folder", folder},
                     {"files", files},
                     {"bytes", bytes}});
    return ExitCode::Success;
}

ExitCode runHistory(const Options& options, Output& output) {
    const std::string& said = options.phone.udid;
    const bool isUdid = !said.empty() && (isWholeUdid(said) || knowsPhone(said));
    const std::string udid = isUdid ? said : OpenPhone(options.phone).facts().udid;
    std::optional<PhoneSafe> safe;
    if (knowsPhone(udid)) {
        safe.emplace(udid);
    }
    const History history = safe ? safe->history() : History{};
    Table table({{"TIME"}, {"COMMAND"}, {"RINGTONES"}, {""}});
    Json jobs = Json::array();
    for (auto job = history.jobs.rbegin(); job != history.jobs.rend(); ++job) {
        const RingtoneChanges changes =
            ringtoneChanges(*safe, safe->snapshot(job->before), safe->snapshot(job->after));
        table.add(
            {timeText(job->time), job->what, describe(changes), job->isUndone ? "undone" : ""});
        jobs.push_back({{"time", job->time},
                        {"command", job->what},
                        {"undone", job->isUndone},
                        {"changes", changesJson(changes)}});
    }
    if (history.jobs.empty()) {
        output.summary("No jobs on this phone are known.");
    } else {
        output.table(table);
    }
    output.document({{"udid", udid}, {"jobs", jobs}});
    return ExitCode::Success;
}

} // namespace vesk
