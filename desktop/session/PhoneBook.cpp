#include "desktop/session/PhoneBook.h"

#include "engine/values/Text.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <tuple>
#include <utility>

namespace krl::desktop {
namespace {

// A key is this and what comes behind it: of one name, the phone's comes first.
constexpr char kPhoneKey = '#';
constexpr char kSongKey = '+';

uint64_t numberIn(const std::string& key) {
    uint64_t number = 0;
    std::from_chars(key.data() + 1, key.data() + key.size(), number);
    return number;
}

/// What a name is compared by, so that names stand as a person of this language looks them up.
std::string orderOf(const std::string& name) {
    std::string order(std::strxfrm(nullptr, name.c_str(), 0) + 1, '\0');
    std::strxfrm(order.data(), name.c_str(), order.size());
    order.pop_back();
    return order;
}

std::vector<Row> sorted(std::vector<Row> rows) {
    std::vector<std::tuple<std::string, std::string, size_t>> order;
    order.reserve(rows.size());
    for (const Row& row : rows) {
        order.emplace_back(orderOf(row.name), row.key, order.size());
    }
    std::sort(order.begin(), order.end());
    std::vector<Row> result;
    result.reserve(rows.size());
    for (const auto& [name, key, index] : order) {
        result.push_back(std::move(rows[index]));
    }
    return result;
}

template <typename... Functions>
struct Cases : Functions... {
    using Functions::operator()...;
};

template <typename... Functions>
Cases(Functions...) -> Cases<Functions...>;

} // namespace

void PhoneBook::take(PhoneReading reading) {
    reading_ = std::move(reading);
}

void PhoneBook::dropFulfilled() {
    if (!reading_) {
        return;
    }
    rememberLengths();
    const auto there = engine::namesAndSizes(reading_->ringtones);
    std::erase_if(removed_, [&](const std::string& name) { return !there.contains(name); });
    std::erase_if(songs_, [&](const auto& entry) {
        const Song& song = entry.second;
        const auto found = there.find(song.name);
        return song.isForgotten || (song.mark == Mark::New && found != there.end() &&
                                    found->second == song.size && !removed_.contains(song.name));
    });
}

void PhoneBook::carriedOut(const WantedChange& done) {
    rememberLengths();
    for (const std::string& name : done.removed) {
        removed_.erase(name);
    }
    std::set<std::pair<std::string, std::string>> sent;
    for (const engine::LocalRingtone& ringtone : done.added) {
        sent.emplace(ringtone.path, ringtone.name);
    }
    std::erase_if(songs_, [&](const auto& entry) {
        const auto& ringtone = entry.second.ringtone;
        return ringtone && sent.contains({ringtone->path, ringtone->name});
    });
}

uint64_t PhoneBook::add(const std::filesystem::path& song) {
    songs_.emplace(++lastSong_, Song{.name = song.stem().string()});
    return lastSong_;
}

void PhoneBook::hear(uint64_t number, const SongNews& news) {
    const auto found = songs_.find(number);
    if (found == songs_.end()) {
        return;
    }
    Song& song = found->second;
    std::visit(Cases{[&](const SongIsPrepared&) { song.mark = Mark::Preparing; },
                     [&](const SongIsReady& ready) {
                         song.mark = Mark::New;
                         song.name = ready.ringtone.name;
                         song.size = ready.ringtone.size;
                         song.seconds = ready.seconds;
                         song.ringtone = ready.ringtone;
                     },
                     [&](const engine::Failure& failure) {
                         song.mark = Mark::Unusable;
                         song.reason = failure.what();
                     }},
               news);
}

void PhoneBook::remove(const std::vector<std::string>& keys) {
    for (const std::string& key : keys) {
        if (key.front() == kPhoneKey) {
            removed_.insert(key.substr(1));
        } else if (const auto song = songs_.find(numberIn(key)); song != songs_.end()) {
            song->second.isForgotten = true;
        }
    }
}

void PhoneBook::bringBack(const std::vector<std::string>& keys) {
    for (const std::string& key : keys) {
        if (key.front() == kPhoneKey) {
            removed_.erase(key.substr(1));
        } else if (const auto song = songs_.find(numberIn(key)); song != songs_.end()) {
            song->second.isForgotten = false;
        }
    }
}

void PhoneBook::rememberLengths() {
    for (const auto& [number, song] : songs_) {
        if (song.seconds) {
            seconds_[{song.name, song.size}] = *song.seconds;
        }
    }
}

Row PhoneBook::rowOf(const engine::PhoneRingtone& ringtone) const {
    const auto seconds = seconds_.find({ringtone.name, ringtone.size});
    return {.key = kPhoneKey + ringtone.name,
            .name = ringtone.name,
            .size = ringtone.size,
            .seconds = seconds == seconds_.end() ? std::nullopt : std::optional(seconds->second),
            .mark = removed_.contains(ringtone.name) ? Mark::Removed : Mark::OnPhone};
}

std::set<uint64_t> PhoneBook::going() const {
    std::set<std::string> taken; // in normal form C: names that look alike are one
    if (reading_) {
        for (const engine::PhoneRingtone& ringtone : reading_->ringtones) {
            if (!removed_.contains(ringtone.name)) {
                taken.insert(engine::composed(ringtone.name));
            }
        }
    }
    std::set<uint64_t> result;
    for (const auto& [number, song] : songs_) {
        if (song.mark == Mark::New && !song.isForgotten &&
            taken.insert(engine::composed(song.name)).second) {
            result.insert(number);
        }
    }
    return result;
}

Row PhoneBook::rowOf(uint64_t number, const Song& song, const std::set<uint64_t>& going) const {
    const bool isHeldBack = song.mark == Mark::New && !going.contains(number);
    return {.key = kSongKey + std::to_string(number),
            .name = song.name,
            .size = song.size,
            .seconds = song.seconds,
            .mark = isHeldBack ? Mark::NameTaken : song.mark,
            .reason = song.reason};
}

std::vector<Row> PhoneBook::rows() const {
    std::vector<Row> result;
    if (reading_) {
        for (const engine::PhoneRingtone& ringtone : reading_->ringtones) {
            result.push_back(rowOf(ringtone));
        }
    }
    const std::set<uint64_t> goingSongs = going();
    for (const auto& [number, song] : songs_) {
        if (!song.isForgotten) {
            result.push_back(rowOf(number, song, goingSongs));
        }
    }
    return sorted(std::move(result));
}

bool PhoneBook::isEmpty() const {
    return (!reading_ || reading_->ringtones.empty()) &&
           std::all_of(songs_.begin(), songs_.end(),
                       [](const auto& entry) { return entry.second.isForgotten; });
}

EditSum PhoneBook::sum() const {
    EditSum sum;
    for (const uint64_t number : going()) {
        ++sum.added;
        sum.addedBytes += songs_.at(number).size;
    }
    for (const auto& [number, song] : songs_) {
        const bool isUnderWay = song.mark == Mark::Checking || song.mark == Mark::Preparing;
        sum.underWay += isUnderWay && !song.isForgotten ? 1U : 0U;
    }
    if (reading_) {
        for (const engine::PhoneRingtone& ringtone : reading_->ringtones) {
            if (removed_.contains(ringtone.name)) {
                ++sum.removed;
                sum.removedBytes += ringtone.size;
            }
        }
    }
    return sum;
}

WantedChange PhoneBook::wanted() const {
    WantedChange result;
    for (const uint64_t number : going()) {
        result.added.push_back(*songs_.at(number).ringtone);
    }
    result.removed.assign(removed_.begin(), removed_.end());
    return result;
}

bool PhoneBook::hasEdits() const {
    return !removed_.empty() || std::any_of(songs_.begin(), songs_.end(), [](const auto& entry) {
        return !entry.second.isForgotten;
    });
}

bool PhoneBook::fits() const {
    return !reading_ || !reading_->facts.freeBytes ||
           sum().addedBytes <= *reading_->facts.freeBytes;
}

} // namespace krl::desktop
