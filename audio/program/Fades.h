#pragma once

#include "audio/program/Sound.h"

namespace krl::audio {

/// Lets sound rise at its beginning and fall at its end; neither begins nor ends with a click, also
/// where no fade is wanted.
void fade(Sound& sound, double inSeconds, double outSeconds);

} // namespace krl::audio
