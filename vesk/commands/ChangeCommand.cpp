#include "vesk/commands/ChangeCommand.h"

#include "engine/files/LocalFile.h"
#include "engine/values/Text.h"
#include "vesk/commands/PhoneJson.h"
#include "vesk/commands/RepairTexts.h"
#include "vesk/commands/StrangeKeys.h"
#include "vesk/commands/UnfinishedJob.h"
#include "vesk/terminal/Interrupt.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

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

void warnOfStrays(const Plan& plan, Output& output) {
    if (plan.strays.empty()) {
        return;
    }
    const bool hasRingtones =
        std::any_of(plan.strays.begin(), plan.strays.end(),
                    [](const std::string& file) { return isSupportedType(typeOf(file)); });
    output.warning(
        fmt::format("{} in the phone's ringtone folder, which no catalogue entry "
                    "lists, will be deleted{}:",
                    counted(plan.strays.size(), "file"),
                    hasRingtones ? "; with --rebuild ringtones are listed again instead" : ""),
        plan.strays);
}

std::string spaceText(const PhoneFacts& facts, const Plan& plan) {
    return fmt::format("{} to upload, {} of space needed, {} free", formatBytes(plan.uploadBytes),
                       formatBytes(plan.spaceNeeded),
                       facts.freeBytes ? formatBytes(*facts.freeBytes) : "?");
}

std::string describeChange(const PreparedChange& change, const Repair* repair) {
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
    for (const auto& [from, to] : change.renamed) {
        parts.push_back(fmt::format("\"{}\" renamed to \"{}\"", from, to));
    }
    part(change.plan.moved, "moved");
    if (repair != nullptr && !repair->ringtones.empty()) {
        parts.push_back(describeRepair(*repair));
    }
    return parts.empty() ? "put in order" : fmt::format("{}", fmt::join(parts, ", "));
}

void warnOfUnreadableTags(const Repair& repair, Output& output) {
    if (!repair.unreadableTags.empty()) {
        output.warning("files of the phone have no readable tags; the file name is taken:",
                       repair.unreadableTags);
    }
}

} // namespace

ChangeCommand::ChangeCommand(const Options& options, Output& output, std::string what)
    : options_(options), output_(output), phone_(options.phone), job_(phone_,
                                                                      {.isForced = options.force,
                                                                       .rebuilds = options.rebuild,
                                                                       .keeps = !options.noBackup,
                                                                       .isDryRun = options.dryRun},
                                                                      std::move(what), *this) {}

ExitCode ChangeCommand::run(const Edit& edit) {
    noteWhatADryRunLeaves();
    job_.run(edit);
    return ExitCode::Success;
}

ExitCode ChangeCommand::rebuild() {
    noteWhatADryRunLeaves();
    job_.rebuild();
    return ExitCode::Success;
}

void ChangeCommand::noteWhatADryRunLeaves() {
    if (options_.dryRun) {
        noteUnfinishedJob(phone_.facts().udid, kPlanIsOfPhoneAsItIs, output_);
    }
}

std::unique_ptr<ChangeListener> ChangeCommand::begins() {
    return std::make_unique<SyncDisplay>(output_);
}

void ChangeCommand::endedBrokenJob(const SafeKeeping::Recovered& job) {
    output_.warning(endingText(job.ending, job.job));
}

void ChangeCommand::beginsAgain(const std::string& reason) {
    output_.note(reason + "; looking again");
}

void ChangeCommand::read(const PhoneState& state) {
    warnOfStrangeKeys("the catalogue of " + state.facts.label(), state.catalogue, output_);
}

void ChangeCommand::planned(const PlannedChange& planned) {
    const Plan& plan = planned.change.plan;
    if (planned.repair != nullptr) {
        warnOfUnreadableTags(*planned.repair, output_);
        sayRepair(planned.before.facts, *planned.repair, options_.dryRun, output_);
    }
    if (planned.repair != nullptr || plan.changesAnything) {
        warnOfStrays(plan, output_);
    }
    if (options_.dryRun) {
        showPlan(plan);
    }
}

void ChangeCommand::done(const PlannedChange& done) {
    if (done.change.plan.changesAnything && !options_.dryRun && interrupted()) {
        output_.note("it was too late to cancel: the sync is complete");
    }
    report(done);
}

void ChangeCommand::showPlan(const Plan& plan) {
    if (plan.changesAnything) {
        output_.table(operationTable(plan));
    }
}

void ChangeCommand::report(const PlannedChange& done) {
    const PhoneFacts& facts = done.before.facts;
    const Plan& plan = done.change.plan;
    const char* result = !plan.changesAnything ? "nothing-to-do"
                         : options_.dryRun     ? "dry-run"
                                               : "done";
    Json operations = Json::array();
    for (const Operation& operation : plan.operations) {
        operations.push_back(operationJson(operation));
    }
    Json names = Json::array();
    for (const auto& [name, size] : plan.afterwards) {
        names.push_back(name);
    }
    Json document({{"phone", phoneJson(facts)},
                   {"result", result},
                   {"operations", plan.changesAnything ? operations : Json::array()},
                   {"uploadBytes", plan.uploadBytes},
                   {"spaceNeeded", plan.spaceNeeded},
                   {"freeBytes", facts.freeBytes ? Json(*facts.freeBytes) : Json(nullptr)},
                   {"ringtones", names}});
    if (!done.change.renamed.empty()) {
        document["renamed"] = renamedJson(done.change.renamed);
    }
    if (done.repair != nullptr) {
        document["repaired"] = repairJson(*done.repair);
    }
    for (const auto& [key, value] : reported_) {
        document[key] = value();
    }
    output_.document(document);
    output_.summary(summary(done));
}

std::string ChangeCommand::summary(const PlannedChange& done) const {
    const PhoneFacts& facts = done.before.facts;
    const Plan& plan = done.change.plan;
    const std::string label = facts.label();
    const std::string holds = counted(plan.afterwards.size(), "ringtone");
    if (!plan.changesAnything) {
        return fmt::format("{}: nothing to do, it has {}.", label, holds);
    }
    const std::string what = describeChange(done.change, done.repair);
    if (options_.dryRun) {
        return fmt::format("{}: {}; it would have {} then. {}. Dry run: nothing was changed.",
                           label, what, holds, spaceText(facts, plan));
    }
    const uint64_t bytes = plan.uploadBytes;
    return fmt::format("{}: {}{}. It has {} now.", label, what,
                       bytes > 0 ? fmt::format(" ({} uploaded)", formatBytes(bytes)) : "", holds);
}

} // namespace vesk
