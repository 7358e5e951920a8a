#include "tags/AacProfile.h"

#include "tags/AudioFacts.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace krl::tags {
namespace {

/// Bits from the most significant one on; zeros behind the end.
class Bits {
public:
    explicit Bits(std::string_view bytes) : bytes_(bytes) {}

    uint32_t take(size_t count) {
        uint32_t value = 0;
        for (size_t i = 0; i < count; ++i, ++next_) {
            const size_t byte = next_ / 8;
            const uint32_t bits = byte < bytes_.size() ? static_cast<uint8_t>(bytes_[byte]) : 0U;
            value = value << 1U | (bits >> (7 - next_ % 8) & 1U);
        }
        return value;
    }

    size_t left() const { return bytes_.size() * 8 > next_ ? bytes_.size() * 8 - next_ : 0; }

private:
    std::string_view bytes_;
    size_t next_ = 0;
};

/// A descriptor in a row of them: a tag, a size in groups of seven bits, contents.
struct Descriptor {
    uint8_t tag = 0;
    std::string_view contents;
};

std::optional<Descriptor> firstDescriptor(std::string_view bytes) {
    constexpr size_t kLongestSize = 4;
    size_t size = 0;
    for (size_t i = 1; i <= kLongestSize && i < bytes.size(); ++i) {
        const auto group = static_cast<uint8_t>(bytes[i]);
        size = size << 7U | (group & 0x7FU);
        if ((group & 0x80U) == 0) {
            return Descriptor{static_cast<uint8_t>(bytes[0]), bytes.substr(i + 1, size)};
        }
    }
    return std::nullopt;
}

std::string_view behind(std::string_view bytes, size_t count) {
    return bytes.substr(std::min(count, bytes.size()));
}

constexpr uint32_t kLowComplexity = 2;
constexpr uint32_t kSpectralBandReplication = 5;
constexpr uint32_t kParametricStereo = 29;

/// AAC-LC that an older decoder takes for the whole may say behind its own configuration whether
/// there is more: a mark of 11 bits, the type of what there may be, and whether it is there.
bool hasExtension(Bits bits) {
    constexpr uint32_t kMark = 0x2B7;
    while (bits.left() > 16) {
        Bits ahead = bits;
        if (ahead.take(11) == kMark && ahead.take(5) == kSpectralBandReplication) {
            return ahead.take(1) == 1;
        }
        bits.take(1);
    }
    return false;
}

int channelsOf(uint32_t configuration) {
    constexpr uint32_t kSevenAndOne = 7;
    return configuration == kSevenAndOne  ? 8
           : configuration < kSevenAndOne ? static_cast<int>(configuration)
                                          : 0;
}

StreamFacts aacFacts(std::string_view configuration) {
    constexpr uint32_t kOwnRate = 15;
    Bits bits(configuration);
    const uint32_t type = bits.take(5);
    if (bits.take(4) == kOwnRate) {
        bits.take(24);
    }
    const int channels = channelsOf(bits.take(4));
    switch (type) {
    case kLowComplexity:
        return {hasExtension(bits) ? codec::kHeAac : codec::kAacLc, channels};
    case kSpectralBandReplication:
        return {codec::kHeAac, channels};
    case kParametricStereo:
        return {codec::kHeAac, 2};
    default:
        return {codec::kOtherAac, channels};
    }
}

} // namespace

StreamFacts factsOfStream(std::string_view descriptor) {
    constexpr uint8_t kStreamTag = 3;
    constexpr uint8_t kDecoderTag = 4;
    constexpr uint8_t kConfigurationTag = 5;
    constexpr uint8_t kMpeg4Audio = 0x40;
    constexpr uint8_t kMpeg2LowComplexity = 0x67;
    constexpr uint8_t kMpeg2Layer3 = 0x69;
    constexpr uint8_t kMpeg1Layer3 = 0x6B;
    constexpr size_t kVersionAndFlags = 4;
    constexpr size_t kStreamHead = 3;
    constexpr size_t kDecoderHead = 13;

    const auto stream = firstDescriptor(behind(descriptor, kVersionAndFlags));
    if (!stream || stream->tag != kStreamTag) {
        return {codec::kUnknown};
    }
    const auto decoder = firstDescriptor(behind(stream->contents, kStreamHead));
    if (!decoder || decoder->tag != kDecoderTag || decoder->contents.empty()) {
        return {codec::kUnknown};
    }
    const auto configuration = firstDescriptor(behind(decoder->contents, kDecoderHead));
    switch (static_cast<uint8_t>(decoder->contents.front())) {
    case kMpeg4Audio:
        return configuration && configuration->tag == kConfigurationTag
                   ? aacFacts(configuration->contents)
                   : StreamFacts{codec::kUnknown};
    case kMpeg2LowComplexity:
        return {codec::kAacLc};
    case kMpeg2Layer3:
    case kMpeg1Layer3:
        return {codec::kMp3};
    default:
        return {codec::kUnknown};
    }
}

} // namespace krl::tags
