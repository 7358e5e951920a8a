#include "audio/songs/SongFolder.h"

#include "engine/files/LocalFile.h"
#include "engine/files/RegularFile.h"

#include <algorithm>
#include <set>
#include <system_error>

namespace krl::audio {
namespace {

namespace fs = std::filesystem;

constexpr char kCheckFolder[] =
    "Check the path and its permissions. Nothing was changed on the phone.";

/// What people's songs end in besides what phones play. What is not among these is not looked into:
/// pictures, texts and playlists lie beside songs, and films.
const std::set<std::string>& songTypes() {
    static const std::set<std::string> types{
        "aac", "ac3", "aifc", "alac", "amr", "ape", "au",  "caf", "flac", "m4b", "mka", "mp2",
        "mpc", "oga", "ogg",  "opus", "ra",  "snd", "spx", "tta", "wma",  "wv",  "weba"};
    return types;
}

/// Gathers what one folder and those inside it hold.
class Search {
public:
    Search(fs::path root, SongTypes types, bool recursive)
        : root_(std::move(root)), types_(types), recursive_(recursive) {}

    SongFolder run() {
        lookInto(root_);
        std::sort(found_.songs.begin(), found_.songs.end());
        std::sort(found_.skipped.begin(), found_.skipped.end());
        return std::move(found_);
    }

private:
    void lookInto(const fs::path& folder) {
        std::error_code error;
        for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
             entry.increment(error)) {
            take(*entry);
        }
        if (error) {
            throw engine::unreadable(folder, error.message(), kCheckFolder);
        }
    }

    void take(const fs::directory_entry& entry) {
        const fs::path& path = entry.path();
        std::error_code ignored;
        const bool hidden = path.filename().string().front() == '.';
        const bool folder = entry.is_directory(ignored);
        if (recursive_ && folder && !hidden && !entry.is_symlink(ignored)) {
            lookInto(path);
        } else if (hidden || folder || !isSongName(path, types_)) {
            found_.skipped.push_back(path.lexically_relative(root_).string());
        } else {
            found_.songs.push_back(path);
        }
    }

    fs::path root_;
    SongTypes types_;
    bool recursive_;
    SongFolder found_;
};

} // namespace

bool isSongName(const fs::path& file, SongTypes types) {
    const std::string type = engine::typeOf(file);
    return engine::isSupportedType(type) || (types == SongTypes::All && songTypes().contains(type));
}

SongFolder songsIn(const fs::path& folder, SongTypes types, bool recursive) {
    std::error_code error;
    if (fs::exists(folder, error) && !fs::is_directory(folder, error)) {
        throw engine::unreadable(folder, "it is not a folder (vesk add takes files)", kCheckFolder);
    }
    return Search(folder, types, recursive).run();
}

} // namespace krl::audio
