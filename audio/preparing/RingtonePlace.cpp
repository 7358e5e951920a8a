#include "audio/preparing/RingtonePlace.h"

#include "engine/errors/Failure.h"
#include "engine/files/RegularFile.h"
#include "engine/files/WholeFile.h"

#include <fmt/format.h>
#include <sys/stat.h>

namespace krl::audio {

namespace fs = std::filesystem;
using engine::Failure;
using engine::FailureKind;
using engine::WholeFile;

namespace {

bool holds(const fs::path& place, const std::string& bytes) {
    std::error_code ignored;
    return fs::file_size(place, ignored) == bytes.size() &&
           engine::RegularFile(place, "").bytes(bytes.size()) == bytes;
}

} // namespace

PlacesOfSongs::PlacesOfSongs(const std::vector<fs::path>& songs) {
    for (const fs::path& song : songs) {
        songs_.emplace(identityOf(song), song);
    }
    songs_.erase(std::nullopt);
}

PlacesOfSongs::Identity PlacesOfSongs::identityOf(const fs::path& path) {
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 ? Identity({status.st_dev, status.st_ino})
                                              : std::nullopt;
}

void PlacesOfSongs::requireOther(const fs::path& song, const fs::path& place) const {
    const auto over = songs_.find(identityOf(place));
    if (over != songs_.end()) {
        throw Failure(FailureKind::NameTaken,
                      fmt::format("the ringtone of \"{}\" would be written over the song \"{}\"",
                                  song.string(), over->second.string()),
                      "Choose another place with --output: not even with --force a song is written "
                      "over.");
    }
}

bool putRingtone(const fs::path& place, const std::string& bytes, bool replaces) {
    if (fs::exists(place) && holds(place, bytes)) {
        return false;
    }
    WholeFile file(place);
    file.add(bytes);
    file.finish(replaces ? WholeFile::Existing::IsReplaced : WholeFile::Existing::IsKept);
    return true;
}

} // namespace krl::audio
