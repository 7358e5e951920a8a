#include "desktop/session/PhoneBook.h"

#include "audio/judging/PlayedFormats.h"
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

/// @param names  by which the rows are sorted
std::vector<Row> sorted(std::vector<Row> rows, const std::vector<std::string>& names) {
    std::vector<std::tuple<std::string, std::string, size_t>> order;
    order.reserve(rows.size());
    for (const Row& row : rows) {
        order.emplace_back(orderOf(names[order.size()]), row.key, order.size());
    }
    std::sort(order.begin(), order.end());
    std::vector<Row> result;
    result.reserve(rows.size());
    for (const auto& [name, key, index] : order) {
        result.push_back(std::move(rows[index]));
    }
    return result;
}

bool isUsableName(const std::string& name) {
    try {
        engine::requireUsableName(name);
        return true;
    } catch (const engine::Failure&) {
        return false;
    }
}

template <typename... Functions>
struct Cases : Functions... {
    using Functions::operator()...;
};

template <typename... Functions>
Cases(Functions...) -> Cases<Functions...>;

} // namespace

std::string shownText(const std::string& bytes) {
    return engine::utf8(engine::codePoints(bytes));
}

std::string tidiedName(const std::string& typed) {
    constexpr const char* kSpace = " \t\r\n";
    const size_t first = typed.find_first_not_of(kSpace);
    return first == std::string::npos
               ? std::string()
               : engine::composed(typed.substr(first, typed.find_last_not_of(kSpace) - first + 1));
}

void PhoneBook::take(std::shared_ptr<const Holdings> holdings) {
    holdings_ = std::move(holdings);
    dropWhatIsGone();
    dropTakenNames();
}

/// Without its catalogue a phone lists nothing, be its ringtones there or not.
bool PhoneBook::isListWhole() const {
    return reading() != nullptr && !reading()->brokenJob && !reading()->catalogueIsUnreadable;
}

/// What is not on the phone any more, or was not when kept edits came back, waits for no sync: a later
/// ringtone of that name is another.
void PhoneBook::dropWhatIsGone() {
    if (isListWhole()) {
        const std::set<std::string> there = engine::namesOf(reading()->ringtones);
        std::erase_if(removed_, [&](const std::string& name) { return !there.contains(name); });
        std::erase_if(renamed_, [&](const auto& names) { return !there.contains(names.first); });
    }
}

/// Names that others have given to ringtones meanwhile cannot be given any more.
void PhoneBook::dropTakenNames() {
    std::erase_if(renamed_, [&](const auto& names) {
        return !removed_.contains(names.first) &&
               problemOnPhone(kPhoneKey + names.first, names.second) != NameProblem::None;
    });
}

void PhoneBook::dropFulfilled() {
    if (!isListWhole()) {
        return;
    }
    rememberLengths();
    dropWhatIsGone();
    const auto there = engine::namesAndSizes(reading()->ringtones);
    std::erase_if(songs_, [&](const auto& entry) {
        const Song& song = entry.second;
        const auto found = there.find(song.nameNow());
        return song.isForgotten || (song.mark == Mark::New && found != there.end() &&
                                    found->second == song.size && !removed_.contains(found->first));
    });
}

void PhoneBook::carriedOut(const WantedChange& done) {
    rememberLengths();
    for (const std::string& name : done.removed) {
        removed_.erase(name);
    }
    for (const auto& [from, to] : done.renamed) {
        carriedOutRenaming(from, to);
    }
    std::set<std::pair<std::string, std::string>> sent;
    for (const engine::LocalRingtone& ringtone : done.added) {
        sent.emplace(ringtone.path, ringtone.name);
    }
    std::erase_if(songs_, [&](const auto& entry) {
        const auto& ringtone = entry.second.ringtone;
        return ringtone && sent.contains({ringtone->path, entry.second.nameNow()});
    });
}

/// What was done about the ringtone meanwhile is about its new name.
void PhoneBook::carriedOutRenaming(const std::string& from, const std::string& to) {
    const auto node = renamed_.extract(from);
    if (!node.empty() && node.mapped() != to) {
        renamed_[to] = node.mapped();
    }
    if (removed_.erase(from) > 0) {
        removed_.insert(to);
    }
    for (auto length = seconds_.lower_bound({from, 0});
         length != seconds_.end() && length->first.first == from; ++length) {
        seconds_[{to, length->first.second}] = length->second;
    }
}

uint64_t PhoneBook::add(const std::filesystem::path& song, const std::string& givenName) {
    const std::string name = tidiedName(givenName);
    songs_.emplace(++lastSong_, Song{.path = song,
                                     .name = shownText(song.stem().string()),
                                     .givenName = isUsableName(name) ? name : std::string()});
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
                         song.wish = song.wanted;
                         if (!ready.wasPrepared) {
                             song.wish.lengthSeconds = audio::kLongestRingtoneSeconds;
                         }
                     },
                     [&](const engine::Failure& failure) {
                         song.mark = song.ringtone ? Mark::New : Mark::Unusable;
                         song.givenName = song.ringtone ? song.nameBefore : song.givenName;
                         song.reason = song.ringtone ? std::string() : failure.what();
                     }},
               news);
}

