#include "desktop/cutting/Cut.h"

#include <algorithm>
#include <cmath>

namespace krl::desktop {
namespace {

double rounded(double seconds) {
    return std::round(seconds * 100) / 100;
}

} // namespace

Cut::Cut(double songSeconds, const audio::Wish& wish)
    : songSeconds_(songSeconds), shortest_(std::min(kShortest, songSeconds)), wish_(wish) {
    const double from = wish.startSeconds < 0 ? songSeconds + wish.startSeconds : wish.startSeconds;
    start_ = std::clamp(rounded(from), 0.0, songSeconds - shortest_);
    end_ = std::min(songSeconds, start_ + std::clamp(wish.lengthSeconds, shortest_, kLongest));
    settle();
}

uint64_t Cut::estimatedBytes() const {
    constexpr double kBytesPerSecond = 160'000.0 / 8;
    constexpr double kIndexAndTags = 6000;
    return static_cast<uint64_t>(length() * kBytesPerSecond + kIndexAndTags);
}

audio::Wish Cut::lastSeconds(double seconds) const {
    audio::Wish wish = wish_;
    wish.lengthSeconds = std::min(seconds, length());
    wish.startSeconds = end_ - wish.lengthSeconds;
    wish.fadeInSeconds = wish.lengthSeconds < length() ? 0 : wish.fadeInSeconds;
    return wish;
}

void Cut::moveStart(double to) {
    start_ = std::clamp(rounded(to), 0.0, songSeconds_ - shortest_);
    end_ = std::clamp(end_, start_ + shortest_, start_ + kLongest);
    settle();
}

void Cut::moveEnd(double to) {
    end_ = std::clamp(rounded(to), shortest_, songSeconds_);
    start_ = std::clamp(start_, std::max(0.0, end_ - kLongest), end_ - shortest_);
    settle();
}

void Cut::move(double to) {
    const double long_ = length();
    start_ = std::clamp(rounded(to), 0.0, songSeconds_ - long_);
    end_ = start_ + long_;
    settle();
}

void Cut::setFadeIn(double seconds) {
    wish_.fadeInSeconds = std::clamp(seconds, 0.0, kLongestFade);
}

void Cut::setFadeOut(double seconds) {
    wish_.fadeOutSeconds = std::clamp(seconds, 0.0, kLongestFade);
}

/// The wish says the same.
void Cut::settle() {
    wish_.startSeconds = start_;
    wish_.lengthSeconds = length();
}

} // namespace krl::desktop
