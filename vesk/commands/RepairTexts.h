#pragma once

#include "engine/repair/Repair.h"
#include "vesk/terminal/Output.h"

#include <string>

namespace vesk {

/// Says which ringtones are put right with a change, and how.
/// @param wouldHappen  it is only shown
void sayRepair(const PhoneFacts& facts, const Repair& repair, bool wouldHappen, Output& output);

/// "2 listed again, 1 put right".
std::string describeRepair(const Repair& repair);

Json repairJson(const Repair& repair);

} // namespace vesk
