#pragma once

#include <cstddef>
#include <vector>

namespace krl::audio {

inline constexpr int kRate = 44100;
inline constexpr size_t kChannels = 2;

/// Sound in memory: stereo at 44.1 kHz, left and right in turn, full scale from -1 to 1.
struct Sound {
    std::vector<float> samples;

    size_t frames() const { return samples.size() / kChannels; }

    double seconds() const { return static_cast<double>(frames()) / kRate; }
};

} // namespace krl::audio