bool PhoneBook::canBeCut(const Row& row) {
    return row.key.front() == kSongKey && (row.mark == Mark::New || row.mark == Mark::NameTaken);
}

std::optional<SongCut> PhoneBook::cutOf(const std::string& key) const {
    const auto found = key.front() == kSongKey ? songs_.find(numberIn(key)) : songs_.end();
    if (found == songs_.end() || !found->second.isReady()) {
        return std::nullopt;
    }
    const Song& song = found->second;
    return SongCut{song.path, song.nameNow(), song.wish};
}

uint64_t PhoneBook::cut(const std::string& key, const SongCut& wanted) {
    const uint64_t number = numberIn(key);
    Song& song = songs_.at(number);
    song.mark = Mark::Preparing;
    song.wanted = wanted.wish;
    song.nameBefore = song.givenName;
    if (isUsableName(tidiedName(wanted.name))) {
        rename(key, wanted.name);
    }
    return number;
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
            dropTakenNames();
        } else if (const auto song = songs_.find(numberIn(key)); song != songs_.end()) {
            song->second.isForgotten = false;
        }
    }
}

void PhoneBook::rememberLengths() {
    for (const auto& [number, song] : songs_) {
        if (song.seconds) {
            seconds_[{song.nameNow(), song.size}] = *song.seconds;
        }
    }
}

bool PhoneBook::isRemoved(const engine::PhoneRingtone& ringtone) const {
    return removed_.contains(ringtone.name);
}

const std::string& PhoneBook::nameAfter(const engine::PhoneRingtone& ringtone) const {
    const auto given = renamed_.find(ringtone.name);
    return given == renamed_.end() ? ringtone.name : given->second;
}

/// What stands against a name among the ringtones of the phone. One of them is renamed before any is
/// removed, and so cannot have the name of one that goes.
NameProblem PhoneBook::problemOnPhone(const std::string& key, const std::string& name) const {
    if (reading() == nullptr) {
        return NameProblem::None;
    }
    NameProblem problem = NameProblem::None;
    for (const engine::PhoneRingtone& ringtone : reading()->ringtones) {
        if (kPhoneKey + ringtone.name == key) {
            continue;
        }
        if (!isRemoved(ringtone) && engine::composed(nameAfter(ringtone)) == name) {
            return NameProblem::Taken;
        }
        if (key.front() == kPhoneKey && engine::composed(ringtone.name) == name) {
            problem = NameProblem::TakenUntilSync;
        }
    }
    return problem;
}

NameProblem PhoneBook::nameProblem(const std::string& key, const std::string& typed) const {
    const std::string name = tidiedName(typed);
    if (name.empty()) {
        return NameProblem::Empty;
    }
    if (!isUsableName(name)) {
        return NameProblem::Unusable;
    }
    for (const uint64_t number : going()) {
        if (kSongKey + std::to_string(number) != key &&
            engine::composed(songs_.at(number).nameNow()) == name) {
            return NameProblem::Taken;
        }
    }
    return problemOnPhone(key, name);
}

void PhoneBook::rename(const std::string& key, const std::string& typed) {
    const std::string name = tidiedName(typed);
    const auto isOwn = [&](const std::string& own) {
        return typed == own || name == engine::composed(own);
    };
    if (key.front() == kPhoneKey) {
        const std::string own = key.substr(1);
        if (isOwn(own)) {
            renamed_.erase(own);
        } else {
            renamed_[own] = name;
        }
    } else if (const auto song = songs_.find(numberIn(key)); song != songs_.end()) {
        song->second.givenName = isOwn(song->second.name) ? std::string() : name;
    }
}

std::string PhoneBook::nameOf(const std::string& key) const {
    if (key.front() == kPhoneKey) {
        const auto given = renamed_.find(key.substr(1));
        return given == renamed_.end() ? key.substr(1) : given->second;
    }
    const auto song = songs_.find(numberIn(key));
    return song == songs_.end() ? std::string() : song->second.nameNow();
}

const engine::PhoneRingtone* PhoneBook::ringtoneOf(const std::string& key) const {
    return holdings_ == nullptr || key.front() != kPhoneKey ? nullptr
                                                            : holdings_->find(key.substr(1));
}

std::optional<std::filesystem::path> PhoneBook::fileOf(const std::string& key) const {
    const auto song = key.front() == kSongKey ? songs_.find(numberIn(key)) : songs_.end();
    return song == songs_.end() || song->second.isForgotten || !song->second.ringtone
               ? std::nullopt
               : std::optional<std::filesystem::path>(song->second.ringtone->path);
}

bool PhoneBook::canPlay(const Row& row) {
    return canRename(row) || row.mark == Mark::Removed;
}

