#pragma once

#include "engine/errors/Failure.h"
#include "engine/plan/Plan.h"

#include <string>
#include <vector>

namespace krl::engine {

// Why a change is not made.

/// @throw Failure when custom ringtones are not known to work on the phone's firmware
void requireKnownFirmware(const PhoneFacts& facts);

/// @throw Failure when the phone says that it has less space than a plan takes
void requireSpace(const PhoneFacts& facts, const Plan& plan);

/// The ringtones that a plan would lose, and why, one a line; empty when there are none.
std::vector<std::string> lossesOf(const Plan& plan);

/// A plan would lose ringtones, and they are not put right first.
/// @param why  they cannot be, and what to do about that
Failure wouldLose(const PhoneFacts& facts, const Plan& plan, const std::string& why);

} // namespace krl::engine
