#include "audio/program/Loudness.h"

#include "audio/program/Ffmpeg.h"
#include "audio/program/FilterChain.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>

namespace krl::audio {
namespace {

constexpr double kSilence = -120; ///< dB, in place of minus infinity

double number(const AVFrame& frame, const char* key, double otherwise) {
    const AVDictionaryEntry* entry = av_dict_get(frame.metadata, key, nullptr, 0);
    return entry == nullptr ? otherwise : std::strtod(entry->value, nullptr);
}

double decibels(double amplitude) {
    return amplitude <= 0 ? kSilence : std::max(kSilence, 20 * std::log10(amplitude));
}

std::string volume(double gain) {
    return fmt::format("volume={:.3f}dB:precision=float", gain);
}

/// Sound made louder, with its peaks held down. Peaks between the samples show at four times the
/// rate; going back lets them rise a little.
Sound held(const Sound& sound, double gain) {
    constexpr double kMargin = 0.3;
    const double limit = std::pow(10, (kHighestPeak - kMargin) / 20);
    return filtered(sound,
                    volume(gain) + fmt::format(",aresample=176400,"
                                               "alimiter=limit={:.5f}:attack=5:release=60:level=0:"
                                               "latency=1,aresample=44100",
                                               limit));
}

} // namespace

Loudness measured(const Sound& sound) {
    constexpr double kShortestMeasured = 0.4;
    Loudness loudness{Loudness::kUnmeasured, kSilence};
    // The scanner gives pieces of a tenth of a second and keeps a shorter rest to itself.
    filter(sound, "apad=pad_dur=0.1,ebur128=peak=true:metadata=1:framelog=verbose",
           [&](const AVFrame& frame) {
               if (sound.seconds() >= kShortestMeasured) {
                   loudness.integrated = number(frame, "lavfi.r128.I", loudness.integrated);
               }
               loudness.peak = decibels(number(frame, "lavfi.r128.true_peak", 0));
           });
    return loudness;
}

Sound levelled(const Sound& sound, const Loudness& loudness) {
    constexpr double kMostGain = 40; ///< dB; what is softer is noise
    constexpr double kNear = 0.5;    ///< LU
    constexpr int kMostTimes = 3;
    const double room = kHighestPeak - loudness.peak;
    double gain = loudness.isMeasured() ? kWantedLoudness - loudness.integrated : room;
    if (std::min(gain, kMostGain) <= room) {
        return filtered(sound, volume(std::min(gain, kMostGain)));
    }
    // Holding peaks down takes loudness away again.
    Sound result = held(sound, std::min(gain, kMostGain));
    for (int times = 1; times < kMostTimes && gain < kMostGain; ++times) {
        const double missing = kWantedLoudness - measured(result).integrated;
        if (missing < kNear) {
            break;
        }
        gain += missing;
        result = held(sound, std::min(gain, kMostGain));
    }
    return result;
}

} // namespace krl::audio
