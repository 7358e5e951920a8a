#pragma once

#include <cstdint>
#include <optional>

namespace krl::desktop {

/// Where a song is heard, also between the moments when that is told: those are some to the second,
/// and come late by something that differs. Times are in seconds of the song, moments in
/// microseconds of any clock that goes on.
class Playhead {
public:
    /// It is heard at this time.
    /// @param moment  when that was told
    void tell(double time, int64_t moment);

    /// It is not heard any more, or not yet.
    void stop() { lead_.reset(); }

    bool isMoving() const { return lead_.has_value(); }

    /// Where it is heard now; none: nowhere. Stands still when nothing was told for a while.
    std::optional<double> at(int64_t moment) const;

private:
    std::optional<double> lead_; ///< of the time before the clock, in seconds
    int64_t told_ = 0;           ///< when something was told last
};

} // namespace krl::desktop
