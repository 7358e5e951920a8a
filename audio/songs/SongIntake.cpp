#include "audio/songs/SongIntake.h"

#include "audio/songs/SongNames.h"

#include <algorithm>
#include <map>

namespace krl::audio {

namespace fs = std::filesystem;
using engine::Failure;
using engine::LocalRingtone;
using engine::Others;
using engine::PhoneRingtone;
using engine::PhoneState;

void SongIntake::read(const std::vector<Given>& songs) {
    SongReader reader(recipe_.treatment, nameSource_);
    given_ = songs.size();
    for (const auto& [path, name] : songs) {
        try {
            songs_.push_back({reader.read(path, name), name.has_value()});
        } catch (const Failure& failure) {
            fail(path, failure);
        }
    }
    listener_.hasUnreadableTags(reader.unreadableTags());
}

void SongIntake::choose(const PhoneState& state, Others others) {
    wanted_.clear();
    const engine::Spellings spellings(state.ringtones);
    std::vector<bool> isNamed;
    for (const Read& read : songs_) {
        if (failed_.contains(read.song.path)) {
            continue;
        }
        try {
            wanted_.push_back(maker_.wanted(read.song, state.facts.firmwareNumber));
            isNamed.push_back(read.isNamed);
        } catch (const Failure& failure) {
            fail(read.song.path, failure);
        }
    }
    std::vector<LocalRingtone*> namedAfterSongs;
    for (size_t i = 0; i < wanted_.size(); ++i) {
        LocalRingtone& ringtone = wanted_[i].ringtone;
        if (isNamed[i]) {
            ringtone.name = spellings.of(ringtone.name).value_or(ringtone.name);
        } else {
            namedAfterSongs.push_back(&ringtone);
        }
    }
    nameApart(namedAfterSongs, state.ringtones, others);
}

std::vector<std::string> SongIntake::names() const {
    std::vector<std::string> names;
    for (const WantedRingtone& wanted : wanted_) {
        names.push_back(wanted.ringtone.name);
    }
    return names;
}

std::vector<LocalRingtone> SongIntake::made(engine::OpenPhone& phone, const PhoneState& state,
                                            Same same) {
    std::map<std::string, const PhoneRingtone*> there;
    for (const PhoneRingtone& ringtone : state.ringtones) {
        there[ringtone.name] = &ringtone;
    }
    std::set<std::string> held;
    std::vector<WantedRingtone*> missing;
    for (WantedRingtone& wanted : wanted_) {
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
    for (const WantedRingtone& wanted : wanted_) {
        const bool isHeld = held.contains(wanted.ringtone.name);
        if (isHeld || !wanted.isToBeMade()) {
            result.push_back(wanted.ringtone);
            listener_.goes(wanted, isHeld);
        }
    }
    return result;
}

SongIntake::All SongIntake::all(engine::OpenPhone& phone, const PhoneState& state) {
    All all;
    do {
        all.others = hasFailed() ? Others::Stay : Others::Go;
        choose(state, all.others);
        all.ringtones = made(phone, state, Same::BySourceOrSize);
    } while (hasFailed() && all.others == Others::Go);
    return all;
}

void SongIntake::make(const std::vector<WantedRingtone*>& missing) {
    size_t done = 0;
    listener_.makes(done, missing.size());
    maker_.make(missing, [&](const WantedRingtone& wanted, const SongOutcome& outcome) {
        if (outcome.failure) {
            fail(outcome.song, *outcome.failure);
        } else {
            listener_.made(wanted, outcome);
        }
        listener_.makes(++done, missing.size());
    });
}

void SongIntake::fail(const fs::path& song, const Failure& failure) {
    if (given_ == 1) {
        throw Failure(failure);
    }
    failed_.insert(song);
    listener_.failed(song, failure);
}

bool SongIntake::isEmpty() const {
    return std::all_of(songs_.begin(), songs_.end(),
                       [this](const Read& one) { return failed_.contains(one.song.path); });
}

} // namespace krl::audio
