#pragma once

#include "audio/judging/PlayedFormats.h"
#include "audio/preparing/Wish.h"

namespace krl::desktop {

/// Which part of a song becomes a ringtone, and how, within what a ringtone may be. Times are in
/// seconds of the song, to the hundredth.
class Cut {
public:
    static constexpr double kShortest = 1;
    static constexpr double kLongest = audio::kLongestRingtoneSeconds;
    static constexpr double kLongestFade = 10;

    /// @param wish  is followed so far as the song goes
    Cut(double songSeconds, const audio::Wish& wish);

    double start() const { return start_; }

    double end() const { return end_; }

    double length() const { return end_ - start_; }

    double songSeconds() const { return songSeconds_; }

    const audio::Wish& wish() const { return wish_; }

    /// The same for its last few seconds alone.
    audio::Wish lastSeconds(double seconds) const;

    /// Bytes that the ringtone takes, or nearly so.
    uint64_t estimatedBytes() const;

    /// Moves the beginning alone, unless the cut would become too long or too short: then the end
    /// goes along.
    void moveStart(double to);

    /// Likewise the end.
    void moveEnd(double to);

    /// Moves all of it so that it begins there.
    void move(double to);

    void setFadeIn(double seconds);
    void setFadeOut(double seconds);

    void setLevel(bool level) { wish_.level = level; }

private:
    void settle();

    double songSeconds_;
    double shortest_; ///< of this song
    double start_ = 0;
    double end_ = 0;
    audio::Wish wish_;
};

} // namespace krl::desktop
