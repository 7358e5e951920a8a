#include "vesk/commands/ChangeCommand.h"

#include "engine/files/LocalFile.h"
#include "engine/restore/HeldSyncLock.h"
#include "engine/sync/Attempts.h"
#include "engine/sync/Submission.h"
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

/// Where the safe's progress goes for as long as one lives.
class ChangeCommand::Shown {
public:
    Shown(SyncDisplay*& place, SyncDisplay& display) : place_(place) { place_ = &display; }

    ~Shown() { place_ = nullptr; }

    Shown(const Shown&) = delete;
    Shown& operator=(const Shown&) = delete;

private:
    SyncDisplay*& place_;
};

ChangeCommand::ChangeCommand(const Options& options, Output& output, std::string what)
    : options_(options), output_(output), what_(std::move(what)), phone_(options.phone) {}

ExitCode ChangeCommand::run(const Edit& edit) {
    return runAttempts([&] { attemptOnce(edit); });
}

ExitCode ChangeCommand::rebuild() {
    return runAttempts([this] { rebuildOnce(); });
}

ExitCode ChangeCommand::runAttempts(const std::function<void()>& once) {
    if (options_.dryRun) {
        noteUnfinishedJob(phone_.facts().udid, kPlanIsOfPhoneAsItIs, output_);
    } else if (!options_.noBackup) {
        keep();
    }
    attempt(phone_, state_, once,
            [this](const std::string& reason) { output_.note(reason + "; looking again"); });
    return ExitCode::Success;
}

