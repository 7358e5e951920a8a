#include "virtualphone/phone/MediaFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/file.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <system_error>

namespace virtualphone {

namespace {

constexpr mode_t kFileMode = 0644;
constexpr mode_t kFolderMode = 0755;

// A path of the phone below the root's descriptor: the root itself is ".".
const char* belowRoot(const std::string& path) {
    const size_t start = path.find_first_not_of('/');
    return start == std::string::npos ? "." : path.c_str() + start;
}

int resultOf(int returned) {
    return returned < 0 ? errno : 0;
}

uint64_t sizeOf(int file) {
    struct stat status {};

    return fstat(file, &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

int writeAll(int file, std::span<const char> bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) {
            return errno;
        }
        bytes = bytes.subspan(static_cast<size_t>(std::max<ssize_t>(written, 0)));
    }
    return 0;
}

// Where the next write starts.
uint64_t writePosition(int file) {
    if ((fcntl(file, F_GETFL) & O_APPEND) != 0) {
        return sizeOf(file);
    }
    return static_cast<uint64_t>(lseek(file, 0, SEEK_CUR));
}

using Directory = std::unique_ptr<DIR, decltype([](DIR* directory) { closedir(directory); })>;

Directory openDirectory(UniqueFd folder) {
    Directory directory(fdopendir(folder.get()));
    if (directory) {
        folder.release();
    }
    return directory;
}

} // namespace

MediaFolder::MediaFolder(const std::filesystem::path& root, std::optional<uint64_t> freeBytes,
                         std::optional<uint64_t> totalBytes)
    : root_(::open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)), total_(totalBytes),
      free_(freeBytes) {
    if (!root_) {
        throw std::system_error(errno, std::generic_category(),
                                "cannot open the phone's folder " + root.string());
    }
    UniqueFd probe;
    if (const int error = openBelow("/", O_PATH, probe); error != 0) {
        throw std::system_error(error, std::generic_category(),
                                "this system cannot confine paths to a folder (openat2)");
    }
}

int MediaFolder::openBelow(const std::string& path, int flags, UniqueFd& file) const {
    if (path.empty()) {
        return ENOENT;
    }
    open_how how{};
    how.flags = static_cast<uint64_t>(static_cast<unsigned>(flags | O_CLOEXEC));
    how.mode = (flags & O_CREAT) != 0 ? kFileMode : 0;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    // EAGAIN: something was renamed while ".." was resolved; the kernel asks to try again.
    constexpr int kAttempts = 100;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        file.reset(
            static_cast<int>(syscall(SYS_openat2, root_.get(), belowRoot(path), &how, sizeof how)));
        if (file || (errno != EAGAIN && errno != EINTR)) {
            break;
        }
    }
    return file ? 0 : errno;
}

// The folder in which a path's last name stands. The name is empty for the root itself.
int MediaFolder::locate(const std::string& path, Place& place) const {
    const size_t end = path.find_last_not_of('/');
    if (path.empty()) {
        return ENOENT;
    }
    const std::string trimmed = path.substr(0, end == std::string::npos ? 0 : end + 1);
    const size_t slash = trimmed.rfind('/');
    place.name = slash == std::string::npos ? trimmed : trimmed.substr(slash + 1);
    if (place.name == "." || place.name == "..") {
        return EINVAL;
    }
    const std::string parent = slash == std::string::npos ? "/" : trimmed.substr(0, slash + 1);
    return openBelow(parent, O_PATH | O_DIRECTORY, place.folder);
}

int MediaFolder::list(const std::string& path, std::string& names) const {
    UniqueFd folder;
    if (const int error = openBelow(path, O_RDONLY | O_DIRECTORY, folder); error != 0) {
        return error;
    }
    const Directory directory = openDirectory(std::move(folder));
    if (!directory) {
        return errno;
    }
    errno = 0;
    while (const dirent* entry = readdir(directory.get())) {
        names.append(entry->d_name);
        names.push_back('\0');
    }
    return errno;
}

int MediaFolder::info(const std::string& path, struct stat& status, std::string& linkTarget) const {
    UniqueFd object;
    if (const int error = openBelow(path, O_PATH | O_NOFOLLOW, object); error != 0) {
        return error;
    }
    if (fstat(object.get(), &status) != 0) {
        return errno;
    }
    if (S_ISLNK(status.st_mode)) {
        char target[PATH_MAX];
        const ssize_t length = readlinkat(object.get(), "", target, sizeof target);
        if (length < 0) {
            return errno;
        }
        linkTarget.assign(target, static_cast<size_t>(length));
    }
    return 0;
}

