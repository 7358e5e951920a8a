/// What early iPhones play as a ringtone, by this phone's own account of it.
#pragma once

#include <string>

namespace virtualphone {

/// Whether a file's name ends in the type of a ringtone.
bool isRingtoneName(const std::string& name);

/// Why a phone would not play a file as a ringtone, in a few words as in "FLAC in Ogg"; empty when
/// it would. Goes by what FFmpeg says that the file is, and by the name as a phone does.
///
/// @param onlyM4r  the phone's firmware is 1.1.3 or later, which knows no ringtones of other types
///
/// Throws std::runtime_error when there is no program ffprobe.
std::string whyNotPlayed(int file, const std::string& name, bool onlyM4r);

} // namespace virtualphone
