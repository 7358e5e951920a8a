#include "desktop/bridge/CutDocument.h"

#include "audio/judging/PlayedFormats.h"

#include <fmt/format.h>

namespace krl::desktop {

using namespace engine;

namespace {

/// More than any song takes.
constexpr double kMostSeconds = 1e6;

double secondsAt(const Json& entry, const char* key, double most) {
    const Json& value = valueAt(entry, key);
    const double seconds = value.is_number() ? value.get<double>() : -1;
    if (!(seconds >= 0 && seconds <= most)) {
        throw BadDocument(fmt::format("\"{}\" is no time that can be", key));
    }
    return seconds;
}

} // namespace

audio::Wish cutOf(const Json& entry) {
    constexpr double most = audio::kLongestRingtoneSeconds + 1; // lengths are sums
    audio::Wish cut{.startSeconds = secondsAt(entry, "start", kMostSeconds),
                    .lengthSeconds = secondsAt(entry, "length", most),
                    .fadeInSeconds = secondsAt(entry, "fadeIn", most),
                    .fadeOutSeconds = secondsAt(entry, "fadeOut", most),
                    .level = boolAt(entry, "level")};
    if (cut.lengthSeconds <= 0) {
        throw BadDocument("a song is cut to nothing");
    }
    return cut;
}

Json cutJson(const audio::Wish& cut) {
    return {{"start", cut.startSeconds},
            {"length", cut.lengthSeconds},
            {"fadeIn", cut.fadeInSeconds},
            {"fadeOut", cut.fadeOutSeconds},
            {"level", cut.level}};
}

} // namespace krl::desktop
