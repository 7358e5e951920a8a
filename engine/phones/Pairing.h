#pragma once

#include "engine/phones/Discovery.h"

#include <cstdint>

namespace krl::engine {

/// What came of pairing a phone with this computer.
struct Pairing {
    bool wasPaired = false;    ///< already, on both sides: nothing was done
    int32_t sessionStatus = 0; ///< of a session afterwards; 0 when one can be had
};

/// Pairs a phone with this computer, unless both hold to a pairing that they have.
/// @throw Failure when it cannot be connected to or does not let itself be paired
Pairing pair(const AttachedDevice& phone);

/// Ends the pairing of a phone with this computer.
/// @return whether there was one
/// @throw Failure when it cannot be connected to or keeps the pairing
bool unpair(const AttachedDevice& phone);

} // namespace krl::engine
