#pragma once

#include "engine/state/PhoneState.h"

#include <functional>
#include <string>

namespace krl::engine {

/// Reads the phone's state and makes a change from it; from the beginning when another program
/// changes the phone meanwhile. What is refused because of the state is refused only once nobody is
/// in the middle of a sync: half-way, catalogue and folder do not fit each other.
/// @param state    what was read, for the attempt
/// @param attempt  throws a Failure when the state does not allow the change, ChangedMeanwhile when
///                 another program was quicker
/// @param again    told of each new beginning and its reason
/// @throw Failure that of the attempt; of ChangedMeanwhile after five attempts
void attempt(OpenPhone& phone, PhoneState& state, const std::function<void()>& attempt,
             const std::function<void(const std::string& reason)>& again);

} // namespace krl::engine
