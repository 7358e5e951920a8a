#include "audio/program/Making.h"

#include "audio/program/Beginning.h"
#include "audio/program/Fades.h"
#include "audio/program/Loudness.h"
#include "audio/program/M4rFile.h"
#include "audio/program/Source.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <string>

namespace krl::audio {
namespace {

/// Around the beginning that was found there is so much room to look for a zero crossing.
constexpr double kAroundBeginning = 0.01;

size_t samplesOf(double seconds) {
    return static_cast<size_t>(std::llround(seconds * kRate)) * kChannels;
}

double foundBeginning(Source& source, double lengthSeconds) {
    constexpr double kMostSeconds = 20 * 60;
    Beginning beginning;
    size_t heard = 0;
    source.read(0, [&](std::span<const float> samples) {
        beginning.hear(samples);
        heard += samples.size();
        return heard < samplesOf(kMostSeconds);
    });
    return std::max(0.0, beginning.secondsFor(lengthSeconds) - kAroundBeginning);
}

double beginningOf(Source& source, const Wish& wish) {
    if (wish.automatic) {
        return foundBeginning(source, wish.lengthSeconds);
    }
    return wish.startSeconds < 0 ? std::max(0.0, source.seconds() + wish.startSeconds)
                                 : wish.startSeconds;
}

Sound cut(Source& source, double startSeconds, double lengthSeconds) {
    Sound sound;
    const size_t most = samplesOf(lengthSeconds);
    sound.samples.reserve(most);
    source.read(startSeconds, [&](std::span<const float> samples) {
        const auto taken = samples.first(std::min(samples.size(), most - sound.samples.size()));
        sound.samples.insert(sound.samples.end(), taken.begin(), taken.end());
        return sound.samples.size() < most;
    });
    return sound;
}

void requireSound(Source& source, const Sound& sound, double startSeconds) {
    constexpr double kShortest = 0.05;
    if (sound.seconds() >= kShortest) {
        return;
    }
    if (startSeconds == 0) {
        throw CannotPrepare("there is no sound in it that can be decoded",
                            "Take another file of the song.");
    }
    throw CannotPrepare(
        fmt::format("there is no sound {:.1f} seconds from its beginning", startSeconds),
        fmt::format("It ends after {:.1f} seconds. Begin earlier (--start).", source.seconds()));
}

/// Random bytes may look like sound for a moment.
void requireMostOfIt(const Source& source, const Sound& sound) {
    constexpr int kMost = 50;
    if (source.damagedParts() > kMost && source.damagedParts() > sound.seconds() * 10) {
        throw CannotPrepare("most of it is damaged, or it is no sound",
                            "Take another file of the song.");
    }
}

/// What was encoded may overshoot where the sound did not: it is made softer then until it does not.
std::vector<uint8_t> fileOf(Sound& sound, const std::string& title, const std::string& artist) {
    constexpr int kMostTimes = 3;
    constexpr float kBelow = 0.98F;
    M4rFile file = m4rFile(sound, title, artist);
    for (int times = 0; file.peak > 1 && times < kMostTimes; ++times) {
        const float factor = kBelow / file.peak;
        for (float& sample : sound.samples) {
            sample *= factor;
        }
        file = m4rFile(sound, title, artist);
    }
    return std::move(file.bytes);
}

const std::string& firstOf(const std::string& wanted, const std::string& otherwise) {
    return wanted.empty() ? otherwise : wanted;
}

} // namespace

Made make(int descriptor, const Wish& wish) {
    Source source(descriptor);
    const tags::AudioFacts facts = source.facts();
    const double start = beginningOf(source, wish);
    Sound sound =
        cut(source, start, wish.lengthSeconds + (wish.automatic ? 2 * kAroundBeginning : 0));
    requireSound(source, sound, start);
    requireMostOfIt(source, sound);
    Made made;
    made.prepared.startSeconds = start;
    if (wish.automatic && start > 0) {
        const double before = sound.seconds();
        beginAtZero(sound, kAroundBeginning);
        made.prepared.startSeconds += before - sound.seconds();
    }
    sound.samples.resize(std::min(sound.samples.size(), samplesOf(wish.lengthSeconds)));
    fade(sound, wish.fadeInSeconds, wish.fadeOutSeconds);
    const Loudness before = measured(sound);
    if (wish.level) {
        sound = levelled(sound, before);
    }
    made.prepared.lengthSeconds = sound.seconds();
    made.prepared.songLoudness = before.integrated;
    made.prepared.silent = !before.isMeasured() && before.peak < Loudness::kUnmeasured;
    made.prepared.damagedParts = source.damagedParts();
    made.file = fileOf(sound, firstOf(wish.title, facts.title), firstOf(wish.artist, facts.artist));
    const Loudness after = measured(sound);
    made.prepared.loudness = after.integrated;
    made.prepared.peak = after.peak;
    return made;
}

} // namespace krl::audio
