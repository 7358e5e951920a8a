#pragma once

#include "engine/state/PhoneState.h"
#include "vesk/invocation/Engine.h"

#include <string>
#include <vector>

namespace vesk {

/// The names as the phone has them, however accents are written.
/// @throw Failure unless the phone has ringtones of all these names; it suggests close ones
std::vector<std::string> foundNames(const PhoneState& state, const std::vector<std::string>& names);

} // namespace vesk
