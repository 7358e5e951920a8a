#pragma once

#include "engine/state/Catalogue.h"
#include "vesk/terminal/Output.h"

namespace vesk {

/// Says which entries of a catalogue are about no file of the ringtone folder, if there are any.
/// @param whose  what to call the catalogue
void warnOfStrangeKeys(const std::string& whose, const Catalogue& catalogue, Output& output);

} // namespace vesk
