#pragma once

#include "audio/preparing/Peaks.h"
#include "audio/program/Sound.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace krl::audio {

/// Takes down the peaks of a song of any length in bounded memory: where there would be too many, each
/// two become one.
class PeakMeter {
public:
    /// @param most  peaks that there may be; even
    explicit PeakMeter(size_t most = kMostPeaks) : most_(most) {}

    /// The next piece of the song.
    void hear(std::span<const float> samples);

    /// The peaks of all that was heard.
    Peaks peaks() const;

private:
    /// Lowest and highest so far, between -1 and 1.
    struct Range {
        float low = 1;
        float high = -1;
    };

    void hear(float sample);
    void closePeak();
    void halve();

    const size_t most_;
    std::vector<Peak> peaks_;
    Range open_; ///< of what is not closed yet
    size_t openFrames_ = 0;
    size_t framesPerPeak_ = kRate / 100;
    uint64_t frames_ = 0;
};

/// The peaks of an open song.
/// @param descriptor  lent
/// @throw CannotPrepare
Peaks peaksOf(int descriptor);

} // namespace krl::audio
