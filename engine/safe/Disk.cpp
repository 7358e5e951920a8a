#include "engine/safe/Disk.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace krl::engine {
namespace {

namespace fs = std::filesystem;

/// What replaceFile writes first; one that a broken run left there is written over.
fs::path unfinished(const fs::path& path) {
    return path.string() + ".new";
}

} // namespace

int Disk::open(const fs::path& path, int flags) {
    return ::open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
}

ssize_t Disk::write(int descriptor, const void* bytes, size_t count) {
    return ::write(descriptor, bytes, count);
}

int Disk::clone(int from, int to) {
    return ::ioctl(to, FICLONE, from);
}

ssize_t Disk::copyRange(int from, int to, size_t count) {
    return ::copy_file_range(from, nullptr, to, nullptr, count, 0);
}

int Disk::sync(int descriptor) {
    return ::fsync(descriptor);
}

int Disk::rename(const fs::path& from, const fs::path& to) {
    return std::rename(from.c_str(), to.c_str());
}

int Disk::unlink(const fs::path& path) {
    return ::unlink(path.c_str());
}

int Disk::makeFolder(const fs::path& path) {
    return ::mkdir(path.c_str(), S_IRWXU);
}

uint64_t Disk::freeBytes(const fs::path& folder) {
    std::error_code failure;
    return fs::space(folder, failure).available;
}

Disk& realDisk() {
    static Disk disk;
    return disk;
}

Descriptor::~Descriptor() {
    if (number_ >= 0) {
        ::close(number_);
    }
}

Failure cannotKeep(const fs::path& path, int error) {
    const bool isFull = error == ENOSPC || error == EDQUOT || error == EFBIG;
    return {FailureKind::CannotKeep,
            fmt::format("what the phone holds cannot be kept on this computer: \"{}\": {}",
                        path.string(), std::strerror(error)),
            fmt::format("{}, and repeat the command; or go on without a way back (--no-backup).",
                        isFull ? "Make room there, or set XDG_STATE_HOME to a folder that has some"
                               : "Look at the folder, or set XDG_STATE_HOME to one that can be "
                                 "written to")};
}

void makePrivateFolder(Disk& disk, const fs::path& path) {
    std::error_code ignored;
    if (fs::is_directory(path, ignored)) {
        return;
    }
    if (path.has_parent_path() && path.parent_path() != path) {
        makePrivateFolder(disk, path.parent_path());
    }
    if (disk.makeFolder(path) != 0 && errno != EEXIST) {
        throw cannotKeep(path, errno);
    }
    syncFolder(disk, path.parent_path());
}

Descriptor createFile(Disk& disk, const fs::path& path) {
    Descriptor file(disk.open(path, O_WRONLY | O_CREAT | O_EXCL));
    if (!file) {
        throw cannotKeep(path, errno);
    }
    return file;
}

void writeAll(Disk& disk, const Descriptor& file, const fs::path& path, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = disk.write(file.get(), bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR) {
            throw cannotKeep(path, errno);
        }
        bytes.remove_prefix(count < 0 ? 0 : static_cast<size_t>(count));
    }
}

void syncFile(Disk& disk, const Descriptor& file, const fs::path& path) {
    if (disk.sync(file.get()) != 0) {
        throw cannotKeep(path, errno);
    }
}

void syncFolder(Disk& disk, const fs::path& folder) {
    const Descriptor descriptor(disk.open(folder, O_RDONLY | O_DIRECTORY));
    if (!descriptor) {
        throw cannotKeep(folder, errno);
    }
    syncFile(disk, descriptor, folder);
}

void replaceFile(Disk& disk, const fs::path& path, std::string_view bytes) {
    const fs::path first = unfinished(path);
    const Descriptor file(disk.open(first, O_WRONLY | O_CREAT | O_TRUNC));
    if (!file) {
        throw cannotKeep(first, errno);
    }
    writeAll(disk, file, first, bytes);
    syncFile(disk, file, first);
    if (disk.rename(first, path) != 0) {
        throw cannotKeep(path, errno);
    }
}

void removeFile(Disk& disk, const fs::path& path) {
    if (disk.unlink(path) != 0 && errno != ENOENT) {
        throw cannotKeep(path, errno);
    }
}

} // namespace krl::engine
