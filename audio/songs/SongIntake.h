#pragma once

#include "audio/songs/RingtoneMaker.h"
#include "audio/songs/SongReader.h"
#include "engine/plan/Change.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace krl::audio {

/// Hears what becomes of songs on their way to a phone, on the thread that takes them in.
class SongListener {
public:
    virtual ~SongListener() = default;

    /// One of several songs cannot be used; the others go on.
    virtual void failed(const std::filesystem::path& song, const engine::Failure& failure) = 0;

    /// Files have no readable tags, so that their ringtones are named after them.
    virtual void hasUnreadableTags(const std::vector<std::string>& files) = 0;

    /// Ringtones are being made: so many are, of so many. A Failure that it throws ends that.
    virtual void makes(size_t done, size_t total) = 0;

    virtual void made(const WantedRingtone& wanted, const SongOutcome& outcome) = 0;

    /// A ringtone goes to the phone, unless that holds it already.
    virtual void goes(const WantedRingtone& wanted, bool isHeld) = 0;
};

/// Songs on their way to ringtones on a phone. What cannot be used is told, and the others go on;
/// where it is the only one, each of these throws its Failure.
class SongIntake {
public:
    /// @param listener  outlives it
    SongIntake(Recipe recipe, NameSource names, SongListener& listener)
        : recipe_(std::move(recipe)), nameSource_(names), listener_(listener), maker_(recipe_) {}

    /// A song, and the name that its ringtone is to have, if it is not to be named after it.
    struct Given {
        std::filesystem::path path;
        std::optional<std::string> name = {};
    };

    /// Reads songs.
    void read(const std::vector<Given>& songs);

    /// A song that is not to be read at this time counts as one that cannot be used.
    void refuse(const std::filesystem::path& song, const engine::Failure& why);

    /// Makes what a phone lacks as it was read, so that nothing is left to be made when it is changed:
    /// that may take minutes, and needs no phone.
    void makeBeforehand(const engine::PhoneState& state);

    /// Whether there are none that can be used.
    bool isEmpty() const;

    /// Whether some cannot be used.
    bool hasFailed() const { return !failed_.empty(); }

    /// Works out what the phone is to get, with names of their own there.
    /// @param others  what becomes of all else that it holds
    void choose(const engine::PhoneState& state, engine::Others others);

    /// By what a ringtone on the phone is known to be the wanted one.
    enum class Same {
        BySource,      ///< what is written down of it
        BySourceOrSize ///< or, where nothing is, its size
    };

    /// Those ringtones, made where the phone does not hold them already.
    std::vector<engine::LocalRingtone> made(engine::OpenPhone& phone,
                                            const engine::PhoneState& state, Same same);

    /// The names that were chosen.
    std::vector<std::string> names() const;

    /// All that a phone is to hold, chosen and made.
    struct All {
        std::vector<engine::LocalRingtone> ringtones;
        engine::Others others = engine::Others::Go;
    };

    /// What is there besides goes only when all songs can be used: one that cannot be used now may
    /// be there from a time when it could.
    All all(engine::OpenPhone& phone, const engine::PhoneState& state);

private:
    struct Read {
        Song song;
        bool isNamed = false; ///< by who gave it
    };

    /// Of the chosen ones.
    struct Compared {
        std::set<std::string> held;           ///< names of those that the phone has
        std::vector<WantedRingtone*> missing; ///< to be made
    };

    void keepEarlier(const engine::PhoneState& state, engine::Others others);
    void name(const engine::PhoneState& state, engine::Others others);
    Compared compare(const engine::PhoneState& state, Same same);
    void fail(const std::filesystem::path& song, const engine::Failure& failure);
    void make(const std::vector<WantedRingtone*>& missing);

    Recipe recipe_;
    NameSource nameSource_;
    SongListener& listener_;
    RingtoneMaker maker_;
    size_t given_ = 0;
    std::vector<Read> songs_; ///< that could be read
    std::set<std::filesystem::path> failed_;
    std::vector<WantedRingtone> wanted_;
    std::vector<bool> isNamed_; ///< by who gave it, of the same
};

} // namespace krl::audio
