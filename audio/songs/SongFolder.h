#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace krl::audio {

/// Which files of a folder count as songs, by what their names end in.
enum class SongTypes {
    All,          ///< whatever ringtones are made of
    RingtonesOnly ///< types that a ringtone may have
};

/// What a folder holds.
struct SongFolder {
    std::vector<std::filesystem::path> songs; ///< sorted by their paths
    std::vector<std::string>
        skipped; ///< what is hidden, a folder or of another type, from the folder on
};

/// Whether a file's name ends as that of a song does.
bool isSongName(const std::filesystem::path& file, SongTypes types);

/// Looks at the names in a folder.
/// @param recursive  and in those inside it, but for hidden ones and links to folders
/// @throw Failure when a folder cannot be read
SongFolder songsIn(const std::filesystem::path& folder, SongTypes types, bool recursive = false);

} // namespace krl::audio
