#pragma once

#include "engine/phones/Discovery.h"
#include "vesk/invocation/Options.h"

namespace vesk {

/// The phone that the options name, or the only one there is: reached, paired, an iPhone.
/// @throw Failure when there is none, more than one, or it cannot be used
AttachedDevice choosePhone(Discovery& discovery, const Options& options);

/// The same for any device that can be reached, paired or not.
AttachedDevice chooseDevice(Discovery& discovery, const Options& options);

} // namespace vesk
