#pragma once

#include "audio/preparing/Preparer.h"
#include "audio/songs/OutgoingFolder.h"
#include "audio/songs/Recipe.h"
#include "audio/songs/SongReader.h"
#include "engine/files/LocalFile.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace krl::audio {

/// A ringtone that is to be on a phone, and the song that it comes from.
struct WantedRingtone {
    const Song* song = nullptr; ///< lent
    bool isPrepared = false;
    engine::LocalRingtone ringtone = {}; ///< path and size are missing until it was made

    bool isToBeMade() const { return ringtone.path.empty(); }
};

/// Makes what goes to a phone out of songs. Its files are there for as long as it lives.
class RingtoneMaker {
public:
    explicit RingtoneMaker(Recipe recipe, Preparer preparer = Preparer())
        : recipe_(std::move(recipe)), preparer_(std::move(preparer)) {}

    /// From now on songs become ringtones by this one. What was made by another stays.
    void follow(Recipe recipe) { recipe_ = std::move(recipe); }

    /// What a phone of this firmware is to get.
    /// @throw Failure when the song does not play there and is to go as it is
    WantedRingtone wanted(const Song& song, int firmwareNumber) const;

    /// What else a ringtone that this one would be is known by: of the same song by earlier wishes.
    std::vector<engine::Digest> earlierSources(const Song& song) const;

    /// Makes those that are to be made, several at a time. What this maker has made before is there at
    /// once.
    /// @param done  is told of each that was made or could not be, in order, from this thread
    void make(const std::vector<WantedRingtone*>& wanted,
              const std::function<void(const WantedRingtone&, const SongOutcome&)>& done);

private:
    struct Made {
        std::string path;
        uint64_t size = 0;
    };

    bool prepares(const Song& song, int firmwareNumber) const;
    static Wish completed(Wish wish, const Song& song);
    bool takeMade(WantedRingtone& wanted) const;
    void keep(WantedRingtone& wanted, const std::string& bytes);

    Recipe recipe_;
    Preparer preparer_;
    std::optional<OutgoingFolder> outgoing_;
    std::map<engine::Digest, Made> made_; ///< by what it was made of
};

} // namespace krl::audio
