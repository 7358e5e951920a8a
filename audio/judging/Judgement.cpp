#include "audio/judging/Judgement.h"

#include "audio/judging/PlayedFormats.h"
#include "engine/values/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace krl::audio {
namespace {

using tags::AudioFacts;

bool isOfFormat(const AudioFacts& facts, const PlayedFormat& format) {
    return facts.container == format.container && facts.codec == format.codec;
}

std::string whyNoFormat(const AudioFacts& facts) {
    if (facts.codec == tags::codec::kAppleLossless) {
        return "nobody has seen Apple Lossless played as a ringtone";
    }
    if (facts.codec == tags::codec::kHeAac) {
        return "early iPhones play no HE-AAC, or half of its band";
    }
    return facts.codec == facts.container
               ? fmt::format("early iPhones do not play {}", facts.codec)
               : fmt::format("early iPhones do not play {} in {}", facts.codec, facts.container);
}

std::string hertz(int rate) {
    return fmt::format("{:g} kHz", rate / 1000.0);
}

/// What is wrong with the sound for a phone that plays this format.
std::vector<std::string> whyNotTheSound(const AudioFacts& facts, const PlayedFormat& format) {
    std::vector<std::string> reasons;
    const auto refuse = [&](bool applies, const auto& reason) {
        if (applies) {
            reasons.push_back(reason());
        }
    };
    refuse(facts.sampleRate > kHighestRate || facts.sampleRate < kLowestRate, [&] {
        return fmt::format("its sampling rate of {} is not one from {} to {}",
                           hertz(facts.sampleRate), hertz(kLowestRate), hertz(kHighestRate));
    });
    refuse(facts.channels > kMostChannels,
           [&] { return fmt::format("it has {} channels", facts.channels); });
    refuse(format.mostBits > 0 && facts.bits > format.mostBits,
           [&] { return fmt::format("its samples have {} bits", facts.bits); });
    refuse(format.mostKilobits > 0 && facts.kilobits > format.mostKilobits, [&] {
        return fmt::format("it has {} kbit/s, {} at most are played", facts.kilobits,
                           format.mostKilobits);
    });
    refuse(facts.pictureBytes > kLargestPicture, [&] {
        return fmt::format("a picture of {} is in it", engine::formatBytes(facts.pictureBytes));
    });
    // Encoders add parts of a second at the ends.
    refuse(facts.lengthMs / 1000 > kLongestRingtoneSeconds, [&] {
        return fmt::format("it is {} long, and a ringtone ends at {}",
                           engine::formatDuration(static_cast<double>(facts.lengthMs) / 1000),
                           engine::formatDuration(kLongestRingtoneSeconds));
    });
    return reasons;
}

} // namespace

const char* verdictName(Verdict verdict) {
    switch (verdict) {
    case Verdict::Plays:
        return "plays";
    case Verdict::PlaysOnOlderFirmware:
        return "plays-on-older-firmware";
    case Verdict::WantsPreparing:
        return "wants-preparing";
    case Verdict::CannotBeUsed:
        return "cannot-be-used";
    }
    return "";
}

engine::Failure cannotBeUsed(const std::filesystem::path& song, const Judgement& judgement) {
    return {engine::FailureKind::UnsupportedType,
            fmt::format("no ringtone can be made of \"{}\": {}", song.string(),
                        fmt::join(judgement.reasons, "; ")),
            "Take another file of the song."};
}

Judgement judge(const AudioFacts& facts, const std::string& extension) {
    if (facts.encrypted) {
        return {Verdict::CannotBeUsed,
                {"it is encrypted, and plays on devices of its buyer's account only"}};
    }
    if (!facts.hasSound()) {
        return {Verdict::CannotBeUsed, {"it is not known as a file with sound"}};
    }
    const PlayedFormat* likely = nullptr;
    for (const PlayedFormat& format : playedFormats()) {
        if (!isOfFormat(facts, format)) {
            continue;
        }
        likely = &format;
        const auto& extensions = format.extensions;
        if (std::find(extensions.begin(), extensions.end(), extension) != extensions.end()) {
            auto reasons = whyNotTheSound(facts, format);
            return {!reasons.empty()        ? Verdict::WantsPreparing
                    : format.onlyThrough112 ? Verdict::PlaysOnOlderFirmware
                                            : Verdict::Plays,
                    std::move(reasons)};
        }
    }
    if (likely == nullptr) {
        return {Verdict::WantsPreparing, {whyNoFormat(facts)}};
    }
    auto reasons = whyNotTheSound(facts, *likely);
    reasons.insert(reasons.begin(),
                   fmt::format("its name does not end in \".{}\", by which a phone "
                               "knows {} in {}",
                               likely->extensions.front(), facts.codec, facts.container));
    return {Verdict::WantsPreparing, std::move(reasons)};
}

} // namespace krl::audio
