#pragma once

#include "engine/state/OpenPhone.h"

#include <optional>
#include <string>
#include <vector>

namespace krl::engine {

/// All of a phone that a sync depends on, read before anything is changed.
struct PhoneState {
    PhoneFacts facts;
    std::optional<std::string> catalogueFile; ///< its bytes; none when there is no catalogue
    Catalogue catalogue;
    std::vector<PhoneRingtone> ringtones;    ///< that the library sees
    std::vector<std::string> missingFolders; ///< that the catalogue needs, outermost first
    bool folderExists = false;
    std::vector<std::string> names; ///< all that the ringtone folder lists
    std::vector<FolderFile> folder; ///< the ringtone folder, in the order in which it is listed

    /// Whether there is a catalogue that nobody can read. The library takes such a phone for one
    /// without ringtones, and a sync would delete them all.
    bool catalogueIsUnreadable() const { return catalogueFile.has_value() && !catalogue.usable; }
};

/// Reads the facts, the catalogue and the ringtones: enough to show them. An unreadable catalogue
/// has none. What was not read whole is read once more.
/// @throw Failure when it cannot be read whole
PhoneState readRingtones(OpenPhone& phone);

/// Reads the folder too: enough to plan a sync.
PhoneState readEverything(OpenPhone& phone);

/// @throw Failure when there is a catalogue that nobody can read
void requireReadableCatalogue(const PhoneState& state);

/// Whether catalogue and folder are still those of the state.
bool isAsRead(OpenPhone& phone, const PhoneState& state);

} // namespace krl::engine
