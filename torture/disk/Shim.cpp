/// A library that is loaded before the C library (LD_PRELOAD) and stands between a program and the
/// disk: it counts the calls that change one folder, and lets one of them be where the disk is full,
/// the process killed or the power cut.
#include "torture/disk/Shim.h"

#include "torture/disk/Unsynced.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace torture {
namespace {

std::string variable(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

/// The function that ours stands before.
template <typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool isThere(const std::string& path) {
    struct stat status {};

    return lstat(path.c_str(), &status) == 0;
}

off_t sizeOf(int descriptor) {
    struct stat status {};

    return fstat(descriptor, &status) == 0 ? status.st_size : 0;
}

class Shim {
public:
    /// Whether a call takes room on the disk.
    enum class Room { Needed, NotNeeded };

    Shim()
        : folder_(variable(kDiskFolder)), report_(variable(kDiskReport)),
          action_(variable(kDiskAction)),
          call_(std::strtoul(variable(kDiskCall).c_str(), nullptr, 10)),
          unsynced_(folder_ + ".kept") {}

    bool watches(const std::string& path) const {
        return !isLosing_ && !folder_.empty() && path.starts_with(folder_) &&
               (path.size() == folder_.size() || path[folder_.size()] == '/');
    }

    /// The path of a descriptor that is watched; null for others.
    const std::string* pathOf(int descriptor) const {
        const auto found = open_.find(descriptor);
        return isLosing_ || found == open_.end() ? nullptr : &found->second;
    }

    void opened(int descriptor, const std::string& path) { open_[descriptor] = path; }

    void closed(int descriptor) { open_.erase(descriptor); }

    Unsynced& unsynced() { return unsynced_; }

    /// Counts a call that is about to be made.
    /// @return 0, or the error that it fails with
    int meet(Room room) {
        ++count_;
        if (call_ == 0 || count_ < call_) {
            return 0;
        }
        if (action_ == kFull) {
            return room == Room::Needed ? ENOSPC : 0;
        }
        if (action_ == kFailing) {
            return EIO;
        }
        if (count_ != call_) {
            return 0;
        }
        if (action_ == kFullOnce) {
            return ENOSPC;
        }
        end();
    }

    void report() const {
        if (report_.empty()) {
            return;
        }
        const std::vector<std::string> open = openDescriptors();
        std::ofstream file(report_);
        file << count_ << '\n';
        for (const std::string& target : open) {
            file << target << '\n';
        }
    }

    std::recursive_mutex& mutex() { return mutex_; }

private:
    [[noreturn]] void end() {
        isLosing_ = true;
        if (action_ == kPowerCut || action_ == kPowerCutBytes) {
            unsynced_.loseBytes();
        }
        if (action_ == kPowerCut) {
            unsynced_.loseNames();
        }
        kill(getpid(), SIGKILL);
        for (;;) {
            pause();
        }
    }

    /// What the descriptors beyond the standard ones are of.
    static std::vector<std::string> openDescriptors() {
        const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir("/proc/self/fd"), closedir);
        std::vector<std::string> all;
        while (const dirent* const entry = folder ? readdir(folder.get()) : nullptr) {
            const int number = std::atoi(entry->d_name);
            if (number > STDERR_FILENO && number != dirfd(folder.get())) {
                std::error_code gone;
                all.push_back(std::filesystem::read_symlink(
                                  std::filesystem::path("/proc/self/fd") / entry->d_name, gone)
                                  .string());
            }
        }
        return all;
    }

    const std::string folder_;
    const std::string report_;
    const std::string action_;
    const unsigned long call_;
    unsigned long count_ = 0;
    bool isLosing_ = false;
    std::map<int, std::string> open_;
    Unsynced unsynced_;
    std::recursive_mutex mutex_; ///< held over a call, so that the count is the order of the calls
};

/// Never destroyed: the program's last calls come after its objects have gone.
Shim& shim() {
    static Shim* const instance = new Shim();
    return *instance;
}

__attribute__((destructor)) void reportAtTheEnd() {
    shim().report();
}

/// Holds the shim for a call.
class Call {
public:
    Call() : held_(shim().mutex()) {}

    Shim* operator->() const { return &shim(); }

