#pragma once

#include "vesk/invocation/Options.h"
#include "vesk/terminal/Output.h"

#include <vector>

namespace vesk {

/// What stands on a command line behind the command.
struct CommandArguments {
    const char* label = nullptr; ///< null: nothing
    const char* meaning = nullptr;
    bool onlyOne = false;
};

/// All that is said of a command, once: the parser, the help texts and the tests go by it.
struct CommandRow {
    const char* family = nullptr; ///< "plugin", whose command it is; null for the others
    const char* name;
    ExitCode (*run)(const Options& options, Output& output);
    const char* summary;
    const char* promise; ///< what it does not promise, above all
    CommandArguments arguments = {};
    CommandArguments second = {}; ///< one more, behind the only one
    bool writes = false;          ///< takes --dry-run and --force
    bool syncs = false;           ///< takes --no-backup
    bool takesName = false;       ///< takes --name
    bool takesYes = false;        ///< takes --yes
    bool takesSyncFolder = false; ///< takes --sync, and what goes with a sync for that only
    bool prepares = false;        ///< takes --start and the like
    bool takesSongs = false;      ///< takes --as-is and the like
    bool takesFolder = false;     ///< takes --recursive
    bool takesAll = false;        ///< takes --all in place of arguments
    bool fetches = false;         ///< takes --output and --force
    bool plays = false;           ///< takes --sink
};

/// In the order in which the help shows them.
const std::vector<CommandRow>& commandTable();

} // namespace vesk
