#pragma once

#include "engine/phones/Device.h"
#include "vesk/invocation/Options.h"
#include "vesk/terminal/Output.h"

#include <string>

namespace vesk {

/// What stands in the way of using a device; empty when nothing does.
std::string problemOf(const DeviceDescription& about);

/// What to do about a phone that is not paired; empty for any other device.
std::string pairingHint(const DeviceDescription& about);

Json deviceJson(const DeviceDescription& about);

std::string orUnknown(const std::string& text);

} // namespace vesk
