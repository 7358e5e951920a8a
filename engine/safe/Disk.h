#pragma once

#include "engine/errors/Failure.h"

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string_view>
#include <utility>

namespace krl::engine {

/// The system calls by which the safe changes this computer's disk; each is what its namesake is.
/// A test puts others in their place: a disk that is full, or a process that ends in between.
class Disk {
public:
    virtual ~Disk() = default;

    virtual int open(const std::filesystem::path& path, int flags);
    virtual ssize_t write(int descriptor, const void* bytes, size_t count);
    virtual int clone(int from, int to); ///< shares the blocks of a whole file
    virtual ssize_t copyRange(int from, int to, size_t count);
    virtual int sync(int descriptor);
    virtual int rename(const std::filesystem::path& from, const std::filesystem::path& to);
    virtual int unlink(const std::filesystem::path& path);
    virtual int makeFolder(const std::filesystem::path& path);

    /// How much can be written to a folder; all there can be when the system does not say.
    virtual uint64_t freeBytes(const std::filesystem::path& folder);
};

/// This computer's disk.
Disk& realDisk();

/// An open file or folder.
class Descriptor {
public:
    explicit Descriptor(int number = -1) : number_(number) {}

    ~Descriptor();

    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}

    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }

    int get() const { return number_; }

    explicit operator bool() const { return number_ >= 0; }

private:
    int number_;
};

/// The safe cannot keep something here, for the reason in errno.
Failure cannotKeep(const std::filesystem::path& path, int error);

/// A folder that only its owner may look into, with its parents.
/// @throw Failure when it cannot be made
void makePrivateFolder(Disk& disk, const std::filesystem::path& path);

/// Opens a new file for writing; the folder must not have the name yet.
Descriptor createFile(Disk& disk, const std::filesystem::path& path);

void writeAll(Disk& disk, const Descriptor& file, const std::filesystem::path& path,
              std::string_view bytes);

void syncFile(Disk& disk, const Descriptor& file, const std::filesystem::path& path);

/// Makes sure that names which were given or taken in a folder are on the disk.
void syncFolder(Disk& disk, const std::filesystem::path& folder);

/// Puts a document in the place of an older one, so that whatever happens one of the two is there,
/// whole, and the new one for good once its folder is synced.
void replaceFile(Disk& disk, const std::filesystem::path& path, std::string_view bytes);

/// Takes a file away, for good once its folder is synced. One that is not there is no failure.
void removeFile(Disk& disk, const std::filesystem::path& path);

} // namespace krl::engine
