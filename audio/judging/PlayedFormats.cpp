#include "audio/judging/PlayedFormats.h"

#include "tags/AudioFacts.h"

namespace krl::audio {

const std::vector<PlayedFormat>& playedFormats() {
    namespace container = tags::container;
    namespace codec = tags::codec;
    constexpr int kBits = 16;
    constexpr int kKilobits = 320;
    static const std::vector<PlayedFormat> formats{
        {container::kMpeg4, codec::kAacLc, {"m4r"}, 0, kKilobits, false},
        {container::kMpeg4, codec::kAacLc, {"m4a", "m4p"}, 0, kKilobits, true},
        {container::kMpegAudio, codec::kMp3, {"mp3"}, 0, kKilobits, true},
        {container::kWave, codec::kPcm, {"wav"}, kBits, 0, true},
        {container::kAiff, codec::kPcm, {"aif", "aiff"}, kBits, 0, true},
    };
    return formats;
}

} // namespace krl::audio
