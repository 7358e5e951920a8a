#include "vesk/commands/Commands.h"

#include "audio/songs/FolderSync.h"
#include "audio/songs/SongFolder.h"
#include "engine/change/NameRefusals.h"
#include "engine/plan/Change.h"
#include "engine/values/Text.h"
#include "vesk/commands/ChangeCommand.h"
#include "vesk/commands/PhoneJson.h"
#include "vesk/commands/SongIntake.h"
#include "vesk/commands/StrangeKeys.h"
#include "vesk/commands/UnfinishedJob.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <set>

namespace vesk {

using krl::audio::SongFolder;
using krl::audio::songsIn;
using krl::audio::SongTypes;
using krl::audio::Treatment;
using Same = krl::audio::SongIntake::Same;

namespace {

/// Whether everything may be removed.
bool isConsented(const Options& options) {
    return options.yes || options.dryRun;
}

size_t countBesides(const PhoneState& state, const std::vector<std::string>& names) {
    std::set<std::string> there = namesOf(state.ringtones);
    for (const std::string& name : names) {
        there.erase(name);
    }
    return there.size();
}

/// Goes to a phone with songs, when there are any, and says what became of each.
ExitCode withSongs(const Options& options, Output& output, const SongIntake& intake,
                   const char* what, const std::function<void(ChangeCommand&)>& change) {
    if (intake.isInVain()) {
        output.document({{"songs", intake.json()}});
        return intake.code();
    }
    ChangeCommand command(options, output, what);
    command.alsoReports("songs", [&] { return intake.json(); });
    change(command);
    return intake.code();
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
    SongIntake intake(options, output);
    intake.read({options.arguments.begin(), options.arguments.end()});
    return withSongs(options, output, intake, "add", [&](ChangeCommand& command) {
        command.run([&](const PhoneState& state) {
            intake.songs().choose(state, Others::Stay);
            if (!options.replace) {
                requireNamesFree(state, intake.songs().names());
            }
            replaceRingtones(command.phone().tones(),
                             intake.songs().made(command.phone(), state, Same::BySource));
        });
    });
}

ExitCode runRemove(const Options& options, Output& output) {
    ChangeCommand command(options, output, "remove");
    return command.run([&](const PhoneState& state) {
        std::vector<std::string> names = options.arguments;
        if (options.all) {
            if (!isConsented(options)) {
                requireYes(state, "\"remove --all\"");
            }
            const std::set<std::string> all = namesOf(state.ringtones);
            names.assign(all.begin(), all.end());
        }
        removeRingtones(command.phone().tones(), foundNames(state, names));
    });
}

ExitCode runSync(const Options& options, Output& output) {
    const auto types = options.recipe.treatment == Treatment::Unchecked ? SongTypes::RingtonesOnly
                                                                        : SongTypes::All;
    const SongFolder folder = songsIn(options.arguments.front(), types, options.recursive);
    SongIntake intake(options, output);
    intake.read(folder.songs);
    if (!folder.skipped.empty()) {
        output.note(fmt::format("skipped, not songs: {}", quotedList(folder.skipped)));
    }
    return withSongs(options, output, intake, "sync", [&](ChangeCommand& command) {
        size_t kept = 0;
        command.run([&](const PhoneState& state) {
            const auto [wanted, others] = krl::audio::makeHoldFolder(
                command.phone(), state,
                {.songs = intake.songs(),
                 .isEmpty = folder.songs.empty(),
                 .isConsented = isConsented(options),
                 .name = fmt::format("\"{}\" has no songs: a sync", options.arguments.front())});
            kept = others == Others::Stay ? countBesides(state, intake.songs().names()) : 0;
        });
        if (kept > 0) {
            output.warning(fmt::format("{} that no usable song of the folder is for {} left on the "
                                       "phone: a file that cannot be used now may be one's song",
                                       counted(kept, "ringtone"), kept == 1 ? "is" : "are"));
        }
    });
}

ExitCode runRebuild(const Options& options, Output& output) {
    return ChangeCommand(options, output, "rebuild").rebuild();
}

} // namespace vesk
