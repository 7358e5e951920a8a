#include "vesk/commands/Commands.h"

#include "engine/plan/Change.h"
#include "engine/restore/HeldSyncLock.h"
#include "engine/state/PhoneState.h"
#include "engine/sync/Attempts.h"
#include "engine/sync/Submission.h"
#include "engine/values/Text.h"
#include "vesk/commands/PhoneJson.h"
#include "vesk/commands/StrangeKeys.h"
#include "vesk/terminal/SyncDisplay.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <iterator>

namespace vesk {
namespace {

Json operationJson(const Operation& operation) {
    Json json{{"operation", operationName(operation.kind)}};
    const auto addText = [&](const char* key, const std::string& text) {
        if (!text.empty()) {
            json[key] = text;
        }
    };
    addText("file", operation.file);
    addText("newFile", operation.newFile);
    addText("ringtone", operation.name);
    addText("source", operation.source);
    json["bytes"] = operation.bytes;
    return json;
}

Table operationTable(const Plan& plan) {
    Table table(
        {{"OPERATION"}, {"FILE ON THE PHONE"}, {"BYTES", Table::Align::Right}, {"RINGTONE"}});
    for (const Operation& operation : plan.operations) {
        const bool moves = operation.kind == Operation::Kind::Rename;
        const bool catalogue = operation.kind == Operation::Kind::WriteCatalogue ||
                               operation.kind == Operation::Kind::RemoveCatalogue;
        const bool folder = operation.kind == Operation::Kind::CreateFolder;
        table.add({operationName(operation.kind),
                   moves       ? operation.file + " -> " + operation.newFile
                   : catalogue ? kCataloguePath
                               : operation.file,
                   folder ? "" : std::to_string(operation.bytes), operation.name});
    }
    return table;
}

void requireNothingLost(const PhoneFacts& facts, const Plan& plan, bool force) {
    std::vector<std::string> details;
    for (const std::string& name : plan.lost) {
        details.push_back(
            fmt::format("\"{}\": its entry in the new catalogue would not find its file", name));
    }
    for (const HiddenRingtone& hidden : plan.hidden) {
        details.push_back(fmt::format("\"{}\" ({}): the catalogue lists it in a form that is taken "
                                      "for a placeholder, a duplicate or damage",
                                      hidden.name, hidden.file));
    }
    if (!details.empty() && !force) {
        throw Failure(
            FailureKind::WouldLoseRingtones,
            fmt::format("this would lose {} that should stay on {}",
                        counted(details.size(), "ringtone"), facts.label()),
            "Copy their files off the phone first, or repeat with --force to let them go. "
            "Nothing was changed on the phone.",
            details);
    }
}

void requireKnownFirmware(const PhoneFacts& facts, bool force) {
    if (!isKnownFirmware(facts.firmware) && !force) {
        throw Failure(FailureKind::UnknownFirmware,
                      fmt::format("{} is not of a firmware that this is made for: custom ringtones "
                                  "are for 1.0.x and 1.1.x",
                                  facts.label()),
                      "The phone may not read what would be written. Repeat with --force to write "
                      "all the same. Nothing was changed on the phone.");
    }
}

void requireSpace(const PhoneFacts& facts, const Plan& plan) {
    if (facts.freeBytes && plan.spaceNeeded > *facts.freeBytes) {
        throw Failure(FailureKind::NoSpace,
                      fmt::format("{} has too little space: {} are free, {} are needed",
                                  facts.label(), formatBytes(*facts.freeBytes),
                                  formatBytes(plan.spaceNeeded)),
                      "New files are written before old ones are removed. Remove ringtones first "
                      "(vesk remove), or add fewer. Nothing was changed on the phone.");
    }
}

void warnOfStrays(const Plan& plan, Output& output) {
    if (!plan.strays.empty()) {
        output.warning(fmt::format("{} in the phone's ringtone folder, which no catalogue entry "
                                   "lists, will be deleted:",
                                   counted(plan.strays.size(), "file")),
                       plan.strays);
    }
}

std::string describeChange(const PreparedChange& change) {
    size_t replaced = 0;
    for (const std::string& name : change.added) {
        replaced += change.removed.contains(name) ? 1U : 0U;
    }
    std::vector<std::string> parts;
    const auto part = [&](size_t count, const char* what) {
        if (count > 0) {
            parts.push_back(fmt::format("{} {}", count, what));
        }
    };
    part(change.added.size() - replaced, "added");
    part(replaced, "replaced");
    part(change.removed.size() - replaced, "removed");
    part(change.plan.moved, "moved");
    return parts.empty() ? "put in order" : fmt::format("{}", fmt::join(parts, ", "));
}

/// Shows or carries out a change and says what came of it.
class ChangeCommand {
public:
    ChangeCommand(const Options& options, Output& output, std::string what)
        : options_(options), output_(output), what_(std::move(what)), phone_(options.phone) {}

    OpenPhone& phone() { return phone_; }

    const PhoneState& state() const { return state_; }

