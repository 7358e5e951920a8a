#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace krl::audio {

/// How far the playing of a file is.
struct PlayState {
    enum class Phase {
        Playing,
        Ended,    ///< it was played to its end
        NoDevice, ///< there is nothing to play it on; `problem` says why
        NotPlayed ///< it cannot be played; `problem` says why
    };
    Phase phase = Phase::Playing;
    double positionSeconds = 0;
    double lengthSeconds = 0; ///< 0: not known
    std::string problem = {}; ///< without a full stop
};

// How vesk-play and the program that asks it talk. The first question has the file to be played beside
// it, and for text where the sound is to go: a sink in GStreamer's words, or nothing for the desktop's.
// Every later one is empty. The answer to each comes at the next news, or after a moment.

/// Bytes that a question or an answer takes at most.
inline constexpr size_t kLongestPlayText = 65536;

std::string encoded(const PlayState& state);

/// None when it is anything else.
std::optional<PlayState> decodedPlayState(std::string_view text);

} // namespace krl::audio
