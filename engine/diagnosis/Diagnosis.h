#pragma once

#include "engine/phones/Discovery.h"

#include <string>
#include <vector>

namespace krl::engine {

/// What one look at something came to.
struct Finding {
    std::string check; ///< its name in JSON, "sync-lock" and the like
    bool good = true;
    std::string text;   ///< what is so, or what is wrong
    std::string advice; ///< what to do; empty when it is good
};

/// In the order in which things stand between a person and a phone. What cannot be looked at
/// because of a problem before it is missing.
using Findings = std::vector<Finding>;

bool allGood(const Findings& findings);

/// This computer: the mux daemon's socket, the device layer, the sessions that it can have.
Findings examineComputer();

/// One phone, from its pairing to its catalogue. Changes nothing on it; of the sync lock it finds
/// out by taking it and giving it back at once.
Findings examinePhone(const AttachedDevice& phone);

} // namespace krl::engine
