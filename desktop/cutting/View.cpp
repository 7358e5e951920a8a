#include "desktop/cutting/View.h"

#include <algorithm>

namespace krl::desktop {
namespace {

constexpr double kShortest = 0.5;

} // namespace

void View::zoom(double factor, double around) {
    const double before = seconds_;
    seconds_ = std::clamp(seconds_ / factor, std::min(kShortest, songSeconds_), songSeconds_);
    scroll((around - start_) * (1 - seconds_ / before));
}

void View::scroll(double seconds) {
    start_ = std::clamp(start_ + seconds, 0.0, songSeconds_ - seconds_);
}

void View::show(double time) {
    const double margin = seconds_ / 20;
    if (time < start_ + margin) {
        scroll(time - margin - start_);
    } else if (time > start_ + seconds_ - margin) {
        scroll(time + margin - start_ - seconds_);
    }
}

} // namespace krl::desktop
