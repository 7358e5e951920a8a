#include "vesk/commands/Commands.h"

#include "vesk/commands/ChangeCommand.h"
#include "vesk/commands/RingtoneNames.h"

#include <fmt/format.h>

namespace vesk {
namespace {

void requireFree(const PhoneState& state, const std::string& name) {
    if (namesOf(state.ringtones).contains(name)) {
        throw Failure(FailureKind::NameTaken,
                      fmt::format("{} already has \"{}\"", state.facts.label(), name),
                      "Choose another name, or remove or rename that ringtone first. Nothing was "
                      "changed on the phone.");
    }
}

} // namespace

ExitCode runRename(const Options& options, Output& output) {
    const std::string& from = options.arguments.front();
    const std::string& to = options.second;
    requireUsableName(to);
    ChangeCommand command(options, output, "rename");
    return command.run([&](const PhoneState& state) {
        requireNamesFound(state, {from});
        if (to != from) {
            requireFree(state, to);
            renameRingtone(command.phone().tones(), from, to);
        }
    });
}

} // namespace vesk
