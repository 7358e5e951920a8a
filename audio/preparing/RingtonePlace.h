#pragma once

#include <sys/types.h>

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace krl::audio {

/// Keeps ringtones from being written over the songs that they are made of, whatever paths lead to
/// these.
class PlacesOfSongs {
public:
    explicit PlacesOfSongs(const std::vector<std::filesystem::path>& songs);

    /// @param song   whose ringtone goes to the place
    /// @throw Failure when a song is there
    void requireOther(const std::filesystem::path& song, const std::filesystem::path& place) const;

private:
    using Identity = std::optional<std::pair<dev_t, ino_t>>;

    static Identity identityOf(const std::filesystem::path& path);

    std::map<Identity, std::filesystem::path> songs_;
};

/// Puts a ringtone in its place, whole or not at all.
/// @param replaces  a file that holds something else
/// @return whether it is new; a file that holds the same stays
/// @throw Failure when it cannot be written, or the place holds something else
bool putRingtone(const std::filesystem::path& place, const std::string& bytes, bool replaces);

} // namespace krl::audio
