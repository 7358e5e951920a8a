#include "audio/songs/OutgoingFolder.h"

#include "engine/errors/Failure.h"
#include "engine/files/PlaceOfState.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <system_error>
#include <vector>

namespace krl::audio {
namespace {

namespace fs = std::filesystem;
using engine::Failure;
using engine::FailureKind;

constexpr char kBeginning[] = "outgoing-";
constexpr char kLock[] = "lock";

Failure noPlace(const fs::path& path, int error) {
    return {
        FailureKind::CannotKeep,
        fmt::format("ringtones cannot be put into \"{}\": {}", path.string(), std::strerror(error)),
        "Make room there, or name another folder in XDG_CACHE_HOME. Nothing was changed on the "
        "phone."};
}

/// Its lock, when nobody holds it; below zero otherwise.
/// @param flags  whether it is made
int lockOf(const fs::path& folder, int flags) {
    const int lock =
        ::open((folder / kLock).c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | flags, 0600);
    if (lock >= 0 && ::flock(lock, LOCK_EX | LOCK_NB) != 0) {
        ::close(lock);
        return -1;
    }
    return lock;
}

void removeLeftOnes(const fs::path& parent) {
    std::error_code error;
    std::vector<fs::path> left;
    for (fs::directory_iterator entry(parent, error), end; !error && entry != end;
         entry.increment(error)) {
        if (entry->path().filename().string().starts_with(kBeginning)) {
            left.push_back(entry->path());
        }
    }
    for (const fs::path& folder : left) {
        const int lock = lockOf(folder, 0); // without one it is none of ours
        if (lock >= 0) {
            fs::remove_all(folder, error);
            ::close(lock);
        }
    }
}

} // namespace

OutgoingFolder::OutgoingFolder() {
    std::error_code error;
    const auto cache = engine::placeOfCache();
    const fs::path parent = cache ? *cache : fs::temp_directory_path(error);
    fs::create_directories(parent, error);
    if (cache) {
        removeLeftOnes(parent); // what lies elsewhere is not ours to judge
    }
    std::string path = (parent / (cache ? "" : "krlvesk-")).string() + kBeginning + "XXXXXX";
    if (::mkdtemp(path.data()) == nullptr) {
        throw noPlace(parent, errno);
    }
    path_ = path;
    lock_ = lockOf(path_, O_CREAT | O_EXCL);
    if (lock_ < 0) {
        const int reason = errno;
        fs::remove_all(path_, error);
        throw noPlace(parent, reason);
    }
}

OutgoingFolder::~OutgoingFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
    ::close(lock_);
}

std::string OutgoingFolder::put(const std::string& name, const std::string& bytes) {
    const fs::path place = path_ / name;
    errno = 0;
    std::ofstream file(place, std::ios::binary);
    file << bytes;
    file.close();
    if (!file) {
        throw noPlace(path_, errno);
    }
    return place.string();
}

} // namespace krl::audio
