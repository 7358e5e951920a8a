#include "vesk/commands/Commands.h"

#include "vesk/commands/ChangeCommand.h"
#include "vesk/commands/RingtoneNames.h"

namespace vesk {

ExitCode runReplace(const Options& options, Output& output) {
    const std::string& name = options.arguments.front();
    const LocalRingtone file = LocalFiles().ringtone(options.second, name);
    ChangeCommand command(options, output, "replace");
    return command.run([&](const PhoneState& state) {
        requireNamesFound(state, {name});
        replaceRingtones(command.phone().tones(), state, {file});
    });
}

} // namespace vesk
