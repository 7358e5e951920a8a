#pragma once

#include "Device.h"
#include "Discovery.h"
#include "Options.h"

namespace vesk {

/// A phone to work on: reached, paired, an iPhone.
struct ChosenPhone {
    Device device;
    DeviceDescription description;
};

/// The phone that the options name, or the only one there is.
/// @throw Failure when there is none, more than one, or it cannot be used
ChosenPhone choosePhone(Discovery& discovery, const Options& options);

} // namespace vesk
