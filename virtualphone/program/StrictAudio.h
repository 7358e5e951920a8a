/// Ringtones that would not play, said to the person at the terminal.
#pragma once

#include "virtualphone/VirtualPhone.h"

#include <memory>
#include <string>
#include <vector>

namespace virtualphone {

/// As in: would not play: "XYZ.m4r": FLAC in Ogg
std::string describe(const Unplayable& ringtone);

/// Has a phone say on standard error what would not play of what is stored on it.
void sayWhatWouldNotPlay(PhoneOptions& options);

/// Says on standard error what would not play of all that is on the phones.
///
/// @return whether all would.
bool allWouldPlay(const std::vector<std::shared_ptr<Phone>>& phones);

} // namespace virtualphone
