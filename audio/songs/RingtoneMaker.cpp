#include "audio/songs/RingtoneMaker.h"

#include "audio/judging/PlayedFormats.h"

#include <fmt/format.h>

#include <cstddef>
#include <filesystem>

namespace krl::audio {

using engine::Failure;
using engine::FailureKind;

namespace {

/// The first firmware that wants other types than m4r made one.
constexpr int kFirmware113 = 1013;

/// What a prepared ringtone is made of: the same song by the same wish is the same ringtone.
engine::Digest sourceOf(const Song& song, const Wish& wish) {
    return engine::digestOf(fmt::format("{} {}", song.content.hex(), encoded(wish)));
}

Failure doesNotPlayThere(const Song& song) {
    return {
        FailureKind::UnsupportedType,
        fmt::format("\"{}\" does not play as a ringtone on this phone: firmware 1.1.3 and later "
                    "take m4r files only",
                    song.path.string()),
        "Without --as-is an m4r is made of it; --unchecked sends it all the same."};
}

} // namespace

WantedRingtone RingtoneMaker::wanted(const Song& song, int firmwareNumber) const {
    WantedRingtone result{.song = &song, .ringtone = song.asIs};
    if (!prepares(song, firmwareNumber)) {
        engine::requireUsableSize(song.path, song.asIs.size);
        return result;
    }
    if (recipe_.treatment == Treatment::AsIs) {
        throw doesNotPlayThere(song);
    }
    result.isPrepared = true;
    result.ringtone.path.clear();
    result.ringtone.size = 0;
    result.ringtone.type = "m4r";
    result.ringtone.source = sourceOf(song, completed(recipe_.wish, song));
    return result;
}

bool RingtoneMaker::prepares(const Song& song, int firmwareNumber) const {
    switch (song.judgement.verdict) {
    case Verdict::Plays:
        return recipe_.preparesAll;
    case Verdict::PlaysOnOlderFirmware:
        return recipe_.preparesAll || firmwareNumber >= kFirmware113;
    case Verdict::WantsPreparing:
    case Verdict::CannotBeUsed:
        return true;
    }
    return true;
}

std::vector<engine::Digest> RingtoneMaker::earlierSources(const Song& song) const {
    std::vector<engine::Digest> sources;
    for (const Wish& wish : recipe_.earlier) {
        sources.push_back(sourceOf(song, completed(wish, song)));
    }
    return sources;
}

Wish RingtoneMaker::completed(Wish wish, const Song& song) {
    wish.title = wish.title.empty() ? song.facts.title : wish.title;
    wish.artist = wish.artist.empty() ? song.facts.artist : wish.artist;
    return wish;
}

void RingtoneMaker::make(
    const std::vector<WantedRingtone*>& wanted,
    const std::function<void(const WantedRingtone&, const SongOutcome&)>& done) {
    std::vector<WantedRingtone*> missing;
    std::vector<std::filesystem::path> songs;
    for (WantedRingtone* ringtone : wanted) {
        if (ringtone->isToBeMade() && !takeMade(*ringtone)) {
            missing.push_back(ringtone);
            songs.push_back(ringtone->song->path);
        }
    }
    if (missing.empty()) {
        return;
    }
    if (!outgoing_) {
        outgoing_.emplace();
    }
    size_t next = 0;
    preparer_.prepareAll(songs, recipe_.wish, [&](const SongOutcome& outcome) {
        WantedRingtone& ringtone = *missing[next++];
        if (outcome.ringtone) {
            keep(ringtone, outcome.ringtone->bytes);
        }
        done(ringtone, outcome);
    });
}

bool RingtoneMaker::takeMade(WantedRingtone& wanted) const {
    const auto made = made_.find(*wanted.ringtone.source);
    if (made == made_.end()) {
        return false;
    }
    wanted.ringtone.path = made->second.path;
    wanted.ringtone.size = made->second.size;
    return true;
}

void RingtoneMaker::keep(WantedRingtone& wanted, const std::string& bytes) {
    const engine::Digest& source = *wanted.ringtone.source;
    made_[source] = {outgoing_->put(source.hex() + ".m4r", bytes), bytes.size()};
    takeMade(wanted);
}

} // namespace krl::audio
