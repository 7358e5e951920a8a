#pragma once

#include "engine/repair/Repair.h"
#include "vesk/terminal/Output.h"

#include <optional>
#include <string>
#include <vector>

namespace vesk {

/// The ringtones that a plan would lose, and why, one a line; empty when there are none.
std::vector<std::string> lossesOf(const Plan& plan);

/// A plan would lose ringtones, and they are not put right first.
/// @param why  they cannot be, and what to do about that
Failure wouldLose(const PhoneFacts& facts, const Plan& plan, const std::string& why);

/// Says which ringtones are put right with a change, and how.
/// @param wouldHappen  it is only shown
void sayRepair(const PhoneFacts& facts, const Repair& repair, bool wouldHappen, Output& output);

/// "2 listed again, 1 put right".
std::string describeRepair(const Repair& repair);

Json repairJson(const Repair& repair);

} // namespace vesk
