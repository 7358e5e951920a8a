#include "audio/program/Fades.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace krl::audio {
namespace {

constexpr double kShortestSeconds = 0.005;

size_t framesOf(double seconds, const Sound& sound) {
    return std::min(sound.frames(),
                    static_cast<size_t>(std::max(kShortestSeconds, seconds) * kRate));
}

/// From 0 to 1 along a quarter of a sine: of equal power.
float share(size_t frame, size_t frames) {
    return static_cast<float>(std::sin(std::numbers::pi / 2 * (static_cast<double>(frame) + 0.5) /
                                       static_cast<double>(frames)));
}

} // namespace

void fade(Sound& sound, double inSeconds, double outSeconds) {
    const auto scale = [&](size_t frame, float factor) {
        for (size_t channel = 0; channel < kChannels; ++channel) {
            sound.samples[frame * kChannels + channel] *= factor;
        }
    };
    const size_t in = framesOf(inSeconds, sound);
    for (size_t i = 0; i < in; ++i) {
        scale(i, share(i, in));
    }
    const size_t out = framesOf(outSeconds, sound);
    for (size_t i = 0; i < out; ++i) {
        scale(sound.frames() - 1 - i, share(i, out));
    }
}

} // namespace krl::audio
