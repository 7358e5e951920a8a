#pragma once

#include "audio/songs/Recipe.h"
#include "engine/phones/PhoneChoice.h"
#include "vesk/invocation/Engine.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace vesk {

struct CommandRow;

/// A command line that was understood.
struct Options {
    const CommandRow* command = nullptr;

    bool json = false;
    bool quiet = false;
    bool dryRun = false;
    bool force = false;    ///< write although something is lost by it
    bool noBackup = false; ///< keep nothing of what the phone holds
    bool rebuild = false;  ///< list files again that the catalogue does not list
    bool yes = false;      ///< remove everything without being asked
    bool all = false;      ///< every ringtone of the phone, instead of names

    PhoneRequest phone;
    std::optional<std::chrono::milliseconds> timeout;

    std::vector<std::string> arguments; ///< files, names, a folder or a catalogue
    std::string second;                 ///< a new name, or a file in a ringtone's place
    std::optional<std::string> name;    ///< of the one file to add

    krl::audio::Recipe recipe; ///< how songs are made ringtones
    krl::audio::NameSource nameSource = krl::audio::NameSource::Tags;
    bool recursive = false; ///< look into folders in the folder too
    bool replace = false;   ///< what has a name that is to be added
    std::string sink;       ///< for sound, in GStreamer's words; empty: where the desktop's goes

    std::optional<std::string> output; ///< file or folder for what is made
};

} // namespace vesk
