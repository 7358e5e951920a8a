#pragma once

#include "engine/errors/Failure.h"
#include "engine/values/Digest.h"

#include <cstdint>
#include <filesystem>
#include <string>

namespace krl::engine {

/// A file or folder of this computer that cannot be used for a reason.
Failure unreadable(const std::filesystem::path& file, const std::string& why,
                   const std::string& advice);

/// A regular file of this computer, open for reading. Nothing that is found at a path is waited
/// for: a pipe or a device is refused.
class RegularFile {
public:
    /// @param advice what to do when it cannot be read
    /// @throw Failure when it is missing, something else, or must not be read
    RegularFile(const std::filesystem::path& path, std::string advice);

    ~RegularFile();

    RegularFile(const RegularFile&) = delete;
    RegularFile& operator=(const RegularFile&) = delete;

    const std::filesystem::path& path() const { return path_; }

    uint64_t size() const { return size_; }

    /// Lent.
    int descriptor() const { return descriptor_; }

    /// All that it holds, from where it has been read to.
    /// @throw Failure when it cannot be read or is larger than this
    std::string bytes(size_t most) const;

    /// The digest of all that it holds.
    /// @throw Failure when it cannot be read
    Digest digest() const;

private:
    Failure failure(const std::string& why) const { return unreadable(path_, why, advice_); }

    void requireRegular(unsigned mode) const;

    std::filesystem::path path_;
    std::string advice_;
    int descriptor_ = -1;
    uint64_t size_ = 0;
};

} // namespace krl::engine
