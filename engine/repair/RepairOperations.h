#pragma once

#include "engine/repair/Repair.h"

#include <vector>

namespace krl::engine {

/// The steps of a repair as operations on the phone, one for one, with the ringtones that they are
/// about.
std::vector<Operation> operationsOf(const Repair& repair, const PhoneState& before);

} // namespace krl::engine
