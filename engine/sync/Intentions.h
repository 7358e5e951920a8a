#pragma once

#include "engine/plan/Plan.h"
#include "engine/restore/SafeKeeping.h"

namespace krl::engine {

/// What a plan changes, as the safe keeps it.
Intention intentionOf(const Plan& plan);

} // namespace krl::engine
