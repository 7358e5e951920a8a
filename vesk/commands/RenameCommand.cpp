#include "vesk/commands/Commands.h"

#include "engine/values/Text.h"
#include "vesk/commands/ChangeCommand.h"
#include "vesk/commands/RingtoneNames.h"

#include <fmt/format.h>

namespace vesk {
namespace {

void requireFree(const PhoneState& state, const std::string& from, const std::string& name) {
    const auto taken = Spellings(state.ringtones).of(name);
    if (taken && *taken != from) {
        throw Failure(FailureKind::NameTaken,
                      fmt::format("{} already has \"{}\"", state.facts.label(), *taken),
                      "Choose another name, or remove or rename that ringtone first. Nothing was "
                      "changed on the phone.");
    }
}

} // namespace

ExitCode runRename(const Options& options, Output& output) {
    const std::string to = composed(options.second);
    requireUsableName(to);
    ChangeCommand command(options, output, "rename");
    return command.run([&](const PhoneState& state) {
        const std::string from = foundNames(state, {options.arguments.front()}).front();
        if (to != from) {
            requireFree(state, from, to);
            renameRingtone(command.phone().tones(), from, to);
        }
    });
}

} // namespace vesk