int MediaFolder::makeDirectory(const std::string& path, bool makesParents,
                               bool acceptsExisting) const {
    if (makesParents) {
        for (size_t slash = path.find('/', path.find_first_not_of('/')); slash != std::string::npos;
             slash = path.find('/', slash + 1)) {
            const int error = makeDirectory(path.substr(0, slash), false, true);
            if (error != 0) {
                return error;
            }
        }
    }
    Place place;
    if (const int error = locate(path, place); error != 0) {
        return error;
    }
    const int error = place.name.empty()
                          ? EEXIST
                          : resultOf(mkdirat(place.folder.get(), place.name.c_str(), kFolderMode));
    if (error == EEXIST && acceptsExisting) {
        UniqueFd existing;
        const int lookup = openBelow(path, O_PATH | O_DIRECTORY, existing);
        return lookup == ENOTDIR ? EEXIST : lookup;
    }
    return error;
}

void MediaFolder::giveBackSizeOf(int folder, const char* name) {
    struct stat status {};

    if (free_ && fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISREG(status.st_mode) && status.st_nlink == 1) {
        *free_ += static_cast<uint64_t>(status.st_size);
    }
}

int MediaFolder::removeAt(int folder, const char* name) {
    const std::lock_guard lock(spaceMutex_);
    const std::optional<uint64_t> freeBefore = free_;
    giveBackSizeOf(folder, name);
    int error = resultOf(unlinkat(folder, name, 0));
    if (error == EISDIR) {
        error = resultOf(unlinkat(folder, name, AT_REMOVEDIR));
    }
    if (error != 0) {
        free_ = freeBefore;
    }
    return error;
}

int MediaFolder::remove(const std::string& path) {
    Place place;
    if (const int error = locate(path, place); error != 0) {
        return error;
    }
    return place.name.empty() ? EPERM : removeAt(place.folder.get(), place.name.c_str());
}

int MediaFolder::removeWithContentsAt(int folder, const char* name) {
    UniqueFd inner(openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!inner) {
        return errno == ENOTDIR || errno == ELOOP ? removeAt(folder, name) : errno;
    }
    const Directory directory = openDirectory(std::move(inner));
    if (!directory) {
        return errno;
    }
    while (const dirent* entry = readdir(directory.get())) {
        const std::string child = entry->d_name;
        if (child == "." || child == "..") {
            continue;
        }
        const int error = removeWithContentsAt(dirfd(directory.get()), child.c_str());
        if (error != 0) {
            return error;
        }
    }
    return removeAt(folder, name);
}

int MediaFolder::removeWithContents(const std::string& path) {
    Place place;
    if (const int error = locate(path, place); error != 0) {
        return error;
    }
    return place.name.empty() ? EPERM
                              : removeWithContentsAt(place.folder.get(), place.name.c_str());
}

