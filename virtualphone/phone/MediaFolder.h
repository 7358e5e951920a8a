/// The media partition: a folder that no path leads out of.
///
/// Paths are the phone's. They are resolved by the kernel below the folder, so that neither "..",
/// nor a link, nor a link to a link can leave it; what tries is refused with EXDEV. Functions
/// return 0 or an errno value.
#pragma once

#include "virtualphone/wire/UniqueFd.h"

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <span>
#include <string>

namespace virtualphone {

class MediaFolder {
public:
    /// The folder must exist.
    MediaFolder(const std::filesystem::path& root, std::optional<uint64_t> freeBytes,
                std::optional<uint64_t> totalBytes);

    /// Appends the names, each ended by a NUL, "." and ".." among them.
    int list(const std::string& path, std::string& names) const;

    /// About a link itself, with its target.
    int info(const std::string& path, struct stat& status, std::string& linkTarget) const;

    int makeDirectory(const std::string& path, bool makesParents, bool acceptsExisting) const;

    /// A file, a link or an empty directory.
    int remove(const std::string& path);
    int removeWithContents(const std::string& path);

    /// A file at the new path is replaced.
    int rename(const std::string& from, const std::string& to);

    int makeHardLink(const std::string& target, const std::string& path) const;
    int makeSymbolicLink(const std::string& target, const std::string& path) const;
    int setModificationTime(const std::string& path, uint64_t nanoseconds) const;

    /// Opens a regular file; flags as for open(2), O_TRUNC among them.
    int open(const std::string& path, int flags, UniqueFd& file);
    int truncate(const std::string& path, uint64_t size);
    int setSize(int file, uint64_t size);

    /// Writes at the file's position. Where space runs out, what fits is written: ENOSPC.
    int write(int file, std::span<const char> bytes);

    void setFreeBytes(uint64_t bytes);
    uint64_t freeBytes() const;
    uint64_t totalBytes() const;

private:
    struct Place {
        UniqueFd folder;
        std::string name;
    };

    int openBelow(const std::string& path, int flags, UniqueFd& file) const;
    int locate(const std::string& path, Place& place) const;
    int removeAt(int folder, const char* name);
    int removeWithContentsAt(int folder, const char* name);
    int setSizeWithin(int file, uint64_t size);
    int writeWithin(int file, std::span<const char> bytes);
    void giveBackSizeOf(int folder, const char* name);

    UniqueFd root_;
    std::optional<uint64_t> total_;

    // Held over each change of a file's size while the space is limited, so that sizes and the
    // count of free bytes move together.
    mutable std::mutex spaceMutex_;
    std::optional<uint64_t> free_;
};

} // namespace virtualphone
