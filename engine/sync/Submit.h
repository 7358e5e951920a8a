#pragma once

#include "engine/plan/Change.h"
#include "vesk/terminal/Output.h"

#include <cstddef>
#include <string>
#include <vector>

namespace vesk {

/// Carries a prepared change to the phone under its sync lock, shows progress, and looks at the
/// phone afterwards: the library does not report a catalogue that could not be written. A cancelled
/// or failed sync leaves the old catalogue; files that had moved are then moved back where the
/// phone lets us, so that the old catalogue finds them.
/// @throw Failure unless the phone holds exactly what was wanted
void submit(Session& session, const PhoneState& before, const PreparedChange& change,
            Output& output);

} // namespace vesk
