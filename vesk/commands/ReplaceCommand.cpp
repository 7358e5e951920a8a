#include "vesk/commands/Commands.h"

#include "engine/change/NameRefusals.h"
#include "vesk/commands/ChangeCommand.h"
#include "vesk/commands/SongIntake.h"

namespace vesk {

ExitCode runReplace(const Options& options, Output& output) {
    Options named = options;
    named.name = options.arguments.front();
    SongIntake intake(named, output);
    intake.read({options.second});
    ChangeCommand command(options, output, "replace");
    command.alsoReports("songs", [&] { return intake.json(); });
    return command.run([&](const PhoneState& state) {
        foundNames(state, {*named.name});
        intake.songs().choose(state, Others::Stay);
        replaceRingtones(
            command.phone().tones(),
            intake.songs().made(command.phone(), state, krl::audio::SongIntake::Same::BySource));
    });
}

} // namespace vesk