int MediaFolder::rename(const std::string& from, const std::string& to) {
    Place source;
    Place destination;
    if (const int error = locate(from, source); error != 0) {
        return error;
    }
    if (const int error = locate(to, destination); error != 0) {
        return error;
    }
    if (source.name.empty() || destination.name.empty()) {
        return EPERM;
    }
    const std::lock_guard lock(spaceMutex_);
    const std::optional<uint64_t> freeBefore = free_;

    struct stat old {};

    struct stat replaced {};

    const auto statusOf = [](const Place& place, struct stat& status) {
        return fstatat(place.folder.get(), place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    };
    const bool isItself = statusOf(source, old) && statusOf(destination, replaced) &&
                          old.st_ino == replaced.st_ino && old.st_dev == replaced.st_dev;
    if (!isItself) {
        giveBackSizeOf(destination.folder.get(), destination.name.c_str());
    }
    const int error = resultOf(renameat(source.folder.get(), source.name.c_str(),
                                        destination.folder.get(), destination.name.c_str()));
    if (error != 0) {
        free_ = freeBefore;
    }
    return error;
}

int MediaFolder::makeHardLink(const std::string& target, const std::string& path) const {
    Place source;
    Place link;
    if (const int error = locate(target, source); error != 0) {
        return error;
    }
    if (const int error = locate(path, link); error != 0) {
        return error;
    }
    if (source.name.empty() || link.name.empty()) {
        return EPERM;
    }
    return resultOf(
        linkat(source.folder.get(), source.name.c_str(), link.folder.get(), link.name.c_str(), 0));
}

int MediaFolder::makeSymbolicLink(const std::string& target, const std::string& path) const {
    Place link;
    if (const int error = locate(path, link); error != 0) {
        return error;
    }
    if (link.name.empty()) {
        return EEXIST;
    }
    return resultOf(symlinkat(target.c_str(), link.folder.get(), link.name.c_str()));
}

int MediaFolder::setModificationTime(const std::string& path, uint64_t nanoseconds) const {
    constexpr uint64_t kNanosecondsPerSecond = 1'000'000'000;
    Place place;
    if (const int error = locate(path, place); error != 0) {
        return error;
    }
    timespec times[2]{};
    times[0].tv_nsec = UTIME_OMIT;
    times[1].tv_sec = static_cast<time_t>(nanoseconds / kNanosecondsPerSecond);
    times[1].tv_nsec = static_cast<long>(nanoseconds % kNanosecondsPerSecond);
    const char* const name = place.name.empty() ? "." : place.name.c_str();
    return resultOf(utimensat(place.folder.get(), name, times, AT_SYMLINK_NOFOLLOW));
}

int MediaFolder::open(const std::string& path, int flags, UniqueFd& file) {
    // O_NONBLOCK: a pipe in the folder must not hold the phone up.
    const int error = openBelow(path, (flags & ~O_TRUNC) | O_NONBLOCK | O_NOCTTY, file);
    if (error != 0) {
        return error;
    }

    struct stat status {};

    fstat(file.get(), &status);
    if (S_ISDIR(status.st_mode)) {
        return EISDIR;
    }
    if (!S_ISREG(status.st_mode)) {
        return EOPNOTSUPP;
    }
    return (flags & O_TRUNC) != 0 && status.st_size > 0 ? setSize(file.get(), 0) : 0;
}

int MediaFolder::truncate(const std::string& path, uint64_t size) {
    UniqueFd file;
    const int error = open(path, O_WRONLY, file);
    return error != 0 ? error : setSize(file.get(), size);
}

int MediaFolder::setSize(int file, uint64_t size) {
    if (size > INT64_MAX) {
        return EFBIG;
    }
    std::unique_lock lock(spaceMutex_);
    if (free_) {
        return setSizeWithin(file, size);
    }
    lock.unlock();
    return resultOf(ftruncate(file, static_cast<off_t>(size)));
}

int MediaFolder::setSizeWithin(int file, uint64_t size) {
    const uint64_t before = sizeOf(file);
    if (size > before && size - before > *free_) {
        return ENOSPC;
    }
    const int error = resultOf(ftruncate(file, static_cast<off_t>(size)));
    if (error == 0) {
        *free_ = *free_ + before - size;
    }
    return error;
}

int MediaFolder::write(int file, std::span<const char> bytes) {
    std::unique_lock lock(spaceMutex_);
    if (free_) {
        return writeWithin(file, bytes);
    }
    lock.unlock();
    return writeAll(file, bytes);
}

int MediaFolder::writeWithin(int file, std::span<const char> bytes) {
    const uint64_t before = sizeOf(file);
    const uint64_t end = writePosition(file) + bytes.size();
    const uint64_t growth = end > before ? end - before : 0;
    const uint64_t missing = growth > *free_ ? growth - *free_ : 0;
    if (missing > bytes.size()) {
        return ENOSPC;
    }
    const int error = writeAll(file, bytes.first(bytes.size() - static_cast<size_t>(missing)));
    *free_ -= std::min(*free_, sizeOf(file) - before);
    return error == 0 && missing > 0 ? ENOSPC : error;
}

void MediaFolder::setFreeBytes(uint64_t bytes) {
    const std::lock_guard lock(spaceMutex_);
    free_ = bytes;
}

uint64_t MediaFolder::freeBytes() const {
    {
        const std::lock_guard lock(spaceMutex_);
        if (free_) {
            return *free_;
        }
    }

    struct statvfs space {};

    return fstatvfs(root_.get(), &space) == 0 ? space.f_bavail * space.f_frsize : 0;
}

uint64_t MediaFolder::totalBytes() const {
    struct statvfs space {};

    const uint64_t ofFileSystem =
        fstatvfs(root_.get(), &space) == 0 ? space.f_blocks * space.f_frsize : 0;
    return std::max(total_.value_or(ofFileSystem), freeBytes());
}

} // namespace virtualphone
