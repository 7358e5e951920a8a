#include "vesk/commands/Commands.h"

#include "engine/plan/Change.h"
#include "engine/state/PhoneState.h"
#include "engine/sync/Submit.h"
#include "engine/values/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace vesk {
namespace {

Json phoneJson(const PhoneFacts& facts) {
    return {{"udid", facts.udid}, {"name", facts.name}, {"firmware", facts.firmware}};
}

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
                   : folder    ? kRingtonesFolder
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
            ExitCode::WouldLoseRingtones,
            fmt::format("this would lose {} that should stay on {}",
                        counted(details.size(), "ringtone"), facts.label()),
            "Copy their files off the phone first, or repeat with --force to let them go. "
            "Nothing was changed on the phone.",
            details);
    }
}

void requireSpace(const PhoneFacts& facts, const Plan& plan) {
    if (facts.freeBytes && plan.spaceNeeded > *facts.freeBytes) {
        throw Failure(ExitCode::NoSpace,
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
    ChangeCommand(const Options& options, Output& output)
        : options_(options), output_(output), session_(options),
          state_(readEverything(session_, options.force)) {}

    Session& session() { return session_; }

    const PhoneState& state() const { return state_; }

    /// After the working list was edited.
    ExitCode run() {
        const PreparedChange prepared = prepare(session_, state_);
        requireNothingLost(state_.facts, prepared.plan, options_.force);
        requireSpace(state_.facts, prepared.plan);
        const bool nothing = !prepared.plan.changesAnything;
        if (!nothing) {
            warnOfStrays(prepared.plan, output_);
        }
        if (options_.dryRun) {
            showPlan(prepared.plan);
        } else if (!nothing) {
            submit(session_, state_, prepared, output_);
        }
        report(prepared);
        return ExitCode::Success;
    }

private:
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
        for (const auto& [name, size] : prepared.wanted) {
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
        const std::string holds = counted(prepared.wanted.size(), "ringtone");
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
    Session session_;
    PhoneState state_;
};

void requireNamesFree(const PhoneState& state, const std::vector<LocalRingtone>& ringtones) {
    std::vector<std::string> taken;
    for (const LocalRingtone& ringtone : ringtones) {
        if (findRingtone(state.ringtones, ringtone.name) != nullptr) {
            taken.push_back(ringtone.name);
        }
    }
    if (!taken.empty()) {
        throw Failure(ExitCode::NameTaken,
                      fmt::format("{} already has {}", state.facts.label(), quotedList(taken)),
                      "Add it under another name (--name), or remove the old one first (vesk "
                      "remove). Nothing was changed on the phone.");
    }
}

std::vector<std::string> namesOf(const std::vector<PhoneRingtone>& ringtones) {
    std::vector<std::string> names;
    std::transform(ringtones.begin(), ringtones.end(), std::back_inserter(names),
                   [](const PhoneRingtone& one) { return one.name; });
    return names;
}

void requireNamesFound(const PhoneState& state, const std::vector<std::string>& names) {
    std::vector<std::string> missing;
    std::vector<std::string> details;
    for (const std::string& name : names) {
        if (findRingtone(state.ringtones, name) == nullptr) {
            missing.push_back(name);
            const auto close = closeNames(name, namesOf(state.ringtones));
            if (!close.empty()) {
                details.push_back(
                    fmt::format("instead of \"{}\", did you mean {}?", name, quotedList(close)));
            }
        }
    }
    if (!missing.empty()) {
        throw Failure(ExitCode::NameNotFound,
                      fmt::format("{} {} not on {}", quotedList(missing),
                                  missing.size() == 1 ? "is" : "are", state.facts.label()),
                      "\"vesk list\" shows the names. Nothing was changed on the phone.", details);
    }
}

void requireYes(const Options& options, const PhoneState& state) {
    if (!options.yes && !options.dryRun && !state.ringtones.empty()) {
        throw Failure(ExitCode::NeedsYes,
                      fmt::format("\"{}\" has no ringtones: a sync would remove all {} from {}",
                                  options.arguments.front(),
                                  counted(state.ringtones.size(), "ringtone"), state.facts.label()),
                      "If that is what you want, repeat with --yes. Nothing was changed on the "
                      "phone.");
    }
}

} // namespace

ExitCode runList(const Options& options, Output& output) {
    Session session(options);
    PhoneState state = readRingtones(session, /*tolerateUnreadable=*/false);
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
    std::vector<LocalRingtone> added;
    for (const std::string& file : options.arguments) {
        added.push_back(localRingtone(file, options.name));
    }
    requireDistinctNames(added);
    ChangeCommand command(options, output);
    requireNamesFree(command.state(), added);
    addRingtones(command.session().tones(), added);
    return command.run();
}

ExitCode runRemove(const Options& options, Output& output) {
    ChangeCommand command(options, output);
    requireNamesFound(command.state(), options.arguments);
    removeRingtones(command.session().tones(), options.arguments);
    return command.run();
}

ExitCode runSync(const Options& options, Output& output) {
    const LocalFolder folder = localFolder(options.arguments.front());
    requireDistinctNames(folder.ringtones);
    if (!folder.skipped.empty()) {
        output.note(fmt::format("skipped, not ringtones: {}", quotedList(folder.skipped)));
    }
    ChangeCommand command(options, output);
    if (folder.ringtones.empty()) {
        requireYes(options, command.state());
    }
    makeHold(command.session(), command.state(), folder.ringtones);
    return command.run();
}

} // namespace vesk