bool PhoneBook::canRename(const Row& row) {
    switch (row.mark) {
    case Mark::OnPhone:
    case Mark::Renamed:
    case Mark::New:
    case Mark::NameTaken:
        return true;
    case Mark::Removed:
    case Mark::Checking:
    case Mark::Preparing:
    case Mark::Unusable:
        return false;
    }
    return false;
}

Row PhoneBook::rowOf(const engine::PhoneRingtone& ringtone) const {
    const auto seconds = seconds_.find({ringtone.name, ringtone.size});
    Row row{.key = kPhoneKey + ringtone.name,
            .name = ringtone.name,
            .size = ringtone.size,
            .seconds = seconds == seconds_.end() ? std::nullopt : std::optional(seconds->second)};
    if (isRemoved(ringtone)) {
        row.mark = Mark::Removed;
    } else if (renamed_.contains(ringtone.name)) {
        row.mark = Mark::Renamed;
        row.name = nameAfter(ringtone);
        row.formerName = ringtone.name;
    }
    return row;
}

std::set<uint64_t> PhoneBook::going() const {
    std::set<std::string> taken; // in normal form C: names that look alike are one
    if (reading() != nullptr) {
        for (const engine::PhoneRingtone& ringtone : reading()->ringtones) {
            if (!isRemoved(ringtone)) {
                taken.insert(engine::composed(nameAfter(ringtone)));
            }
        }
    }
    std::set<uint64_t> result;
    for (const auto& [number, song] : songs_) {
        if (song.isReady() && taken.insert(engine::composed(song.nameNow())).second) {
            result.insert(number);
        }
    }
    return result;
}

Row PhoneBook::rowOf(uint64_t number, const Song& song, const std::set<uint64_t>& going) const {
    const bool isHeldBack = song.mark == Mark::New && !going.contains(number);
    return {.key = kSongKey + std::to_string(number),
            .name = song.nameNow(),
            .size = song.size,
            .seconds = song.seconds,
            .mark = isHeldBack ? Mark::NameTaken : song.mark,
            .reason = song.reason};
}

std::vector<Row> PhoneBook::rows() const {
    std::vector<Row> result;
    std::vector<std::string> order;
    if (reading() != nullptr) {
        for (const engine::PhoneRingtone& ringtone : reading()->ringtones) {
            result.push_back(rowOf(ringtone));
            order.push_back(ringtone.name);
        }
    }
    const std::set<uint64_t> goingSongs = going();
    for (const auto& [number, song] : songs_) {
        if (!song.isForgotten) {
            result.push_back(rowOf(number, song, goingSongs));
            order.push_back(song.name);
        }
    }
    return sorted(std::move(result), order);
}

bool PhoneBook::isEmpty() const {
    return (reading() == nullptr || reading()->ringtones.empty()) &&
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
    if (reading() != nullptr) {
        for (const engine::PhoneRingtone& ringtone : reading()->ringtones) {
            if (isRemoved(ringtone)) {
                ++sum.removed;
                sum.removedBytes += ringtone.size;
            } else if (renamed_.contains(ringtone.name)) {
                ++sum.renamed;
            }
        }
    }
    return sum;
}

WantedChange PhoneBook::wanted() const {
    WantedChange result;
    for (const uint64_t number : going()) {
        const Song& song = songs_.at(number);
        result.added.push_back(*song.ringtone);
        result.added.back().name = song.nameNow();
    }
    result.removed.assign(removed_.begin(), removed_.end());
    std::copy_if(renamed_.begin(), renamed_.end(), std::back_inserter(result.renamed),
                 [&](const auto& names) { return !removed_.contains(names.first); });
    return result;
}

Edits PhoneBook::edits() const {
    Edits result;
    result.removed.assign(removed_.begin(), removed_.end());
    result.renamed.assign(renamed_.begin(), renamed_.end());
    for (const auto& [number, song] : songs_) {
        if (!song.isForgotten && song.mark != Mark::Unusable) {
            result.songs.push_back({song.path, song.givenName});
        }
    }
    return result;
}

void PhoneBook::restore(const Edits& edits) {
    removed_.insert(edits.removed.begin(), edits.removed.end());
    for (const auto& [from, to] : edits.renamed) {
        const std::string key = kPhoneKey + from;
        if (nameProblem(key, to) == NameProblem::None) {
            rename(key, to);
        }
    }
}

void PhoneBook::dropEdits() {
    removed_.clear();
    renamed_.clear();
    songs_.clear();
}

bool PhoneBook::hasEdits() const {
    return !removed_.empty() || !renamed_.empty() ||
           std::any_of(songs_.begin(), songs_.end(),
                       [](const auto& entry) { return !entry.second.isForgotten; });
}

bool PhoneBook::fits() const {
    return reading() == nullptr || !reading()->facts.freeBytes ||
           sum().addedBytes <= *reading()->facts.freeBytes;
}

} // namespace krl::desktop
