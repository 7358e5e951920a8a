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
    isNamed_.clear();
    for (const Read& read : songs_) {
        if (failed_.contains(read.song.path)) {
            continue;
        }
        try {
            wanted_.push_back(maker_.wanted(read.song, state.facts.firmwareNumber));
            isNamed_.push_back(read.isNamed);
        } catch (const Failure& failure) {
            fail(read.song.path, failure);
        }
    }
    if (!recipe_.earlier.empty()) {
        keepEarlier(state, others);
    }
    name(state, others);
}

/// Those that the phone holds by an earlier wish are wanted as they are there.
void SongIntake::keepEarlier(const PhoneState& state, Others others) {
    std::set<std::string> there;
    for (const PhoneRingtone& ringtone : state.ringtones) {
        there.insert(ringtone.source.substr(0, ringtone.source.find('-')));
    }
    const std::vector<WantedRingtone> byNewWish = wanted_;
    for (WantedRingtone& wanted : wanted_) {
        if (!wanted.isPrepared || there.contains(engine::sourceName(*wanted.ringtone.source))) {
            continue;
        }
        for (const engine::Digest& source : maker_.earlierSources(*wanted.song)) {
            wanted.ringtone.source =
                there.contains(engine::sourceName(source)) ? source : wanted.ringtone.source;
        }
    }
    name(state, others);
    const std::set<std::string> held = compare(state, Same::BySource).held;
    for (size_t i = 0; i < wanted_.size(); ++i) {
        LocalRingtone& ringtone = wanted_[i].ringtone;
        const LocalRingtone& anew = byNewWish[i].ringtone;
        ringtone = held.contains(ringtone.name)
                       ? LocalRingtone{anew.name, anew.path, anew.type, anew.size, ringtone.source}
                       : anew;
    }
}

void SongIntake::name(const PhoneState& state, Others others) {
    const engine::Spellings spellings(state.ringtones);
    std::vector<LocalRingtone*> namedAfterSongs;
    for (size_t i = 0; i < wanted_.size(); ++i) {
        LocalRingtone& ringtone = wanted_[i].ringtone;
        if (isNamed_[i]) {
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

SongIntake::Compared SongIntake::compare(const PhoneState& state, Same same) {
    std::map<std::string, const PhoneRingtone*> there;
    for (const PhoneRingtone& ringtone : state.ringtones) {
        there[ringtone.name] = &ringtone;
    }
    Compared result;
    for (WantedRingtone& wanted : wanted_) {
        const auto found = there.find(wanted.ringtone.name);
        if (found != there.end() &&
            (same == Same::BySource ? isMadeOf(*found->second, wanted.ringtone)
                                    : isSame(*found->second, wanted.ringtone))) {
            result.held.insert(wanted.ringtone.name);
        } else if (wanted.isToBeMade()) {
            result.missing.push_back(&wanted);
        }
    }
    return result;
}

void SongIntake::makeBeforehand(const PhoneState& state) {
    choose(state, hasFailed() ? Others::Stay : Others::Go);
    make(compare(state, Same::BySourceOrSize).missing);
}

std::vector<LocalRingtone> SongIntake::made(engine::OpenPhone& phone, const PhoneState& state,
                                            Same same) {
    const auto [held, missing] = compare(state, same);
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

void SongIntake::refuse(const fs::path& song, const Failure& why) {
    failed_.insert(song);
    listener_.failed(song, why);
}

void SongIntake::fail(const fs::path& song, const Failure& failure) {
    if (given_ == 1) {
        throw Failure(failure);
    }
    refuse(song, failure);
}

bool SongIntake::isEmpty() const {
    return std::all_of(songs_.begin(), songs_.end(),
                       [this](const Read& one) { return failed_.contains(one.song.path); });
}

} // namespace krl::audio
