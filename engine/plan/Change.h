#pragma once

#include "engine/files/LocalFile.h"
#include "engine/plan/Plan.h"
#include "engine/state/PhoneState.h"

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace krl::engine {

// Edits of a phone's working list.

void addRingtones(KRTRingtoneManager& tones, const std::vector<LocalRingtone>& added);
void removeRingtones(KRTRingtoneManager& tones, const std::vector<std::string>& names);

/// Puts other files in the place of the ringtones of the same names, which keep their GUIDs: whoever
/// goes by a GUID finds the new file. What the phone does not have is added.
/// @param state  the phone's, whose ringtones the list holds
void replaceRingtones(KRTRingtoneManager& tones, const PhoneState& state,
                      const std::vector<LocalRingtone>& replacements);

/// Gives a ringtone of the phone another name, which none has. Its file and GUID stay, and no file is
/// sent. Before any other edit of the list.
void renameRingtone(KRTRingtoneManager& tones, const std::string& from, const std::string& to);

/// Makes it exactly these ringtones, told apart by name and size. Drops edits made before; the
/// phone's ringtones are those of its state.
void makeHold(OpenPhone& phone, const PhoneState& state, const std::vector<LocalRingtone>& wanted);

/// The change that the working list holds, and what will come of it.
struct PreparedChange {
    std::set<std::string> added;   ///< names
    std::set<std::string> removed; ///< names; one that is replaced is in both
    std::vector<std::pair<std::string, std::string>> renamed; ///< old names to new ones
    Plan plan;
};

/// Rehearses the change. Changes nothing on the phone.
/// @throw Failure when it cannot be carried out
PreparedChange prepare(OpenPhone& phone, const PhoneState& state);

} // namespace krl::engine
