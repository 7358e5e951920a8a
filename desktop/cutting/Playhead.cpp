#include "desktop/cutting/Playhead.h"

#include <algorithm>
#include <cmath>

namespace krl::desktop {
namespace {

/// What is told may be late by so much; more is another place.
constexpr double kLate = 0.3;

/// For so long it is known where it goes.
constexpr double kKnown = 0.5;

double seconds(int64_t microseconds) {
    return static_cast<double>(microseconds) / 1e6;
}

} // namespace

void Playhead::tell(double time, int64_t moment) {
    const double lead = time - seconds(moment);
    const bool isLate = lead_ && *lead_ >= lead && *lead_ - lead < kLate;
    // Followed so slowly that it goes back by no more than it moves on from one picture to the next.
    constexpr double kShare = 0.05;
    lead_ = isLate ? *lead_ - (*lead_ - lead) * kShare : lead;
    told_ = moment;
}

std::optional<double> Playhead::at(int64_t moment) const {
    if (!lead_) {
        return std::nullopt;
    }
    return *lead_ + seconds(std::min(moment, told_ + static_cast<int64_t>(kKnown * 1e6)));
}

} // namespace krl::desktop
