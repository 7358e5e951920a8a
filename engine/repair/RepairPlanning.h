#pragma once

#include "engine/plan/Change.h"
#include "engine/repair/FoundRingtone.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace krl::engine {

/// Edits the working list of a phone that is in this state.
using Edit = std::function<void(const PhoneState& state)>;

/// A change that loses nothing, on a phone that is put right first.
struct LosslessChange {
    PreparedChange change;                    ///< on the phone put right
    PhoneState state;                         ///< the phone put right
    std::map<std::string, std::string> moves; ///< files that have other names there
};

/// Puts a phone right in memory, so that a change of it loses none of these ringtones, and rehearses
/// the change there. Ringtones that would be lost get other file names, with which they are found in
/// every order in which their firmware may come upon them. Changes nothing on the phone.
/// @return none when no such names are found
std::optional<LosslessChange> planLosslessChange(OpenPhone& phone, const PhoneState& before,
                                                 const std::vector<FoundRingtone>& ringtones,
                                                 const Edit& edit);

} // namespace krl::engine
