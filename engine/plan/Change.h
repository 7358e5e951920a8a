#pragma once

#include "engine/files/LocalFile.h"
#include "engine/plan/Plan.h"
#include "engine/state/PhoneState.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace vesk {

// Edits of a phone's working list.

void addRingtones(KRTRingtoneManager& tones, const std::vector<LocalRingtone>& added);
void removeRingtones(KRTRingtoneManager& tones, const std::vector<std::string>& names);

/// Makes it exactly these ringtones, told apart by name and size. Drops edits made before and reads
/// the phone's ringtones anew.
void makeHold(Session& session, const PhoneState& state, const std::vector<LocalRingtone>& wanted);

/// The change that the working list holds, and what will come of it.
struct PreparedChange {
    std::set<std::string> added;   ///< names
    std::set<std::string> removed; ///< names; one that is replaced is in both
    Plan plan;
    std::map<std::string, uint64_t> wanted; ///< names on the phone afterwards and their sizes
    size_t catalogueEntries = 0;            ///< in the new catalogue
};

/// Asks the library for the catalogue that the change leads to and goes through it. Changes
/// nothing.
/// @throw Failure when the catalogue cannot be generated
PreparedChange prepare(Session& session, const PhoneState& state);

} // namespace vesk
