#pragma once

#include "audio/preparing/RingtoneCache.h"
#include "engine/errors/Failure.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace krl::audio {

/// What became of one song.
struct SongOutcome {
    std::filesystem::path song;
    std::optional<Ringtone> ringtone; ///< none: it failed
    bool fromCache = false;
    std::optional<engine::Failure> failure = {};
};

/// Makes ringtones of songs, several at a time: as many as the machine has processors.
class Preparer {
public:
    /// @param stop  ends what is being made, which fails then
    explicit Preparer(RingtoneCache cache = RingtoneCache(),
                      std::filesystem::path program = prepareProgram(), std::stop_token stop = {});

    /// One song. Its title and artist are those in its tags, unless the wish has others.
    /// @throw Failure
    SongOutcome prepare(const std::filesystem::path& song, const Wish& wish) const;

    /// Many songs, by the same wish. Whatever becomes of one, the others are made.
    /// @param done is told of each, in the order of the songs, from this thread
    void prepareAll(const std::vector<std::filesystem::path>& songs, const Wish& wish,
                    const std::function<void(const SongOutcome&)>& done) const;

private:
    RingtoneCache cache_;
    std::filesystem::path program_;
    std::stop_token stop_;
};

} // namespace krl::audio