    /// Reads the phone, edits the working list and does what comes of it.
    ExitCode run(const std::function<void()>& edit) {
        if (!options_.dryRun && !options_.noBackup) {
            keep();
        }
        attempt(
            phone_, state_, [&] { attemptOnce(edit); },
            [this](const std::string& reason) { output_.note(reason + "; looking again"); });
        return ExitCode::Success;
    }

private:
    /// Takes the phone's safe, and ends a job that was broken off earlier.
    void keep() {
        keeping_.emplace(phone_.phone()._rawDevice(), phone_.facts().udid, what_, watch());
        if (!keeping_->hasBrokenJob()) {
            return;
        }
        SyncDisplay display(output_);
        const Shown shown(display_, display);
        std::optional<SafeKeeping::Recovered> recovered;
        {
            const HeldSyncLock lock(phone_);
            recovered = keeping_->recover();
        }
        display.ended();
        output_.warning(endingText(recovered->ending, recovered->job));
    }

    /// Where the safe's progress goes for as long as one lives.
    class Shown {
    public:
        Shown(SyncDisplay*& place, SyncDisplay& display) : place_(place) { place_ = &display; }

        ~Shown() { place_ = nullptr; }

        Shown(const Shown&) = delete;
        Shown& operator=(const Shown&) = delete;

    private:
        SyncDisplay*& place_;
    };

    RestoreWatch watch() {
        const auto moves = [this](const char* what) {
            return [this, what](uint64_t done, uint64_t total) {
                if (display_ != nullptr) {
                    display_->moves(what, done, total);
                }
            };
        };
        return {.reading = moves("Reading what the phone holds"),
                .writing = moves("Putting right"),
                .cancels = [] { return false; }};
    }

    void attemptOnce(const std::function<void()>& edit) {
        if (!options_.force) {
            requireReadableCatalogue(state_);
        }
        requireKnownFirmware(state_.facts, options_.force);
        warnOfStrangeKeys("the catalogue of " + state_.facts.label(), state_.catalogue, output_);
        edit();
        const PreparedChange prepared = prepare(phone_, state_);
        requireNothingLost(state_.facts, prepared.plan, options_.force);
        requireSpace(state_.facts, prepared.plan);
        const bool nothing = !prepared.plan.changesAnything;
        if (!nothing) {
            warnOfStrays(prepared.plan, output_);
        }
        if (options_.dryRun) {
            showPlan(prepared.plan);
        } else if (!nothing) {
            carryOut(prepared);
        }
        report(prepared);
    }

    void carryOut(const PreparedChange& prepared) {
        SyncDisplay display(output_);
        const Shown shown(display_, display);
        submit(phone_, state_, prepared, display, keeping_ ? &*keeping_ : nullptr);
        if (interrupted()) {
            output_.note("it was too late to cancel: the sync is complete");
        }
    }

    void showPlan(const Plan& plan) {
        if (plan.changesAnything) {
            output_.table(operationTable(plan));
        }
    }

    void report(const PreparedChange& prepared) {
        const Plan& plan = prepared.plan;
        const char* result = !plan.changesAnything ? "nothing-to-do"
                             : options_.dryRun     ? "dry-run"
                                                   : "done";
        Json operations = Json::array();
        for (const Operation& operation : plan.operations) {
            operations.push_back(operationJson(operation));
        }
        Json names = Json::array();
        for (const auto& [name, size] : prepared.plan.afterwards) {
            names.push_back(name);
        }
        output_.document(
            {{"phone", phoneJson(state_.facts)},
             {"result", result},
             {"operations", plan.changesAnything ? operations : Json::array()},
             {"uploadBytes", plan.uploadBytes},
             {"spaceNeeded", plan.spaceNeeded},
             {"freeBytes", state_.facts.freeBytes ? Json(*state_.facts.freeBytes) : Json(nullptr)},
             {"ringtones", names}});
        output_.summary(summary(prepared));
    }

    std::string spaceText(const Plan& plan) const {
        return fmt::format("{} to upload, {} of space needed, {} free",
                           formatBytes(plan.uploadBytes), formatBytes(plan.spaceNeeded),
                           state_.facts.freeBytes ? formatBytes(*state_.facts.freeBytes) : "?");
    }

    std::string summary(const PreparedChange& prepared) const {
        const std::string& label = state_.facts.label();
        const std::string holds = counted(prepared.plan.afterwards.size(), "ringtone");
        if (!prepared.plan.changesAnything) {
            return fmt::format("{}: nothing to do, it has {}.", label, holds);
        }
        const std::string what = describeChange(prepared);
        if (options_.dryRun) {
            return fmt::format("{}: {}; it would have {} then. {}. Dry run: nothing was changed.",
                               label, what, holds, spaceText(prepared.plan));
        }
        const uint64_t bytes = prepared.plan.uploadBytes;
        return fmt::format("{}: {}{}. It has {} now.", label, what,
                           bytes > 0 ? fmt::format(" ({} uploaded)", formatBytes(bytes)) : "",
                           holds);
    }

