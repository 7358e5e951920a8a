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
/// goes by a GUID finds the new file. What the list does not have is added; what is known to be made
/// of the same stays.
void replaceRingtones(KRTRingtoneManager& tones, const std::vector<LocalRingtone>& replacements);

/// Gives a ringtone of the phone another name, which none has. Its file and GUID stay, and no file is
/// sent. Before any other edit of the list.
void renameRingtone(KRTRingtoneManager& tones, const std::string& from, const std::string& to);

/// Whether a ringtone on a phone is known to be made of the same as the wanted one.
bool isMadeOf(const PhoneRingtone& there, const LocalRingtone& wanted);

/// Whether it is the wanted one: made of the same, or, where nothing is written down of that, as large.
bool isSame(const PhoneRingtone& there, const LocalRingtone& wanted);

/// What becomes of ringtones that are not among the wanted ones.
enum class Others { Go, Stay };

/// Makes it these ringtones: adds what is not there, replaces what is not the same. Drops edits made
/// before; the phone's ringtones are those of its state.
void makeHold(OpenPhone& phone, const PhoneState& state, const std::vector<LocalRingtone>& wanted,
              Others others = Others::Go);

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
