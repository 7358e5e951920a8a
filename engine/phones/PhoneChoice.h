#pragma once

#include "engine/phones/Discovery.h"

#include <chrono>
#include <string>

namespace krl::engine {

/// Which phone is meant.
struct PhoneRequest {
    std::string udid;                     ///< empty: the only phone
    std::chrono::milliseconds wait{2000}; ///< for it to appear
};

/// The phone that is meant, or the only one there is: reached, an iPhone, and paired, now or when it
/// was last chosen.
/// @throw Failure when there is none, more than one, or it cannot be used
AttachedDevice choosePhone(Discovery& discovery, const PhoneRequest& request);

/// The same for any device that can be reached, paired or not.
AttachedDevice chooseDevice(Discovery& discovery, const PhoneRequest& request);

} // namespace krl::engine
