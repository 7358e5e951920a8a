#pragma once

#include "desktop/bridge/EditFile.h"
#include "desktop/bridge/PhoneWork.h"
#include "desktop/bridge/SongDesk.h"
#include "desktop/session/Holdings.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace krl::desktop {

/// What a row of the list is about.
enum class Mark {
    OnPhone,
    Removed,   ///< on the phone until the next sync
    Renamed,   ///< has another name on the phone until then
    Checking,  ///< a song that is being looked at
    Preparing, ///< a ringtone is being made of it
    New,       ///< goes to the phone with the next sync
    NameTaken, ///< does not go, because there is one of this name
    Unusable   ///< cannot be a ringtone
};

/// What is to be heard of a row.
enum class Hearing { Nothing, Fetching, Sound };

struct Row {
    std::string key; ///< the same for as long as the row is about the same
    std::string name = {};
    uint64_t size = 0;
    std::optional<double> seconds = {};
    Mark mark = Mark::OnPhone;
    std::string reason = {};     ///< of an unusable one
    std::string formerName = {}; ///< of a renamed one: what the phone calls it
    Hearing hearing = Hearing::Nothing;

    friend bool operator==(const Row&, const Row&) = default;
};

/// A row that is not as it was, by where it stood and where it stands; null where it was not or is not
/// any more. One that stands where it did shows something else.
struct RowChange {
    PlacePointer before;
    PlacePointer now;
};

/// What has become of rows since the last time that somebody asked.
struct RowChanges {
    bool areAll = false; ///< any of them may be another: see all of them
    std::vector<RowChange> rows = {};
};

/// The edits in numbers.
struct EditSum {
    size_t added = 0;
    uint64_t addedBytes = 0;
    size_t removed = 0;
    uint64_t removedBytes = 0;
    size_t renamed = 0;
    size_t underWay = 0; ///< songs that are not ready yet

    size_t changes() const { return added + removed + renamed; }
};

/// Why a ringtone cannot have a name.
enum class NameProblem {
    None,
    Empty,
    Unusable,      ///< the phone's catalogue cannot hold it
    Taken,         ///< another ringtone has it
    TakenUntilSync ///< the phone has one of this name, which the next sync removes or renames
};

/// A file's name as text, whatever bytes it is of.
std::string shownText(const std::string& bytes);

/// A name as it is kept: without space around it, in normal form C.
std::string tidiedName(const std::string& typed);

/// One phone's ringtones as they were read, and what a person wants changed about them. Keeps the
/// edits while the phone is away.
class PhoneBook {
public:
    /// Takes in what the phone holds.
    void take(std::shared_ptr<const Holdings> holdings);

    /// The phone as it was read last; null before it was.
    const PhoneReading* reading() const {
        return holdings_ == nullptr ? nullptr : &holdings_->reading();
    }

    /// Edits that the phone as it was read last already has are no edits any more. For after a job:
    /// before one, a song that the phone has may be added for its other sound. None is dropped by a
    /// list that is not whole.
    void dropFulfilled();

    /// The songs of a change are about to be sent under the names that they have now.
    void begin(const WantedChange& wanted);

    /// What was asked for is on the phone: these edits are none any more. What was done meanwhile about
    /// a song that was sent is about the phone's ringtone.
    void carriedOut(const WantedChange& done);

    /// @return the song's number
    uint64_t add(const Edits::Song& song);

    void hear(uint64_t song, const SongNews& news);

    /// Whether a row is about a song that is ready to be added, of which another part can be cut out.
    static bool canBeCut(const Row& row);

    /// How such a song was cut; none of any other row.
    std::optional<SongCut> cutOf(const std::string& key) const;

    /// It is being cut anew: what there was of it is kept until then, and for good when that fails.
    /// @return the song's number
    uint64_t cut(const std::string& key, const SongCut& wanted);

    /// Takes off what is on the phone, and forgets what is not.
    void remove(const std::vector<std::string>& keys);

    /// Takes that back.
    void bringBack(const std::vector<std::string>& keys);

    /// What stands against giving a row this name.
    NameProblem nameProblem(const std::string& key, const std::string& typed) const;

    /// Gives a row a name against which nothing stands. The name that it has on the phone takes an
    /// earlier one back.
    void rename(const std::string& key, const std::string& typed);

    /// What a row shows as its name; empty when there is no such row.
    std::string nameOf(const std::string& key) const;

    /// Whether a row can be given another name.
    static bool canRename(const Row& row);

    /// The ringtone of the phone that a row is about; null for a song.
    const engine::PhoneRingtone* ringtoneOf(const std::string& key) const;

    /// The file that goes to the phone for a song; none before it is ready.
    std::optional<std::filesystem::path> fileOf(const std::string& key) const;

    /// Whether there is something of a row to be heard.
    static bool canPlay(const Row& row);

