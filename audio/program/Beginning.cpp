#include "audio/program/Beginning.h"

#include "audio/program/Ffmpeg.h"

extern "C" {
#include <libavutil/tx.h>
}

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <numeric>
#include <optional>

namespace krl::audio {
namespace {

constexpr size_t kHop = 512;
constexpr size_t kWindow = 2 * kHop;
constexpr size_t kBins = kWindow / 2 + 1;
constexpr double kHopSeconds = static_cast<double>(kHop) / kRate;

using Transform = std::unique_ptr<AVTXContext, FreeByAddress<av_tx_uninit>>;

/// Sums of all values before each place.
std::vector<double> sumsOf(const std::vector<double>& values) {
    std::vector<double> sums(values.size() + 1);
    std::partial_sum(values.begin(), values.end(), sums.begin() + 1);
    return sums;
}

/// Whether a hop brings more than any near it, and clearly more than is usual around it.
bool isOnset(const std::vector<double>& flux, const std::vector<double>& sums, size_t hop) {
    constexpr size_t kNear = 3;
    constexpr size_t kAround = 43; // half a second
    constexpr double kClearly = 1.5;
    const auto from = [&](size_t range) { return hop - std::min(range, hop); };
    const auto to = [&](size_t range) { return std::min(hop + range + 1, flux.size()); };
    const double highest = *std::max_element(flux.begin() + static_cast<ptrdiff_t>(from(kNear)),
                                             flux.begin() + static_cast<ptrdiff_t>(to(kNear)));
    const double usual = (sums[to(kAround)] - sums[from(kAround)]) /
                         static_cast<double>(to(kAround) - from(kAround));
    return flux[hop] > 0 && flux[hop] >= highest && flux[hop] > kClearly * usual;
}

} // namespace

struct Beginning::Spectrum {
    Spectrum() {
        AVTXContext* context = nullptr;
        const float scale = 1;
        required(av_tx_init(&context, &transform, AV_TX_FLOAT_RDFT, 0, static_cast<int>(kWindow),
                            &scale, AV_TX_UNALIGNED));
        context_.reset(context);
        for (size_t i = 0; i < kWindow; ++i) {
            window[i] = static_cast<float>(
                0.5 - 0.5 * std::cos(2 * std::numbers::pi * static_cast<double>(i) / kWindow));
        }
    }

    /// What rose since the last window, in all bins together.
    double riseOf(const float* samples) {
        std::transform(window.begin(), window.end(), samples, windowed.begin(),
                       [](float factor, float sample) { return factor * sample; });
        transform(context_.get(), bins.data(), windowed.data(), sizeof(float));
        double rise = 0;
        for (size_t i = 0; i < kBins; ++i) {
            const float magnitude = std::log1p(std::hypot(bins[i].re, bins[i].im));
            rise += std::max(0.0F, magnitude - before[i]);
            before[i] = magnitude;
        }
        return rise;
    }

private:
    Transform context_;
    av_tx_fn transform = nullptr;
    std::array<float, kWindow> window{};
    std::array<float, kWindow> windowed{};
    std::array<AVComplexFloat, kBins> bins{};
    std::array<float, kBins> before{};
};

Beginning::Beginning() : spectrum_(std::make_unique<Spectrum>()) {}

Beginning::~Beginning() = default;

void Beginning::hear(std::span<const float> samples) {
    for (size_t i = 0; i + 1 < samples.size(); i += kChannels) {
        heard_.push_back((samples[i] + samples[i + 1]) / 2);
        if (heard_.size() == kWindow) {
            hearHop();
            heard_.erase(heard_.begin(), heard_.begin() + kHop);
        }
    }
}

void Beginning::hearHop() {
    energy_.push_back(
        std::inner_product(heard_.begin(), heard_.begin() + kHop, heard_.begin(), 0.0));
    flux_.push_back(spectrum_->riseOf(heard_.data()));
}

double Beginning::secondsFor(double lengthSeconds) const {
    const auto hops = static_cast<size_t>(lengthSeconds / kHopSeconds);
    if (hops >= energy_.size()) {
        return 0;
    }
    constexpr double kNearlyLoudest = 0.8; // one decibel less
    const std::vector<double> energies = sumsOf(energy_);
    const std::vector<double> fluxes = sumsOf(flux_);
    const auto loudnessAt = [&](size_t hop) { return energies[hop + hops] - energies[hop]; };
    std::vector<size_t> onsets;
    double loudest = 0;
    for (size_t hop = 0; hop + hops <= energy_.size(); ++hop) {
        if (isOnset(flux_, fluxes, hop)) {
            onsets.push_back(hop);
            loudest = std::max(loudest, loudnessAt(hop));
        }
    }
    std::optional<size_t> best;
    for (const size_t hop : onsets) {
        if (loudnessAt(hop) >= kNearlyLoudest * loudest && (!best || flux_[hop] > flux_[*best])) {
            best = hop;
        }
    }
    // What rises in a window is heard in its middle at the latest.
    return best ? static_cast<double>(*best) * kHopSeconds : 0;
}

void beginAtZero(Sound& sound, double nearSeconds) {
    const auto near = static_cast<size_t>(nearSeconds * kRate);
    const auto value = [&](size_t frame) {
        return sound.samples[frame * kChannels] + sound.samples[frame * kChannels + 1];
    };
    const auto crosses = [&](size_t frame) {
        return frame > 0 && frame < sound.frames() && value(frame - 1) <= 0 && value(frame) >= 0;
    };
    size_t begin = std::min(near, sound.frames());
    for (size_t away = 0; away <= near; ++away) {
        if (crosses(near - away) || crosses(near + away)) {
            begin = crosses(near - away) ? near - away : near + away;
            break;
        }
    }
    sound.samples.erase(sound.samples.begin(),
                        sound.samples.begin() + static_cast<ptrdiff_t>(begin * kChannels));
}

} // namespace krl::audio