    /// Counts it; when it is to fail, errno says with what.
    bool fails(Shim::Room room) {
        const int error = shim().meet(room);
        errno = error == 0 ? errno : error;
        return error != 0;
    }

private:
    const std::lock_guard<std::recursive_mutex> held_;
};

/// Opens what is watched. Only files that are made, or emptied, change the disk.
int openWatched(Call& call, const std::string& path, int flags, mode_t mode) {
    static auto* const real = next<int(const char*, int, mode_t)>("open");
    const bool isNew = (flags & O_CREAT) != 0 && !isThere(path);
    const bool isEmptied = (flags & O_TRUNC) != 0 && !isNew;
    if ((isNew || isEmptied) && call.fails(isNew ? Shim::Room::Needed : Shim::Room::NotNeeded)) {
        return -1;
    }
    const int descriptor = real(path.c_str(), flags, mode);
    if (descriptor >= 0) {
        call->opened(descriptor, path);
        if (isNew) {
            call->unsynced().created(path);
        } else if (isEmptied) {
            call->unsynced().emptied(path);
        }
    }
    return descriptor;
}

int openAny(const char* path, int flags, mode_t mode) {
    static auto* const real = next<int(const char*, int, mode_t)>("open");
    {
        Call call;
        if (call->watches(path)) {
            return openWatched(call, path, flags, mode);
        }
    }
    return real(path, flags, mode); // one that may wait, as for a pipe, holds nobody up
}

mode_t modeOf(int flags, va_list arguments) {
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

/// A call that adds bytes to a descriptor.
template <typename Result, typename Real>
Result addBytes(int descriptor, const Real& real) {
    {
        Call call;
        if (const std::string* const path = call->pathOf(descriptor)) {
            if (call.fails(Shim::Room::Needed)) {
                return -1;
            }
            const off_t before = sizeOf(descriptor);
            const Result result = real();
            if (result >= 0) {
                call->unsynced().written(*path, before);
            }
            return result;
        }
    }
    return real();
}

} // namespace
} // namespace torture

using torture::Call;
using torture::next;
using torture::Shim;

// The C library's own names, and those that it has for files of any size.
#pragma GCC visibility push(default)
extern "C" {

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = torture::modeOf(flags, arguments);
    va_end(arguments);
    return torture::openAny(path, flags, mode);
}

int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = torture::modeOf(flags, arguments);
    va_end(arguments);
    return torture::openAny(path, flags, mode);
}

int close(int descriptor) {
    static auto* const real = next<int(int)>("close");
    {
        const Call call;
        call->closed(descriptor);
    }
    return real(descriptor);
}

ssize_t write(int descriptor, const void* bytes, size_t count) {
    static auto* const real = next<ssize_t(int, const void*, size_t)>("write");
    return torture::addBytes<ssize_t>(descriptor, [&] { return real(descriptor, bytes, count); });
}

ssize_t copy_file_range(int from, off64_t* fromOffset, int to, off64_t* toOffset, size_t count,
                        unsigned flags) {
    static auto* const real =
        next<ssize_t(int, off64_t*, int, off64_t*, size_t, unsigned)>("copy_file_range");
    return torture::addBytes<ssize_t>(
        to, [&] { return real(from, fromOffset, to, toOffset, count, flags); });
}

int ioctl(int descriptor, unsigned long request, ...) noexcept {
    static auto* const real = next<int(int, unsigned long, void*)>("ioctl");
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    const auto call = [&] { return real(descriptor, request, argument); };
    return request == FICLONE ? torture::addBytes<int>(descriptor, call) : call();
}

int fsync(int descriptor) {
    static auto* const real = next<int(int)>("fsync");
    {
        Call call;
        if (const std::string* const path = call->pathOf(descriptor)) {
            if (call.fails(Shim::Room::NotNeeded)) {
                return -1;
            }
            call->unsynced().synced(*path);
            return 0; // the disk is told of nothing: what it may lose is known here
        }
    }
    return real(descriptor);
}

int rename(const char* from, const char* to) noexcept {
    static auto* const real = next<int(const char*, const char*)>("rename");
    Call call;
    if (!call->watches(to)) {
        return real(from, to);
    }
    if (call.fails(Shim::Room::NotNeeded)) {
        return -1;
    }
    const auto kept = call->unsynced().keep(to);
    const int result = real(from, to);
    if (result == 0) {
        call->unsynced().renamed(from, to, kept);
    }
    return result;
}

int unlink(const char* path) noexcept {
    static auto* const real = next<int(const char*)>("unlink");
    Call call;
    if (!call->watches(path)) {
        return real(path);
    }
    if (call.fails(Shim::Room::NotNeeded)) {
        return -1;
    }
    const auto kept = call->unsynced().keep(path);
    const int result = real(path);
    if (result == 0) {
        call->unsynced().removed(path, kept);
    }
    return result;
}

int mkdir(const char* path, mode_t mode) noexcept {
    static auto* const real = next<int(const char*, mode_t)>("mkdir");
    Call call;
    if (!call->watches(path)) {
        return real(path, mode);
    }
    if (call.fails(Shim::Room::Needed)) {
        return -1;
    }
    const int result = real(path, mode);
    if (result == 0) {
        call->unsynced().folderMade(path);
    }
    return result;
}

} // extern "C"
#pragma GCC visibility pop
