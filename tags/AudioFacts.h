#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace krl::tags {

/// The names of what phones may play, and of what is easily taken for it; all others are whatever
/// the reader calls them.
namespace container {
inline constexpr char kMpeg4[] = "MPEG-4";
inline constexpr char kMpegAudio[] = "MPEG audio";
inline constexpr char kWave[] = "WAVE";
inline constexpr char kAiff[] = "AIFF";
} // namespace container

namespace codec {
inline constexpr char kAacLc[] = "AAC-LC";
inline constexpr char kHeAac[] = "HE-AAC";
inline constexpr char kOtherAac[] = "AAC of another profile";
inline constexpr char kAppleLossless[] = "Apple Lossless";
inline constexpr char kMp3[] = "MP3";
inline constexpr char kPcm[] = "PCM";
inline constexpr char kUnknown[] = "unknown";
} // namespace codec

/// What an audio file says of itself. Zero and empty: it does not say.
struct AudioFacts {
    std::string container = {}; ///< empty: not known as an audio file
    std::string codec = {};
    int channels = 0;
    int sampleRate = 0; ///< Hz
    int bits = 0;       ///< of a sample, where the codec has that
    int kilobits = 0;   ///< a second
    int64_t lengthMs = 0;
    bool encrypted = false;
    std::string title = {};
    std::string artist = {};
    uint64_t pictureBytes = 0; ///< of the largest picture in the tags

    /// Whether it is an audio file with sound in it.
    bool hasSound() const { return !container.empty() && sampleRate > 0 && lengthMs > 0; }

    friend bool operator==(const AudioFacts&, const AudioFacts&) = default;
};

/// Bytes that facts take as text at most; longer titles and artists are left out.
inline constexpr size_t kLongestFacts = 65536;

/// As text, for the way between two processes.
std::string encoded(const AudioFacts& facts);

/// From such text; none when it is anything else.
std::optional<AudioFacts> decodedFacts(std::string_view text);

} // namespace krl::tags
