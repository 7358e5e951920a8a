#pragma once

#include "engine/state/OpenPhone.h"

#include <optional>
#include <string>
#include <vector>

namespace vesk {

/// All of a phone that a sync depends on, read before anything is changed.
struct PhoneState {
    PhoneFacts facts;
    std::optional<std::string> catalogueFile; ///< its bytes; none when there is no catalogue
    Catalogue catalogue;
    std::vector<PhoneRingtone> ringtones; ///< that the library sees
    bool folderExists = false;
    std::vector<FolderFile> folder; ///< the ringtone folder, in the order in which it is listed

    /// Whether there is a catalogue that nobody can read. The library takes such a phone for one
    /// without ringtones, and a sync would delete them all.
    bool catalogueIsUnreadable() const { return catalogueFile.has_value() && !catalogue.usable; }
};

/// Reads the facts, the catalogue and the ringtones: enough to show them.
/// @param tolerateUnreadable  take an unreadable catalogue for an empty one
/// @throw Failure also when the catalogue is unreadable and that is not tolerated
PhoneState readRingtones(Session& session, bool tolerateUnreadable);

/// Reads the folder too: enough to plan a sync.
PhoneState readEverything(Session& session, bool tolerateUnreadable);

} // namespace vesk