    const Options& options_;
    Output& output_;
    const std::string what_;
    OpenPhone phone_;
    PhoneState state_;
    std::optional<SafeKeeping> keeping_;
    SyncDisplay* display_ = nullptr; ///< while there is one
};

void requireNamesFree(const PhoneState& state, const std::vector<LocalRingtone>& ringtones) {
    const std::set<std::string> there = namesOf(state.ringtones);
    std::vector<std::string> taken;
    for (const LocalRingtone& ringtone : ringtones) {
        if (there.contains(ringtone.name)) {
            taken.push_back(ringtone.name);
        }
    }
    if (!taken.empty()) {
        throw Failure(FailureKind::NameTaken,
                      fmt::format("{} already has {}", state.facts.label(), quotedList(taken)),
                      "Add it under another name (--name), or remove the old one first (vesk "
                      "remove). Nothing was changed on the phone.");
    }
}

void requireNamesFound(const PhoneState& state, const std::vector<std::string>& names) {
    const std::set<std::string> there = namesOf(state.ringtones);
    std::vector<std::string> missing;
    std::vector<std::string> details;
    for (const std::string& name : names) {
        if (!there.contains(name)) {
            missing.push_back(name);
            const auto close = closeNames(name, {there.begin(), there.end()});
            if (!close.empty()) {
                details.push_back(
                    fmt::format("instead of \"{}\", did you mean {}?", name, quotedList(close)));
            }
        }
    }
    if (!missing.empty()) {
        throw Failure(FailureKind::NameNotFound,
                      fmt::format("{} {} not on {}", quotedList(missing),
                                  missing.size() == 1 ? "is" : "are", state.facts.label()),
                      "\"vesk list\" shows the names. Nothing was changed on the phone.", details);
    }
}

void warnOfUnreadableTags(const LocalFiles& files, Output& output) {
    const std::vector<std::string>& unreadable = files.unreadableTags();
    if (!unreadable.empty()) {
        output.warning(fmt::format("{} no readable tags; the file name is taken:",
                                   unreadable.size() == 1
                                       ? "a file has"
                                       : fmt::format("{} files have", unreadable.size())),
                       unreadable);
    }
}

void requireYes(const Options& options, const PhoneState& state) {
    if (!options.yes && !options.dryRun && !state.ringtones.empty()) {
        throw Failure(FailureKind::NeedsYes,
                      fmt::format("\"{}\" has no ringtones: a sync would remove all {} from {}",
                                  options.arguments.front(),
                                  counted(state.ringtones.size(), "ringtone"), state.facts.label()),
                      "If that is what you want, repeat with --yes. Nothing was changed on the "
                      "phone.");
    }
}

} // namespace

ExitCode runList(const Options& options, Output& output) {
    OpenPhone phone(options.phone);
    PhoneState state = readRingtones(phone);
    requireReadableCatalogue(state);
    warnOfStrangeKeys("the catalogue of " + state.facts.label(), state.catalogue, output);
    std::sort(state.ringtones.begin(), state.ringtones.end(),
              [](const auto& left, const auto& right) { return left.name < right.name; });
    Table table({{"NAME"}, {"FILE"}, {"SIZE", Table::Align::Right}});
    Json ringtones = Json::array();
    for (const PhoneRingtone& ringtone : state.ringtones) {
        table.add({ringtone.name, ringtone.file, formatBytes(ringtone.size)});
        ringtones.push_back({{"name", ringtone.name},
                             {"guid", ringtone.guid},
                             {"file", ringtone.file},
                             {"bytes", ringtone.size}});
    }
    if (ringtones.empty()) {
        output.summary(fmt::format("{} has no ringtones.", state.facts.label()));
    } else {
        output.table(table);
    }
    output.document({{"phone", phoneJson(state.facts)}, {"ringtones", ringtones}});
    return ExitCode::Success;
}

ExitCode runAdd(const Options& options, Output& output) {
    LocalFiles files;
    std::vector<LocalRingtone> added;
    for (const std::string& file : options.arguments) {
        added.push_back(files.ringtone(file, options.name));
    }
    warnOfUnreadableTags(files, output);
    requireDistinctNames(added);
    ChangeCommand command(options, output, "add");
    return command.run([&] {
        requireNamesFree(command.state(), added);
        addRingtones(command.phone().tones(), added);
    });
}

ExitCode runRemove(const Options& options, Output& output) {
    ChangeCommand command(options, output, "remove");
    return command.run([&] {
        requireNamesFound(command.state(), options.arguments);
        removeRingtones(command.phone().tones(), options.arguments);
    });
}

ExitCode runSync(const Options& options, Output& output) {
    LocalFiles files;
    const LocalFolder folder = files.folder(options.arguments.front());
    warnOfUnreadableTags(files, output);
    requireDistinctNames(folder.ringtones);
    if (!folder.skipped.empty()) {
        output.note(fmt::format("skipped, not ringtones: {}", quotedList(folder.skipped)));
    }
    ChangeCommand command(options, output, "sync");
    return command.run([&] {
        if (folder.ringtones.empty()) {
            requireYes(options, command.state());
        }
        makeHold(command.phone(), command.state(), folder.ringtones);
    });
}

} // namespace vesk
