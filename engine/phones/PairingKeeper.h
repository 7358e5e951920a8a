#pragma once

#include <MobileDevice/MobileDevice.h>

#include <string>
#include <vector>

namespace krl::engine {

/// Has the pairing with this phone made again when another program ends it: once in the life of the
/// process, where the phone allows it without being asked, in the middle of a sync too, and not when
/// the other program pairs the phone anew itself. For the
/// rest of the process the functions of MobileDevice.h that meet an ended pairing pass through here;
/// for other phones they do what they did. Call it with a phone that the person has chosen to work
/// on, while no other thread uses it.
void keepPairing(am_device* device);

/// Has it made again no more: the person ends it.
void letPairingGo(am_device* device);

/// What there is to say of pairings that were ended, since this was last asked. Any thread.
std::vector<std::string> takePairingNotes();

} // namespace krl::engine
