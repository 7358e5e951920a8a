#include "engine/files/WholeFile.h"

#include "engine/errors/Failure.h"
#include "engine/files/Writing.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace krl::engine {
namespace {

namespace fs = std::filesystem;

Failure notWritten(const fs::path& place, int error) {
    return {FailureKind::Unexpected,
            fmt::format("\"{}\" cannot be written: {}", place.string(), std::strerror(error)),
            "Choose another place with --output."};
}

Failure taken(const fs::path& place) {
    return {FailureKind::NameTaken, fmt::format("\"{}\" is there already", place.string()),
            "Choose another place with --output, or write over it with --force."};
}

/// A name of the folder that nothing has.
fs::path incomingName(const fs::path& place, int number) {
    return place.parent_path() / fmt::format(".vesk-{}-{}.part", getpid(), number);
}

/// @return 0, or the error
int giveName(const fs::path& from, const fs::path& to, WholeFile::Existing existing) {
    if (existing == WholeFile::Existing::IsKept) {
        const int result =
            renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
        // Not every file system can be asked for that.
        if (result == 0 || (errno != EINVAL && errno != ENOSYS)) {
            return result == 0 ? 0 : errno;
        }
        // A link that leads nowhere is there too.
        if (faccessat(AT_FDCWD, to.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0) {
            return EEXIST;
        }
    }
    return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

} // namespace

WholeFile::WholeFile(fs::path place) : place_(std::move(place)) {
    std::error_code error;
    if (place_.has_parent_path()) {
        fs::create_directories(place_.parent_path(), error);
    }
    if (error) {
        throw notWritten(place_, error.value());
    }
    for (int number = 1; descriptor_ < 0; ++number) {
        incoming_ = incomingName(place_, number);
        descriptor_ = open(incoming_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (descriptor_ < 0 && errno != EEXIST) {
            throw notWritten(place_, errno);
        }
    }
}

WholeFile::~WholeFile() {
    if (descriptor_ >= 0) {
        close(descriptor_);
        unlink(incoming_.c_str());
    }
}

void WholeFile::add(std::string_view bytes) {
    if (const int error = writeAll(descriptor_, bytes)) {
        throw notWritten(place_, error);
    }
}

void WholeFile::finish(Existing existing) {
    // Some file systems say only now that there was no room.
    int error = close(std::exchange(descriptor_, -1)) == 0 ? 0 : errno;
    if (error == 0) {
        error = giveName(incoming_, place_, existing);
    }
    if (error != 0) {
        unlink(incoming_.c_str());
        throw error == EEXIST ? taken(place_) : notWritten(place_, error);
    }
}

} // namespace krl::engine
