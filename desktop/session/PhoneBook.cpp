#include "desktop/session/PhoneBook.h"

#include "audio/judging/PlayedFormats.h"
#include "engine/values/Text.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace krl::desktop {
namespace {

// A key is this and what comes behind it: of one name, the phone's comes first.
constexpr char kPhoneKey = '#';
constexpr char kSongKey = '+';

std::string songKey(uint64_t number) {
    return kSongKey + std::to_string(number);
}

uint64_t numberIn(const std::string& key) {
    uint64_t number = 0;
    std::from_chars(key.data() + 1, key.data() + key.size(), number);
    return number;
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

// ---------------------------------------------------------------- what follows from the edits

/// Changes a song, and what follows from it.
template <typename Function>
void PhoneBook::changeSong(uint64_t number, const Function& function) {
    Song& song = songs_.at(number);
    touch(songKey(number));
    const std::string nameBefore = engine::composed(song.nameNow());
    const std::string placedBy = song.name;
    count(song, /*isThere=*/false);
    readySongs_[nameBefore].erase(number);
    function(song);
    count(song, /*isThere=*/true);
    const std::string nameNow = engine::composed(song.nameNow());
    if (song.isReady()) {
        readySongs_[nameNow].insert(number);
    }
    if (song.place == nullptr || song.name != placedBy) {
        song.place = newPlace(song.name, songKey(number));
    }
    settle(nameBefore);
    settle(nameNow);
}

PhoneBook::Songs::iterator PhoneBook::eraseSong(Songs::iterator song) {
    changeSong(song->first, [](Song& gone) { gone.isForgotten = true; });
    ++version_;
    return songs_.erase(song);
}

/// Changes what is to become of a ringtone of the phone, and what follows from it.
template <typename Function>
void PhoneBook::changeRingtone(const std::string& name, const Function& function) {
    touch(phoneKey(name));
    const std::string nameBefore = engine::composed(nameAfter(name));
    count(name, /*isThere=*/false);
    function();
    count(name, /*isThere=*/true);
    settle(nameBefore);
    settle(engine::composed(nameAfter(name)));
    ++version_;
}

void PhoneBook::setRemoved(const std::string& name, bool isRemoved) {
    changeRingtone(name, [&] {
        if (isRemoved) {
            removed_.insert(name);
        } else {
            removed_.erase(name);
        }
    });
}

void PhoneBook::setNewName(const std::string& from, const std::string& to) {
    changeRingtone(from, [&] {
        if (const auto node = renamed_.extract(from); !node.empty()) {
            const auto others = renamedTo_.find(engine::composed(node.mapped()));
            others->second.erase(from);
            if (others->second.empty()) {
                renamedTo_.erase(others);
            }
        }
        if (!to.empty()) {
            renamed_[from] = to;
            renamedTo_[engine::composed(to)].insert(from);
        }
    });
}

void PhoneBook::count(const Song& song, bool isThere) {
    const size_t one = isThere ? 1 : static_cast<size_t>(-1);
    songsShown_ += song.isForgotten ? 0 : one;
    sum_.underWay += song.isUnderWay() ? one : 0;
}

void PhoneBook::count(const std::string& name, bool isThere) {
    const auto* const ringtone = holdings_ == nullptr ? nullptr : holdings_->find(name);
    const size_t one = isThere ? 1 : static_cast<size_t>(-1);
    if (ringtone == nullptr) {
        return;
    }
    if (removed_.contains(name)) {
        sum_.removed += one;
        sum_.removedBytes += one * ringtone->size;
    } else if (renamed_.contains(name)) {
        sum_.renamed += one;
    }
}

void PhoneBook::countAnew() {
    sum_ = {};
    songsShown_ = 0;
    going_.clear();
    for (const auto& [number, song] : songs_) {
        count(song, /*isThere=*/true);
    }
    for (const std::string& name : removed_) {
        count(name, /*isThere=*/true);
    }
    for (const auto& [name, to] : renamed_) {
        if (!removed_.contains(name)) {
            count(name, /*isThere=*/true);
        }
    }
    std::vector<std::string> names;
    for (const auto& [name, numbers] : readySongs_) {
        names.push_back(name);
    }
    for (const std::string& name : names) {
        settle(name);
    }
}

/// Finds who goes to the phone under a name: the song that was added first, if nobody has it there.
void PhoneBook::settle(const std::string& composedName) {
    uint64_t before = 0;
    uint64_t now = 0;
    if (const auto node = going_.extract(composedName); !node.empty()) {
        before = node.mapped().song;
        --sum_.added;
        sum_.addedBytes -= node.mapped().size;
    }
    const auto ready = readySongs_.find(composedName);
    if (ready != readySongs_.end() && ready->second.empty()) {
        readySongs_.erase(ready);
    } else if (ready != readySongs_.end() && !isTakenOnPhone(composedName)) {
        now = *ready->second.begin();
        const uint64_t size = songs_.at(now).size;
        going_.emplace(composedName, Going{now, size});
        ++sum_.added;
        sum_.addedBytes += size;
    }
    if (before != now) {
        touch(songKey(before));
        touch(songKey(now));
    }
}

/// @param besides  the name on the phone of one that is left out
bool PhoneBook::isTakenOnPhone(const std::string& composedName, const std::string* besides) const {
    if (holdings_ == nullptr) {
        return false;
    }
    const auto stays = [&](const std::string& name) {
        return !removed_.contains(name) && (besides == nullptr || name != *besides);
    };
    for (const engine::PhoneRingtone* const ringtone : holdings_->likeNamed(composedName)) {
        if (stays(ringtone->name) && !renamed_.contains(ringtone->name)) {
            return true;
        }
    }
    const auto given = renamedTo_.find(composedName);
    return given != renamedTo_.end() &&
           std::any_of(given->second.begin(), given->second.end(), [&](const std::string& name) {
               return stays(name) && holdings_->find(name) != nullptr;
           });
}

void PhoneBook::touch(const std::string& key) {
    if (!areAllTouched_) {
        touched_.try_emplace(key, placeOf(key));
    }
}

RowChanges PhoneBook::takeChanges() {
    RowChanges changes{.areAll = std::exchange(areAllTouched_, false)};
    for (auto& [key, before] : touched_) {
        PlacePointer now = placeOf(key);
        if (before != nullptr || now != nullptr) {
            changes.rows.push_back({std::move(before), std::move(now)});
        }
    }
    touched_.clear();
    return changes;
}

PlacePointer PhoneBook::placeOf(const std::string& key) const {
    if (key.front() == kPhoneKey) {
        return holdings_ == nullptr ? nullptr : holdings_->placeOf(key.substr(1));
    }
    const auto song = songOf(key);
    return song == songs_.end() || song->second.isForgotten ? nullptr : song->second.place;
}

PhoneBook::Songs::const_iterator PhoneBook::songOf(const std::string& key) const {
    return key.front() == kSongKey ? songs_.find(numberIn(key)) : songs_.end();
}

// ---------------------------------------------------------------- what the phone holds

void PhoneBook::take(std::shared_ptr<const Holdings> holdings) {
    holdings_ = std::move(holdings);
    areAllTouched_ = true;
    touched_.clear();
    countAnew();
    dropWhatIsGone();
    dropTakenNames();
}

/// Without its catalogue a phone lists nothing, be its ringtones there or not.
bool PhoneBook::isListWhole() const {
    return holdings_ != nullptr && !reading()->brokenJob && !reading()->catalogueIsUnreadable;
}

/// What is not on the phone any more, or was not when kept edits came back, waits for no sync: a later
/// ringtone of that name is another.
void PhoneBook::dropWhatIsGone() {
    if (!isListWhole()) {
        return;
    }
    for (const std::string& name : std::set<std::string>(removed_)) {
        if (holdings_->find(name) == nullptr) {
            setRemoved(name, false);
        }
    }
    for (const auto& [from, to] : std::map<std::string, std::string>(renamed_)) {
        if (holdings_->find(from) == nullptr) {
            setNewName(from, {});
        }
    }
}

/// Names that others have given to ringtones meanwhile cannot be given any more.
void PhoneBook::dropTakenNames() {
    for (const auto& [from, to] : std::map<std::string, std::string>(renamed_)) {
        if (!removed_.contains(from) && problemOnPhone(phoneKey(from), to) != NameProblem::None) {
            setNewName(from, {});
        }
    }
}

void PhoneBook::dropFulfilled() {
    if (!isListWhole()) {
        return;
    }
    rememberLengths();
    dropWhatIsGone();
    const auto isThere = [&](const Edits::Sent& sent) {
        const auto* const ringtone = holdings_->find(sent.name);
        return ringtone != nullptr && ringtone->size == sent.size && !removed_.contains(sent.name);
    };
    for (auto next = songs_.begin(); next != songs_.end();) {
        Song& song = next->second;
        if (song.sent && isThere(*song.sent)) {
            handOver(song);
            next = eraseSong(next);
            continue;
        }
        version_ += song.sent ? 1U : 0U;
        song.sent.reset();
        const bool isFulfilled = song.mark == Mark::New && isThere({song.nameNow(), song.size});
        next = song.isForgotten || isFulfilled ? eraseSong(next) : std::next(next);
    }
    dropTakenNames(); // what was handed over may have one
}

void PhoneBook::begin(const WantedChange& wanted) {
    for (const engine::LocalRingtone& ringtone : wanted.added) {
        const auto found = going_.find(engine::composed(ringtone.name));
        if (found != going_.end()) {
            songs_.at(found->second.song).sent = {ringtone.name, ringtone.size};
        }
    }
    ++version_;
}

void PhoneBook::carriedOut(const WantedChange& done) {
    rememberLengths();
    for (const std::string& name : done.removed) {
        setRemoved(name, false);
    }
    for (const auto& [from, to] : done.renamed) {
        carriedOutRenaming(from, to);
    }
    std::set<std::pair<std::string, std::string>> sent;
    for (const engine::LocalRingtone& ringtone : done.added) {
        sent.emplace(ringtone.path, ringtone.name);
    }
    for (auto next = songs_.begin(); next != songs_.end();) {
        const Song& song = next->second;
        const bool wasSent =
            song.ringtone && song.sent && sent.contains({song.ringtone->path, song.sent->name});
        if (wasSent) {
            handOver(song);
        }
        next = wasSent ? eraseSong(next) : std::next(next);
    }
}

/// A song has become a ringtone of the phone: what was done about it since it was sent is about that.
void PhoneBook::handOver(const Song& song) {
    if (song.isForgotten) {
        setRemoved(song.sent->name, true);
    } else if (song.nameNow() != song.sent->name) {
        rename(phoneKey(song.sent->name), song.nameNow());
    }
}

/// What was done about the ringtone meanwhile is about its new name.
void PhoneBook::carriedOutRenaming(const std::string& from, const std::string& to) {
    if (const auto given = renamed_.find(from); given != renamed_.end()) {
        const std::string wanted = given->second;
        setNewName(from, {});
        setNewName(to, wanted == to ? std::string() : wanted);
    }
    if (removed_.contains(from)) {
        setRemoved(from, false);
        setRemoved(to, true);
    }
    for (auto length = seconds_.lower_bound({from, 0});
         length != seconds_.end() && length->first.first == from; ++length) {
        seconds_[{to, length->first.second}] = length->second;
    }
}

// ---------------------------------------------------------------- edits

uint64_t PhoneBook::add(const Edits::Song& song) {
    const std::string name = tidiedName(song.name);
    const bool wasSent = song.sent && isUsableName(song.sent->name);
    const uint64_t number = ++lastSong_;
    // Not there before it is shown.
    songs_[number].isForgotten = true;
    changeSong(number, [&](Song& added) {
        added = {.path = song.path,
                 .name = wasSent ? song.sent->name : shownText(song.path.stem().string()),
                 .givenName = isUsableName(name) ? name : std::string(),
                 .usual = song.usual,
                 .cut = song.cut,
                 .sent = wasSent ? song.sent : std::nullopt};
    });
    ++version_;
    return number;
}

void PhoneBook::hear(uint64_t number, const SongNews& news) {
    if (!songs_.contains(number)) {
        return;
    }
    changeSong(number, [&](Song& song) {
        std::visit(Cases{[&](const SongIsPrepared&) { song.mark = Mark::Preparing; },
                         [&](const SongIsReady& ready) {
                             song.mark = Mark::New;
                             song.name = ready.ringtone.name;
                             song.size = ready.ringtone.size;
                             song.seconds = ready.seconds;
                             song.ringtone = ready.ringtone;
                             song.wish = song.cut.value_or(song.usual);
                             if (!ready.wasPrepared) {
                                 song.wish.lengthSeconds = audio::kLongestRingtoneSeconds;
                             }
                         },
                         [&](const engine::Failure& failure) {
                             ++version_;
                             song.mark = song.ringtone ? Mark::New : Mark::Unusable;
                             song.givenName = song.ringtone ? song.nameBefore : song.givenName;
                             song.cut = song.ringtone ? song.cutBefore : song.cut;
                             song.reason = song.ringtone ? std::string() : failure.what();
                         }},
                   news);
    });
}

bool PhoneBook::canBeCut(const Row& row) {
    return row.key.front() == kSongKey && (row.mark == Mark::New || row.mark == Mark::NameTaken);
}

std::optional<SongCut> PhoneBook::cutOf(const std::string& key) const {
    const auto found = songOf(key);
    if (found == songs_.end() || !found->second.isReady()) {
        return std::nullopt;
    }
    const Song& song = found->second;
    return SongCut{song.path, song.nameNow(), song.wish};
}

uint64_t PhoneBook::cut(const std::string& key, const SongCut& wanted) {
    const uint64_t number = numberIn(key);
    changeSong(number, [&](Song& song) {
        song.mark = Mark::Preparing;
        song.cutBefore = std::exchange(song.cut, wanted.wish);
        song.nameBefore = song.givenName;
    });
    ++version_;
    if (isUsableName(tidiedName(wanted.name))) {
        rename(key, wanted.name);
    }
    return number;
}

void PhoneBook::remove(const std::vector<std::string>& keys) {
    for (const std::string& key : keys) {
        setGone(key, true);
    }
}

void PhoneBook::bringBack(const std::vector<std::string>& keys) {
    for (const std::string& key : keys) {
        setGone(key, false);
    }
    dropTakenNames();
}

void PhoneBook::setGone(const std::string& key, bool isGone) {
    if (key.front() == kPhoneKey) {
        setRemoved(key.substr(1), isGone);
    } else if (songOf(key) != songs_.end()) {
        changeSong(numberIn(key), [&](Song& song) { song.isForgotten = isGone; });
        ++version_;
    }
}

void PhoneBook::rememberLengths() {
    for (const auto& [number, song] : songs_) {
        if (song.seconds) {
            seconds_[{song.nameNow(), song.size}] = *song.seconds;
        }
    }
}

const std::string& PhoneBook::nameAfter(const std::string& ringtone) const {
    const auto given = renamed_.find(ringtone);
    return given == renamed_.end() ? ringtone : given->second;
}

/// What stands against a name among the ringtones of the phone. One of them is renamed before any is
/// removed, and so cannot have the name of one that goes.
NameProblem PhoneBook::problemOnPhone(const std::string& key, const std::string& name) const {
    if (holdings_ == nullptr) {
        return NameProblem::None;
    }
    const bool isOfPhone = key.front() == kPhoneKey;
    const std::string own = key.substr(1);
    if (isTakenOnPhone(name, isOfPhone ? &own : nullptr)) {
        return NameProblem::Taken;
    }
    const auto& like = holdings_->likeNamed(name);
    return isOfPhone && std::any_of(like.begin(), like.end(),
                                    [&](const auto* one) { return one->name != own; })
               ? NameProblem::TakenUntilSync
               : NameProblem::None;
}

NameProblem PhoneBook::nameProblem(const std::string& key, const std::string& typed) const {
    const std::string name = tidiedName(typed);
    if (name.empty()) {
        return NameProblem::Empty;
    }
    if (!isUsableName(name)) {
        return NameProblem::Unusable;
    }
    const auto going = going_.find(name);
    if (going != going_.end() && songKey(going->second.song) != key) {
        return NameProblem::Taken;
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
        setNewName(own, isOwn(own) ? std::string() : name);
    } else if (songOf(key) != songs_.end()) {
        changeSong(numberIn(key),
                   [&](Song& song) { song.givenName = isOwn(song.name) ? std::string() : name; });
        ++version_;
    }
}

std::string PhoneBook::nameOf(const std::string& key) const {
    if (key.front() == kPhoneKey) {
        return nameAfter(key.substr(1));
    }
    const auto song = songOf(key);
    return song == songs_.end() ? std::string() : song->second.nameNow();
}

const engine::PhoneRingtone* PhoneBook::ringtoneOf(const std::string& key) const {
    return holdings_ == nullptr || key.front() != kPhoneKey ? nullptr
                                                            : holdings_->find(key.substr(1));
}

std::optional<std::filesystem::path> PhoneBook::fileOf(const std::string& key) const {
    const auto song = songOf(key);
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
    Row row{.key = phoneKey(ringtone.name),
            .name = ringtone.name,
            .size = ringtone.size,
            .seconds = seconds == seconds_.end() ? std::nullopt : std::optional(seconds->second)};
    if (removed_.contains(ringtone.name)) {
        row.mark = Mark::Removed;
    } else if (renamed_.contains(ringtone.name)) {
        row.mark = Mark::Renamed;
        row.name = nameAfter(ringtone.name);
        row.formerName = ringtone.name;
    }
    return row;
}

Row PhoneBook::rowOf(uint64_t number, const Song& song) const {
    const auto going = going_.find(engine::composed(song.nameNow()));
    const bool goes = going != going_.end() && going->second.song == number;
    return {.key = songKey(number),
            .name = song.nameNow(),
            .size = song.size,
            .seconds = song.seconds,
            .mark = song.mark == Mark::New && !goes ? Mark::NameTaken : song.mark,
            .reason = song.reason};
}

Row PhoneBook::row(const std::string& key) const {
    if (const engine::PhoneRingtone* const ringtone = ringtoneOf(key)) {
        return rowOf(*ringtone);
    }
    const auto song = songOf(key);
    return song == songs_.end() ? Row{.key = key} : rowOf(song->first, song->second);
}

std::vector<PlacePointer> PhoneBook::places() const {
    std::vector<PlacePointer> songs;
    for (const auto& [number, song] : songs_) {
        if (!song.isForgotten) {
            songs.push_back(song.place);
        }
    }
    std::sort(songs.begin(), songs.end(), standsBefore);
    if (holdings_ == nullptr) {
        return songs;
    }
    std::vector<PlacePointer> result;
    const auto& onPhone = holdings_->places();
    result.reserve(songs.size() + onPhone.size());
    std::merge(onPhone.begin(), onPhone.end(), songs.begin(), songs.end(),
               std::back_inserter(result), standsBefore);
    return result;
}

bool PhoneBook::isEmpty() const {
    return songsShown_ == 0 && (holdings_ == nullptr || reading()->ringtones.empty());
}

WantedChange PhoneBook::wanted() const {
    std::set<uint64_t> numbers;
    for (const auto& [name, going] : going_) {
        numbers.insert(going.song);
    }
    WantedChange result;
    for (const uint64_t number : numbers) {
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
            // Its own name is not known before it is ready again.
            const bool isRenamed = song.sent && song.sent->name != song.nameNow();
            const std::string& name = isRenamed ? song.nameNow() : song.givenName;
            result.songs.push_back({song.path, name, song.cut, song.sent, song.usual});
        } else if (song.isForgotten && song.sent &&
                   ringtoneOf(phoneKey(song.sent->name)) == nullptr) {
            result.removed.push_back(song.sent->name);
        }
    }
    return result;
}

void PhoneBook::restore(const Edits& edits) {
    for (const std::string& name : edits.removed) {
        setRemoved(name, true);
    }
    for (const auto& [from, to] : edits.renamed) {
        const std::string key = phoneKey(from);
        if (nameProblem(key, to) == NameProblem::None) {
            rename(key, to);
        }
    }
}

void PhoneBook::dropEdits() {
    removed_.clear();
    renamed_.clear();
    renamedTo_.clear();
    songs_.clear();
    readySongs_.clear();
    areAllTouched_ = true;
    touched_.clear();
    countAnew();
    ++version_;
}

bool PhoneBook::hasEdits() const {
    return !removed_.empty() || !renamed_.empty() || songsShown_ > 0;
}

bool PhoneBook::fits() const {
    return holdings_ == nullptr || !reading()->facts.freeBytes ||
           sum_.addedBytes <= *reading()->facts.freeBytes;
}

} // namespace krl::desktop
