/// The command line's grammar: what can be written, and what was meant.
#pragma once

#include "vesk/invocation/ExitCodes.h"
#include "vesk/invocation/Options.h"

#include <optional>
#include <string>
#include <vector>

namespace vesk {

/// Understands a command line.
/// @return what to exit with if nothing is to be carried out: after --help, --version, or an error,
///         which has been said
std::optional<ExitCode> parseCommandLine(int argc, char** argv, Options& options);

/// An option, as it is written.
struct OptionEntry {
    std::vector<std::string> names; ///< with their dashes, the short one first
    std::string value;              ///< what it takes, such as "SECONDS"; empty: nothing
    std::string meaning;
};

/// What stands on a command line without a name.
struct ArgumentEntry {
    std::string label; ///< such as "FILE"
    std::string meaning;
    bool isRequired = true;
    bool isRepeated = false;
};

/// A command, or a family of commands.
struct CommandEntry {
    std::string name;
    std::string summary;
    std::string promise = {}; ///< what it does not promise, above all
    std::vector<ArgumentEntry> arguments = {};
    std::vector<OptionEntry> options = {}; ///< of its own; those of "vesk" go with every command
    std::vector<CommandEntry> commands = {};
    bool writes = false; ///< takes --dry-run
};

/// All that can be written on a command line, as the parser knows it: "vesk" with its commands.
CommandEntry commandTree();

} // namespace vesk