    /// Whether a row shows something that can be taken back by itself.
    static bool isRemoved(const Row& row) { return row.mark == Mark::Removed; }

    /// Where all rows stand, sorted by name; what is renamed stays in its place until the sync.
    std::vector<PlacePointer> places() const;

    /// What one of them shows.
    Row row(const std::string& key) const;

    /// What has become of rows since the last call.
    RowChanges takeChanges();

    /// Something about a row is different that this does not know.
    void touch(const std::string& key);

    /// Whether there are no rows.
    bool isEmpty() const;

    const EditSum& sum() const { return sum_; }

    /// Another number for other edits.
    uint64_t version() const { return version_; }

    WantedChange wanted() const;

    /// The edits as they are kept. A song that cannot be used is none.
    Edits edits() const;

    /// Takes kept edits in; their songs are to be added one by one. A name that cannot be is left out.
    void restore(const Edits& edits);

    /// Drops all edits.
    void dropEdits();

    bool hasEdits() const;

    /// Whether the edits fit; true also when the phone does not say what is free.
    bool fits() const;

private:
    struct Song {
        std::filesystem::path path = {}; ///< of what was added
        std::string name = {};
        std::string givenName = {}; ///< by the person; empty: its own
        uint64_t size = 0;
        std::optional<double> seconds = {};
        Mark mark = Mark::Checking; ///< never NameTaken: that depends on the others
        std::string reason = {};
        std::optional<engine::LocalRingtone> ringtone = {};
        audio::Wish usual = {};                    ///< that songs were made by when it was added
        audio::Wish wish = {};                     ///< that it was made by
        std::optional<audio::Wish> cut = {};       ///< by the person, done or under way
        std::optional<audio::Wish> cutBefore = {}; ///< the same, before it was cut anew
        std::string nameBefore = {};               ///< the given one, before that
        std::optional<Edits::Sent> sent = {};      ///< what it may be on the phone by now
        bool isForgotten = false;
        PlacePointer place = {};

        bool isReady() const { return mark == Mark::New && !isForgotten; }

        bool isUnderWay() const {
            return !isForgotten && (mark == Mark::Checking || mark == Mark::Preparing);
        }

        const std::string& nameNow() const { return givenName.empty() ? name : givenName; }
    };

    using Songs = std::map<uint64_t, Song>; ///< by their numbers, in the order they were added in

    /// A song that goes to the phone: ready, and of a name that nobody else has.
    struct Going {
        uint64_t song;
        uint64_t size;
    };

    template <typename Function>
    void changeSong(uint64_t number, const Function& function);
    Songs::iterator eraseSong(Songs::iterator song);
    template <typename Function>
    void changeRingtone(const std::string& name, const Function& function);
    void setGone(const std::string& key, bool isGone);
    void setRemoved(const std::string& name, bool isRemoved);
    /// @param to  empty: its own name again
    void setNewName(const std::string& from, const std::string& to);
    void count(const Song& song, bool isThere);
    void count(const std::string& ringtone, bool isThere);
    void countAnew();
    void settle(const std::string& composedName);
    Songs::const_iterator songOf(const std::string& key) const;
    bool isTakenOnPhone(const std::string& composedName,
                        const std::string* besides = nullptr) const;

    /// The name that a ringtone of the phone has after the next sync.
    const std::string& nameAfter(const std::string& ringtone) const;
    NameProblem problemOnPhone(const std::string& key, const std::string& name) const;
    bool isListWhole() const;
    PlacePointer placeOf(const std::string& key) const;
    void dropWhatIsGone();
    void dropTakenNames();
    void carriedOutRenaming(const std::string& from, const std::string& to);
    void handOver(const Song& song);
    void rememberLengths();
    Row rowOf(const engine::PhoneRingtone& ringtone) const;
    Row rowOf(uint64_t number, const Song& song) const;

    std::shared_ptr<const Holdings> holdings_;
    Songs songs_;
    uint64_t lastSong_ = 0;
    std::map<std::pair<std::string, uint64_t>, double>
        seconds_;                                ///< of songs sent, by name and size
    std::set<std::string> removed_;              ///< names
    std::map<std::string, std::string> renamed_; ///< names on the phone, to new ones

    // What follows from these, kept with them.
    std::map<std::string, std::set<std::string>>
        renamedTo_;                                        ///< new names in form C, to the phone's
    std::map<std::string, std::set<uint64_t>> readySongs_; ///< by their names in form C
    std::map<std::string, Going> going_;                   ///< by the same
    size_t songsShown_ = 0;
    EditSum sum_;
    uint64_t version_ = 0;

    std::map<std::string, PlacePointer> touched_; ///< keys, to where they stood when somebody asked
    bool areAllTouched_ = true;
};

} // namespace krl::desktop