/// Takes the phone's safe, and ends a job that was broken off earlier.
void ChangeCommand::keep() {
    if (!safeKeeping().hasBrokenJob()) {
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

SafeKeeping& ChangeCommand::safeKeeping() {
    if (!keeping_) {
        keeping_.emplace(phone_.phone()._rawDevice(), phone_.facts().udid, what_, watch());
    }
    return *keeping_;
}

RestoreWatch ChangeCommand::watch() {
    const auto moves = [this](const char* what) {
        return [this, what](uint64_t done, uint64_t total) {
            if (display_ != nullptr) {
                display_->moves(what, done, total);
            }
        };
    };
    return {.reading = moves("Reading what the phone holds"),
            .writing = moves("Putting right"),
            // Once: what is taken back then is not to be cancelled as well.
            .cancels = [this] {
                return mayCancel_ && interrupted() && std::exchange(mayCancel_, false);
            }};
}

/// What holds for every change.
void ChangeCommand::begin() {
    requireKnownFirmware(state_.facts, options_.force);
    warnOfStrangeKeys("the catalogue of " + state_.facts.label(), state_.catalogue, output_);
}

bool ChangeCommand::needsRebuilding() const {
    return state_.catalogueIsUnreadable() || hasUnlistedRingtones(state_);
}

void ChangeCommand::attemptOnce(const Edit& edit) {
    if (!options_.force && !options_.rebuild) {
        requireReadableCatalogue(state_);
    }
    begin();
    if (options_.rebuild && needsRebuilding()) {
        rebuildFirst(edit);
        return;
    }
    edit(state_);
    const PreparedChange prepared = prepare(phone_, state_);
    if (!options_.force && !lossesOf(prepared.plan).empty()) {
        repairInstead(prepared, edit);
    } else {
        finish(prepared);
    }
}

void ChangeCommand::rebuildOnce() {
    begin();
    if (needsRebuilding()) {
        rebuildFirst([](const PhoneState&) {});
    } else {
        PreparedChange nothing;
        nothing.plan.afterwards = namesAndSizes(state_.ringtones);
        report(nothing);
    }
}

void ChangeCommand::rebuildFirst(const Edit& edit) {
    const auto repaired = repair(RepairCause::Unlisted, edit);
    if (!repaired) {
        throw Failure(FailureKind::WouldLoseRingtones,
                      fmt::format("the catalogue of {} cannot be rebuilt without losing ringtones",
                                  state_.facts.label()),
                      "Copy its files off the phone first (vesk backup). Nothing was changed on "
                      "the phone.");
    }
    finishRepaired(*repaired);
}

/// Does with the phone put right what would lose ringtones on the phone as it is.
void ChangeCommand::repairInstead(const PreparedChange& losing, const Edit& edit) {
    if (options_.noBackup) {
        throw wouldLose(state_.facts, losing.plan,
                        "Without --no-backup they are put right first, with copies in the safe.");
    }
    std::optional<Repair> repaired;
    try {
        repaired = repair(RepairCause::WouldLose, edit);
    } catch (const Failure& failure) {
        if (failure.kind() != FailureKind::CannotKeep) {
            throw;
        }
        throw wouldLose(state_.facts, losing.plan,
                        fmt::format("They could be put right, but {}. Make room for copies here.",
                                    failure.what()));
    }
    if (!repaired) {
        throw wouldLose(state_.facts, losing.plan,
                        "No names were found with which they stay. Copy their files off the phone "
                        "first (vesk backup).");
    }
    finishRepaired(*repaired);
}

std::optional<Repair> ChangeCommand::repair(RepairCause cause, const Edit& edit) {
    SyncDisplay display(output_);
    const Shown shown(display_, display);
    auto repaired = planRepair(phone_, safeKeeping(), state_, cause, edit);
    display.ended();
    if (interrupted()) {
        throw Failure(FailureKind::Cancelled, "cancelled; nothing was changed on the phone");
    }
    return repaired;
}

void ChangeCommand::finishRepaired(const Repair& repair) {
    requireSpace(state_.facts, repair.change.plan);
    warnOfUnreadableTags(repair, output_);
    sayRepair(state_.facts, repair, options_.dryRun, output_);
    warnOfStrays(repair.change.plan, output_);
    if (options_.dryRun) {
        showPlan(repair.change.plan);
    } else if (repair.change.plan.changesAnything) {
        carryOut(repair);
    }
    report(repair.change, &repair);
}

void ChangeCommand::finish(const PreparedChange& prepared) {
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

void ChangeCommand::carryOut(const PreparedChange& prepared) {
    SyncDisplay display(output_);
    const Shown shown(display_, display);
    submit(phone_, state_, prepared, display, keeping_ ? &*keeping_ : nullptr);
    if (interrupted()) {
        output_.note("it was too late to cancel: the sync is complete");
    }
}

void ChangeCommand::carryOut(const Repair& repair) {
    SyncDisplay display(output_);
    const Shown shown(display_, display);
    display.stage(SyncStage::WaitingForLock);
    mayCancel_ = true;
    krl::engine::carryOut(phone_, *keeping_, state_.facts, repair);
    mayCancel_ = false;
    display.ended();
    if (keeping_->leftBehind() > 0) {
        display.leavesBehind(keeping_->leftBehind());
    }
    if (interrupted()) {
        output_.note("it was too late to cancel: the sync is complete");
    }
}

void ChangeCommand::showPlan(const Plan& plan) {
    if (plan.changesAnything) {
        output_.table(operationTable(plan));
    }
}

void ChangeCommand::report(const PreparedChange& prepared, const Repair* repair) {
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
    Json document(
        {{"phone", phoneJson(state_.facts)},
         {"result", result},
         {"operations", plan.changesAnything ? operations : Json::array()},
         {"uploadBytes", plan.uploadBytes},
         {"spaceNeeded", plan.spaceNeeded},
         {"freeBytes", state_.facts.freeBytes ? Json(*state_.facts.freeBytes) : Json(nullptr)},
         {"ringtones", names}});
    if (!prepared.renamed.empty()) {
        document["renamed"] = renamedJson(prepared.renamed);
    }
    if (repair != nullptr) {
        document["repaired"] = repairJson(*repair);
    }
    for (const auto& [key, value] : reported_) {
        document[key] = value();
    }
    output_.document(document);
    output_.summary(summary(prepared, repair));
}

std::string ChangeCommand::spaceText(const Plan& plan) const {
    return fmt::format("{} to upload, {} of space needed, {} free", formatBytes(plan.uploadBytes),
                       formatBytes(plan.spaceNeeded),
                       state_.facts.freeBytes ? formatBytes(*state_.facts.freeBytes) : "?");
}

std::string ChangeCommand::summary(const PreparedChange& prepared, const Repair* repair) const {
    const std::string& label = state_.facts.label();
    const std::string holds = counted(prepared.plan.afterwards.size(), "ringtone");
    if (!prepared.plan.changesAnything) {
        return fmt::format("{}: nothing to do, it has {}.", label, holds);
    }
    const std::string what = describeChange(prepared, repair);
    if (options_.dryRun) {
        return fmt::format("{}: {}; it would have {} then. {}. Dry run: nothing was changed.",
                           label, what, holds, spaceText(prepared.plan));
    }
    const uint64_t bytes = prepared.plan.uploadBytes;
    return fmt::format("{}: {}{}. It has {} now.", label, what,
                       bytes > 0 ? fmt::format(" ({} uploaded)", formatBytes(bytes)) : "", holds);
}

} // namespace vesk
