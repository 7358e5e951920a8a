#include "vesk/commands/Commands.h"

#include "engine/change/NameRefusals.h"
#include "engine/values/Text.h"
#include "vesk/commands/ChangeCommand.h"

namespace vesk {

ExitCode runRename(const Options& options, Output& output) {
    const std::string to = composed(options.second);
    requireUsableName(to);
    ChangeCommand command(options, output, "rename");
    return command.run([&](const PhoneState& state) {
        const std::string from = foundNames(state, {options.arguments.front()}).front();
        if (to != from) {
            requireNameFree(state, from, to);
            renameRingtone(command.phone().tones(), from, to);
        }
    });
}

} // namespace vesk
