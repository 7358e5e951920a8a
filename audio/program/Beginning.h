#pragma once

#include "audio/program/Sound.h"

#include <memory>
#include <span>
#include <vector>

namespace krl::audio {

/// Listens to a song for a good place to begin a ringtone.
class Beginning {
public:
    Beginning();
    ~Beginning();

    Beginning(const Beginning&) = delete;
    Beginning& operator=(const Beginning&) = delete;

    /// The next piece of the song.
    void hear(std::span<const float> samples);

    /// Where to begin: of the stretches of so many seconds that begin with an onset those that are
    /// nearly the loudest, and of these the one with the strongest onset. The song's beginning when
    /// it is not longer.
    double secondsFor(double lengthSeconds) const;

private:
    struct Spectrum;

    void hearHop();

    std::unique_ptr<Spectrum> spectrum_;
    std::vector<float> heard_;   ///< of one channel, what hops did not use up
    std::vector<double> energy_; ///< of each hop
    std::vector<double> flux_;   ///< how much more there is in each hop's spectrum than before
};

/// Lets sound begin where it crosses zero, nearest to a time near its beginning.
void beginAtZero(Sound& sound, double nearSeconds);

} // namespace krl::audio
