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
    std::string name;
    uint64_t size = 0;
    std::optional<double> seconds;
    Mark mark = Mark::OnPhone;
    std::string reason = {};     ///< of an unusable one
    std::string formerName = {}; ///< of a renamed one: what the phone calls it
    Hearing hearing = Hearing::Nothing;

    friend bool operator==(const Row&, const Row&) = default;
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

    /// What was asked for is on the phone: these edits are none any more.
    void carriedOut(const WantedChange& done);

    /// @param givenName  by the person; empty: its own
    /// @return the song's number
    uint64_t add(const std::filesystem::path& song, const std::string& givenName = {});

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

    /// Sorted by name; what is renamed stays in its place until the sync.
    std::vector<Row> rows() const;

    /// Whether there are no rows.
    bool isEmpty() const;

    EditSum sum() const;

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
        audio::Wish wish = {};       ///< that it was made by
        audio::Wish wanted = {};     ///< that it is being made by
        std::string nameBefore = {}; ///< the given one, before it was cut anew
        bool isForgotten = false;

        bool isReady() const { return mark == Mark::New && !isForgotten; }

        const std::string& nameNow() const { return givenName.empty() ? name : givenName; }
    };

    /// Numbers of the songs that go to the phone: ready, and of a name that nobody else has.
    std::set<uint64_t> going() const;
    /// The name that a ringtone of the phone has after the next sync.
    const std::string& nameAfter(const engine::PhoneRingtone& ringtone) const;
    NameProblem problemOnPhone(const std::string& key, const std::string& name) const;
    bool isRemoved(const engine::PhoneRingtone& ringtone) const;
    bool isListWhole() const;
    void dropWhatIsGone();
    void dropTakenNames();
    void carriedOutRenaming(const std::string& from, const std::string& to);
    void rememberLengths();
    Row rowOf(const engine::PhoneRingtone& ringtone) const;
    Row rowOf(uint64_t number, const Song& song, const std::set<uint64_t>& going) const;

    std::shared_ptr<const Holdings> holdings_;
    std::map<uint64_t, Song> songs_; ///< by their numbers, in the order in which they were added
    uint64_t lastSong_ = 0;
    std::map<std::pair<std::string, uint64_t>, double>
        seconds_;                                ///< of songs sent, by name and size
    std::set<std::string> removed_;              ///< names
    std::map<std::string, std::string> renamed_; ///< names on the phone, to new ones
};

} // namespace krl::desktop
