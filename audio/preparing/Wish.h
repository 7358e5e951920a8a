#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace krl::audio {

/// What a ringtone is to be made of and how.
struct Wish {
    double startSeconds = 0; ///< below zero: from the end
    double lengthSeconds = 30;
    double fadeInSeconds = 0;
    double fadeOutSeconds = 1;
    bool automatic = false; ///< find a good beginning; the start is not looked at
    bool level = true;      ///< bring the loudness to the common level
    std::string title = {}; ///< empty: as the song says
    std::string artist = {};

    friend bool operator==(const Wish&, const Wish&) = default;
};

/// What came of it.
struct Prepared {
    double startSeconds = 0;
    double lengthSeconds = 0;
    double songLoudness = 0; ///< of the part that was cut out, in LUFS
    double loudness = 0;     ///< of the ringtone, in LUFS
    double peak = 0;         ///< of the ringtone, true peak, in dBTP
    bool silent = false;     ///< there is nothing to hear in that part
    int damagedParts = 0;    ///< that could not be decoded and were left out
};

/// How vesk-prepare answers: with what came of it, or with what stands in the way, as a sentence
/// about "it" without a full stop, and what to do.
struct PrepareAnswer {
    Prepared prepared = {};
    std::string problem = {}; ///< empty: done
    std::string advice = {};
};

/// Bytes that a wish or an answer takes as text at most.
inline constexpr size_t kLongestWish = 65536;

// As text, for the way between two processes, and back; none when it is anything else.
std::string encoded(const Wish& wish);
std::optional<Wish> decodedWish(std::string_view text);
std::string encoded(const PrepareAnswer& answer);
std::optional<PrepareAnswer> decodedAnswer(std::string_view text);

} // namespace krl::audio
