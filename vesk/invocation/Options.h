#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace vesk {

enum class Command {
    Devices,
    Info,
    List,
    Add,
    Remove,
    Sync,
    Check,
    Watch,
    Pair,
    Unpair,
    Doctor,
    PluginStatus,
    PluginInstall,
    PluginValidate,
    PluginRun
};

/// A command line that was understood.
struct Options {
    Command command = Command::Devices;

    bool json = false;
    bool quiet = false;
    bool dryRun = false;
    bool force = false; ///< write although ringtones on the phone would be lost
    bool yes = false;   ///< remove everything without being asked

    std::string udid; ///< empty: the only phone
    std::optional<std::chrono::milliseconds> timeout;
    std::chrono::milliseconds wait{2000}; ///< for a phone to appear

    std::vector<std::string> arguments; ///< files, names, a folder or a catalogue
    std::optional<std::string> name;    ///< of the one file to add
};

} // namespace vesk
