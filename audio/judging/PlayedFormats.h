#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace krl::audio {

/// A kind of file that early iPhones play as a ringtone. docs/audio.md says where each value comes
/// from.
struct PlayedFormat {
    const char* container;
    const char* codec;
    std::vector<std::string> extensions; ///< by which the phone knows it, in lower case
    int mostBits;                        ///< 0: the codec has none
    int mostKilobits;                    ///< 0: no bound
    bool onlyThrough112;                 ///< firmware 1.1.3 and later want it made an m4r
};

/// All there are. What is not among them is not played, or nobody knows.
const std::vector<PlayedFormat>& playedFormats();

inline constexpr int kLowestRate = 8000;
inline constexpr int kHighestRate = 48000;
inline constexpr int kMostChannels = 2;
inline constexpr int kFewestKilobits = 8;

/// Covers are no larger; one that is takes more room on a phone than the sound.
inline constexpr uint64_t kLargestPicture = 2 * 1024 * 1024;

/// What is longer plays as music; as a ringtone it is cut off or not taken.
inline constexpr int kLongestRingtoneSeconds = 40;

} // namespace krl::audio
