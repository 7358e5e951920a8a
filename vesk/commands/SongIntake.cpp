#include "vesk/commands/SongIntake.h"

#include "audio/songs/SongNames.h"
#include "engine/values/Text.h"
#include "vesk/commands/PreparedTexts.h"
#include "vesk/terminal/ProgressDisplay.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <set>

namespace vesk {

namespace fs = std::filesystem;
using krl::audio::Song;
using krl::audio::SongOutcome;
using krl::audio::SongReader;

namespace {

void warnOfUnreadableTags(const std::vector<std::string>& files, Output& output) {
    if (!files.empty()) {
        output.warning(fmt::format("{} no readable tags; the file name is taken:",
                                   files.size() == 1 ? "a file has"
                                                     : fmt::format("{} files have", files.size())),
                       files);
    }
}

} // namespace

SongIntake::SongIntake(const Options& options, Output& output)
    : options_(options), output_(output), maker_(options.recipe) {}

void SongIntake::read(const std::vector<fs::path>& songs) {
    SongReader reader(options_.recipe.treatment, options_.nameSource);
    given_ = songs;
    for (const fs::path& song : songs) {
        try {
            songs_.push_back(reader.read(song, options_.name));
        } catch (const Failure& failure) {
            fail(song, failure);
        }
    }
    warnOfUnreadableTags(reader.unreadableTags(), output_);
}

void SongIntake::choose(const PhoneState& state, Others others) {
    wanted_.clear();
    for (const Song& song : songs_) {
        if (failed_.contains(song.path)) {
            continue;
        }
        try {
            wanted_.push_back(maker_.wanted(song, state.facts.firmwareNumber));
        } catch (const Failure& failure) {
            fail(song.path, failure);
        }
    }
    if (options_.name) {
        const auto there = Spellings(state.ringtones).of(*options_.name);
        for (Wanted& wanted : wanted_) {
            wanted.ringtone.name = there.value_or(wanted.ringtone.name);
        }
        return;
    }
    std::vector<LocalRingtone*> ringtones;
    for (Wanted& wanted : wanted_) {
        ringtones.push_back(&wanted.ringtone);
    }
    krl::audio::nameApart(ringtones, state.ringtones, others);
}

std::vector<std::string> SongIntake::names() const {
    std::vector<std::string> names;
    for (const Wanted& wanted : wanted_) {
        names.push_back(wanted.ringtone.name);
    }
    return names;
}

std::vector<LocalRingtone> SongIntake::made(OpenPhone& phone, const PhoneState& state, Same same) {
    std::map<std::string, const PhoneRingtone*> there;
    for (const PhoneRingtone& ringtone : state.ringtones) {
        there[ringtone.name] = &ringtone;
    }
    std::set<std::string> held;
    std::vector<Wanted*> missing;
    for (Wanted& wanted : wanted_) {
        const auto found = there.find(wanted.ringtone.name);
        if (found != there.end() &&
            (same == Same::BySource ? isMadeOf(*found->second, wanted.ringtone)
                                    : isSame(*found->second, wanted.ringtone))) {
            held.insert(wanted.ringtone.name);
        } else if (wanted.isToBeMade()) {
            missing.push_back(&wanted);
        }
    }
    if (!missing.empty()) {
        // That may take minutes, in which no phone needs to be kept waiting.
        phone.disconnect();
        make(missing);
    }
    std::vector<LocalRingtone> result;
    for (const Wanted& wanted : wanted_) {
        const bool isHeld = held.contains(wanted.ringtone.name);
        if (isHeld || !wanted.isToBeMade()) {
            result.push_back(wanted.ringtone);
            Json& told = told_[wanted.song->path];
            told["ringtone"] = wanted.ringtone.name;
            told["result"] = isHeld ? "already-there" : wanted.isPrepared ? "prepared" : "as-is";
        }
    }
    return result;
}

void SongIntake::make(const std::vector<Wanted*>& missing) {
    ProgressDisplay display(output_);
    size_t next = 0;
    const auto showNext = [&] {
        if (++next <= missing.size()) {
            display.stage(fmt::format("Making ringtone {} of {}", next, missing.size()));
        }
    };
    showNext();
    maker_.make(missing, [&](const Wanted& wanted, const SongOutcome& outcome) {
        display.clear();
        if (outcome.failure) {
            fail(outcome.song, *outcome.failure);
        } else {
            sayMade(wanted, outcome);
        }
        showNext();
    });
    display.clear();
}

void SongIntake::sayMade(const Wanted& wanted, const SongOutcome& outcome) {
    const Song& song = *wanted.song;
    const auto& prepared = outcome.ringtone->prepared;
    warnOfPrepared(song.path.string(), prepared, output_);
    const auto& reasons = song.judgement.reasons;
    output_.note(fmt::format("\"{}\" was made a ringtone{}: {}", song.path.string(),
                             reasons.empty() ? "" : fmt::format(" ({})", fmt::join(reasons, "; ")),
                             preparedText(prepared)));
    Json& told = told_[song.path];
    told["reasons"] = reasons;
    told["prepared"] = preparedJson(prepared);
}

void SongIntake::fail(const fs::path& song, const Failure& failure) {
    if (given_.size() == 1) {
        throw Failure(failure);
    }
    failed_.insert(song);
    const ExitCode code = exitCodeOf(failure.kind());
    code_ = code_ == ExitCode::Success ? code : code_;
    output_.failureOfOne(failure);
    told_[song] = {{"error", errorJson(failure, code)}};
}

bool SongIntake::isEmpty() const {
    return std::all_of(songs_.begin(), songs_.end(),
                       [this](const Song& song) { return failed_.contains(song.path); });
}

Json SongIntake::json() const {
    Json songs = Json::array();
    for (const fs::path& path : given_) {
        Json song({{"file", path}});
        if (const auto told = told_.find(path); told != told_.end()) {
            song.update(told->second);
        }
        songs.push_back(song);
    }
    return songs;
}

} // namespace vesk
