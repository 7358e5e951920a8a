#include "vesk/commands/Commands.h"

#include "engine/values/Text.h"
#include "vesk/commands/ChangeCommand.h"
#include "vesk/commands/PhoneJson.h"
#include "vesk/commands/RingtoneNames.h"
#include "vesk/commands/StrangeKeys.h"
#include "vesk/commands/UnfinishedJob.h"

#include <fmt/format.h>

#include <algorithm>

namespace vesk {
namespace {

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

/// @param what  what would remove everything, to begin a sentence with
void requireYes(const Options& options, const PhoneState& state, const std::string& what) {
    if (!options.yes && !options.dryRun && !state.ringtones.empty()) {
        throw Failure(FailureKind::NeedsYes,
                      fmt::format("{} would remove all {} from {}", what,
                                  counted(state.ringtones.size(), "ringtone"), state.facts.label()),
                      "If that is what you want, repeat with --yes. Nothing was changed on the "
                      "phone.");
    }
}

} // namespace

ExitCode runList(const Options& options, Output& output) {
    OpenPhone phone(options.phone);
    PhoneState state = readRingtones(phone);
    noteUnfinishedJob(state.facts.udid, kNextPutsItRight, output);
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
    return command.run([&](const PhoneState& state) {
        requireNamesFree(state, added);
        addRingtones(command.phone().tones(), added);
    });
}

ExitCode runRemove(const Options& options, Output& output) {
    ChangeCommand command(options, output, "remove");
    return command.run([&](const PhoneState& state) {
        std::vector<std::string> names = options.arguments;
        if (options.all) {
            requireYes(options, state, "\"remove --all\"");
            const std::set<std::string> all = namesOf(state.ringtones);
            names.assign(all.begin(), all.end());
        }
        requireNamesFound(state, names);
        removeRingtones(command.phone().tones(), names);
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
    return command.run([&](const PhoneState& state) {
        if (folder.ringtones.empty()) {
            requireYes(options, state,
                       fmt::format("\"{}\" has no ringtones: a sync", options.arguments.front()));
        }
        makeHold(command.phone(), state, folder.ringtones);
    });
}

ExitCode runRebuild(const Options& options, Output& output) {
    return ChangeCommand(options, output, "rebuild").rebuild();
}

} // namespace vesk
