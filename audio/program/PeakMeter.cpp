#include "audio/program/PeakMeter.h"

#include "audio/program/Ffmpeg.h"
#include "audio/program/Source.h"

#include <algorithm>
#include <cmath>

namespace krl::audio {
namespace {

constexpr float kFullScale = 32767;

int16_t scaled(float sample) {
    return static_cast<int16_t>(std::lround(sample * kFullScale));
}

} // namespace

void PeakMeter::hear(std::span<const float> samples) {
    for (size_t i = 0; i + 1 < samples.size(); i += kChannels) {
        hear((samples[i] + samples[i + 1]) / 2);
    }
}

void PeakMeter::hear(float sample) {
    // A file of floating-point samples may hold what is no number.
    const float bounded = std::isfinite(sample) ? std::clamp(sample, -1.0F, 1.0F) : 0;
    open_.low = std::min(open_.low, bounded);
    open_.high = std::max(open_.high, bounded);
    ++frames_;
    if (++openFrames_ == framesPerPeak_) {
        closePeak();
    }
}

void PeakMeter::closePeak() {
    peaks_.push_back({scaled(open_.low), scaled(open_.high)});
    open_ = {};
    openFrames_ = 0;
    if (peaks_.size() == most_) {
        halve();
    }
}

/// Makes each two peaks one.
void PeakMeter::halve() {
    for (size_t i = 0; i < peaks_.size() / 2; ++i) {
        const Peak& one = peaks_[2 * i];
        const Peak& other = peaks_[2 * i + 1];
        peaks_[i] = {std::min(one.low, other.low), std::max(one.high, other.high)};
    }
    peaks_.resize(peaks_.size() / 2);
    framesPerPeak_ *= 2;
}

Peaks PeakMeter::peaks() const {
    Peaks result{peaks_, static_cast<double>(frames_) / kRate,
                 static_cast<double>(framesPerPeak_) / kRate};
    if (openFrames_ > 0) {
        result.peaks.push_back({scaled(open_.low), scaled(open_.high)});
    }
    return result;
}

Peaks peaksOf(int descriptor) {
    Source source(descriptor);
    PeakMeter meter;
    source.read(0, [&](std::span<const float> samples) {
        meter.hear(samples);
        return true;
    });
    Peaks peaks = meter.peaks();
    if (peaks.peaks.empty()) {
        throw CannotPrepare("there is no sound in it that can be decoded",
                            "Take another file of the song.");
    }
    return peaks;
}

} // namespace krl::audio
