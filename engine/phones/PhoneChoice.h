#pragma once

#include "engine/errors/Failure.h"
#include "engine/phones/Discovery.h"

#include <chrono>
#include <string>
#include <vector>

namespace krl::engine {

/// Which phone is meant.
struct PhoneRequest {
    /// A UDID, the beginning of one (four characters or more) or a phone's name; empty: the only phone.
    std::string udid;
    std::chrono::milliseconds wait{2000}; ///< for it to appear
};

/// Those of the devices that a request means. A whole UDID goes before the beginning of one, that before
/// a name, and a name as it is before one that differs in case; all of them when nothing is said. A phone
/// that tells its name only over a session is asked for it when the text is no UDID of these devices.
std::vector<AttachedDevice> meantDevices(const PhoneRequest& request,
                                         std::vector<AttachedDevice> devices);

/// What to say when a request means no device, or there is none.
/// @param others  those that are attached
Failure noDeviceMeant(const PhoneRequest& request, const std::vector<AttachedDevice>& others);

/// The phone that is meant, or the only one there is: reached, an iPhone, and paired, now or when it
/// was last chosen.
/// @throw Failure when there is none, more than one, or it cannot be used
AttachedDevice choosePhone(Discovery& discovery, const PhoneRequest& request);

/// The same for any device that can be reached, paired or not.
AttachedDevice chooseDevice(Discovery& discovery, const PhoneRequest& request);

} // namespace krl::engine
