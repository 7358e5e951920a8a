#pragma once

#include "desktop/bridge/PhoneWork.h"
#include "desktop/bridge/SongDesk.h"

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
    Checking,  ///< a song that is being looked at
    Preparing, ///< a ringtone is being made of it
    New,       ///< goes to the phone with the next sync
    NameTaken, ///< does not go, because there is one of this name
    Unusable   ///< cannot be a ringtone
};

struct Row {
    std::string key; ///< the same for as long as the row is about the same
    std::string name;
    uint64_t size = 0;
    std::optional<double> seconds;
    Mark mark = Mark::OnPhone;
    std::string reason = {}; ///< of an unusable one

    friend bool operator==(const Row&, const Row&) = default;
};

/// The edits in numbers.
struct EditSum {
    size_t added = 0;
    uint64_t addedBytes = 0;
    size_t removed = 0;
    uint64_t removedBytes = 0;
    size_t underWay = 0; ///< songs that are not ready yet

    size_t changes() const { return added + removed; }
};

/// One phone's ringtones as they were read, and what a person wants changed about them. Keeps the
/// edits while the phone is away.
class PhoneBook {
public:
    /// Takes in what the phone holds.
    void take(PhoneReading reading);

    const std::optional<PhoneReading>& reading() const { return reading_; }

    /// Edits that the phone as it was read last already has are no edits any more. For after a job:
    /// before one, a song that the phone has may be added for its other sound.
    void dropFulfilled();

    /// What was asked for is on the phone: these edits are none any more.
    void carriedOut(const WantedChange& done);

    /// @return the song's number
    uint64_t add(const std::filesystem::path& song);

    void hear(uint64_t song, const SongNews& news);

    /// Takes off what is on the phone, and forgets what is not.
    void remove(const std::vector<std::string>& keys);

    /// Takes that back.
    void bringBack(const std::vector<std::string>& keys);

    /// Whether a row shows something that can be taken back by itself.
    static bool isRemoved(const Row& row) { return row.mark == Mark::Removed; }

    /// Sorted by name.
    std::vector<Row> rows() const;

    /// Whether there are no rows.
    bool isEmpty() const;

    EditSum sum() const;

    WantedChange wanted() const;

    bool hasEdits() const;

    /// Whether the edits fit; true also when the phone does not say what is free.
    bool fits() const;

private:
    struct Song {
        std::string name;
        uint64_t size = 0;
        std::optional<double> seconds = {};
        Mark mark = Mark::Checking; ///< never NameTaken: that depends on the others
        std::string reason = {};
        std::optional<engine::LocalRingtone> ringtone = {};
        bool isForgotten = false;
    };

    /// Numbers of the songs that go to the phone: ready, and of a name that nobody else has.
    std::set<uint64_t> going() const;
    void rememberLengths();
    Row rowOf(const engine::PhoneRingtone& ringtone) const;
    Row rowOf(uint64_t number, const Song& song, const std::set<uint64_t>& going) const;

    std::optional<PhoneReading> reading_;
    std::map<uint64_t, Song> songs_; ///< by their numbers, in the order in which they were added
    uint64_t lastSong_ = 0;
    std::map<std::pair<std::string, uint64_t>, double>
        seconds_;                   ///< of songs sent, by name and size
    std::set<std::string> removed_; ///< names
};

} // namespace krl::desktop
