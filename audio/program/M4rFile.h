#pragma once

#include "audio/program/Sound.h"

#include <cstdint>
#include <string>
#include <vector>

namespace krl::audio {

struct M4rFile {
    std::vector<uint8_t> bytes;
    float peak = 0; ///< of the samples that a decoder makes of it; above 1 it clips
};

/// Sound as a ringtone file: AAC-LC in an MPEG-4 file that early firmware reads: of the brand
/// "M4A ", its index in front, without an edit list. The same sound gives the same bytes.
M4rFile m4rFile(const Sound& sound, const std::string& title, const std::string& artist);

} // namespace krl::audio
