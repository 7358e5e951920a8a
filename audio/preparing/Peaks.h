#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace krl::audio {

/// The lowest and the highest of some moment of a song, both channels mixed. Full scale is 32767.
struct Peak {
    int16_t low = 0;
    int16_t high = 0;

    friend bool operator==(const Peak&, const Peak&) = default;
};

/// The waveform of a whole song.
struct Peaks {
    std::vector<Peak> peaks;
    double seconds = 0;        ///< how long the song is
    double secondsPerPeak = 0; ///< the last one may be of less
};

/// So many peaks at most, some 1.4 MB: an hour by the hundredth of a second. Of longer songs there is
/// one for each fiftieth, and so on.
inline constexpr size_t kMostPeaks = 360'000;

/// What vesk-prepare is told to be asked for peaks, not for a ringtone.
inline constexpr char kForPeaks[] = "peaks";

/// How vesk-prepare answers: the peaks are in the file that it was handed, as they are in memory. Or
/// with what stands in the way, as PrepareAnswer does.
struct PeaksAnswer {
    double seconds = 0;
    double secondsPerPeak = 0;
    std::string problem = {}; ///< empty: done
    std::string advice = {};
};

// As text, for the way between two processes, and back; none when it is anything else.
std::string encoded(const PeaksAnswer& answer);
std::optional<PeaksAnswer> decodedPeaksAnswer(std::string_view text);

/// Peaks as bytes of a file, and back; none when there are too many, or they are not as long as is
/// said of them.
std::string bytesOf(const std::vector<Peak>& peaks);
std::optional<Peaks> peaksIn(std::string_view bytes, const PeaksAnswer& about);

} // namespace krl::audio
