#pragma once

#include "audio/preparing/Wish.h"
#include "vesk/terminal/Output.h"

#include <string>

namespace vesk {

/// "0:30 from 1:02.5, -14.0 LUFS".
std::string preparedText(const krl::audio::Prepared& prepared);

/// The same as members of an object of JSON.
Json preparedJson(const krl::audio::Prepared& prepared);

/// Says what a person would not expect of a ringtone.
void warnOfPrepared(const std::string& song, const krl::audio::Prepared& prepared, Output& output);

} // namespace vesk
