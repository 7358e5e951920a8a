#pragma once

#include "engine/state/PhoneState.h"

#include <string>
#include <vector>

namespace krl::engine {

// What is refused because of the names that a phone has. Nothing was changed on the phone then.

/// The names as the phone has them, however accents are written.
/// @throw Failure unless the phone has ringtones of all these names; it suggests close ones
std::vector<std::string> foundNames(const PhoneState& state, const std::vector<std::string>& names);

/// @throw Failure when the phone has a ringtone of one of the names that are to be added
void requireNamesFree(const PhoneState& state, const std::vector<std::string>& names);

/// @param from  the ringtone that is to have the name
/// @throw Failure when another one has it
void requireNameFree(const PhoneState& state, const std::string& from, const std::string& name);

/// Nobody has said that everything may be removed.
/// @param what  what would remove everything, to begin a sentence with
/// @throw Failure when there is something to remove
void requireYes(const PhoneState& state, const std::string& what);

} // namespace krl::engine
