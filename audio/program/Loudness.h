#pragma once

#include "audio/program/Sound.h"

namespace krl::audio {

/// How loud ringtones are made, by EBU R128.
inline constexpr double kWantedLoudness = -14; ///< LUFS
inline constexpr double kHighestPeak = -1;     ///< dBTP

struct Loudness {
    double integrated = 0; ///< LUFS; kUnmeasured when there is too little sound
    double peak = 0;       ///< true peak, dBTP

    /// What the scanner says of less than 0.4 seconds, or of silence.
    static constexpr double kUnmeasured = -70;

    bool isMeasured() const { return integrated > kUnmeasured; }
};

/// The first pass: measures.
Loudness measured(const Sound& sound);

/// The second pass: brings sound to the common loudness, peaks held down where they would be too
/// high. What is too short to be measured is brought to the highest peak.
Sound levelled(const Sound& sound, const Loudness& loudness);

} // namespace krl::audio
