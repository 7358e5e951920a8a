#pragma once

#include "engine/state/PhoneState.h"
#include "vesk/invocation/Engine.h"

#include <string>
#include <vector>

namespace vesk {

/// @throw Failure unless the phone has ringtones of all these names; it suggests close ones
void requireNamesFound(const PhoneState& state, const std::vector<std::string>& names);

} // namespace vesk
