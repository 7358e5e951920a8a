#pragma once

#include "audio/songs/SongIntake.h"

#include <cstddef>
#include <string>

namespace krl::audio {

/// What a phone is to hold: the songs of a folder, and nothing else.
struct WholeFolder {
    SongIntake& songs;
    bool isEmpty = false;     ///< there are none in it
    bool isConsented = false; ///< everything may be removed because of that
    std::string name = {};    ///< to begin a sentence with, of what would remove everything
};

/// Edits the working list so that the phone holds that. What no song is for goes only when all songs
/// can be used.
/// @return the ringtones that were asked for, and what becomes of others
/// @throw Failure when nobody has consented and everything would be removed
SongIntake::All makeHoldFolder(engine::OpenPhone& phone, const engine::PhoneState& state,
                               const WholeFolder& folder);

} // namespace krl::audio
