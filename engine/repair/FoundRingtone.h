#pragma once

#include "engine/state/PhoneState.h"

#include <string>
#include <vector>

namespace krl::engine {

/// A file of the ringtone folder that is a ringtone, with the entry that it is to have.
struct FoundRingtone {
    std::string file;     ///< in the ringtone folder
    std::string name;     ///< that it is to have; empty: as its file
    std::string listedAs; ///< in the phone's own catalogue; empty when that has no name for it
    cf::CFRef<CFMutableDictionaryRef> entry;
    bool isSeen = false;    ///< by the library, as the phone is
    bool isChanged = false; ///< the entry is not what it was
};

/// Whether the catalogue can hold a text: it is XML, which has no control characters.
bool fitsXml(const std::string& text);

/// A copy of an entry that a repair may edit; an empty one of null.
cf::CFRef<CFMutableDictionaryRef> editableEntry(CFDictionaryRef entry);

/// All that a catalogue lists and whose files are there: what the library sees, and what it does not
/// see although there is sound in it.
std::vector<FoundRingtone> listedRingtones(const PhoneState& phone);

/// Makes the library see each of them: none has another's name, or the form of a placeholder; and no
/// GUID is two ringtones', by which the older layout would move the wrong file. Those that it sees
/// already keep what they have, as far as that goes.
void tellApart(std::vector<FoundRingtone>& ringtones, bool olderLayout);

/// A catalogue of these, in their order.
/// @return its bytes
std::string catalogueOf(const std::vector<FoundRingtone>& ringtones);

} // namespace krl::engine
