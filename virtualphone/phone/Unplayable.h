/// Ringtones on a phone that it would not play.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace virtualphone {

class MediaFolder;

struct Unplayable {
    std::string file;   ///< its name in the ringtone folder
    std::string reason; ///< in a few words, as in "FLAC in Ogg"
};

/// Those in the ringtone folder, in the order of their names. The empty file that early firmware
/// wants beside a ringtone of another type is none.
std::vector<Unplayable> unplayableIn(MediaFolder& media, const std::string& firmware);

/// The file that was stored under a path, if it is one of these by now: one whose name is no
/// ringtone's may get another, and what an empty m4r stands beside may come later. Never throws:
/// what cannot be judged is said as a reason.
std::optional<Unplayable> unplayableStored(MediaFolder& media, const std::string& path,
                                           const std::string& firmware);

} // namespace virtualphone
