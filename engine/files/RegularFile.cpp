#include "engine/files/RegularFile.h"

#include "engine/values/Text.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace krl::engine {

Failure unreadable(const std::filesystem::path& file, const std::string& why,
                   const std::string& advice) {
    return {FailureKind::UnreadableFile,
            fmt::format("\"{}\" cannot be read: {}", file.string(), why), advice};
}

RegularFile::RegularFile(const std::filesystem::path& path, std::string advice)
    : path_(path), advice_(std::move(advice)) {
    struct stat status = {};
    // Opening a device can set it going, so its kind is looked at first.
    if (::stat(path.c_str(), &status) != 0) {
        throw failure(std::strerror(errno));
    }
    requireRegular(status.st_mode);
    descriptor_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor_ < 0) {
        throw failure(std::strerror(errno));
    }
    size_ = static_cast<uint64_t>(status.st_size);
}

RegularFile::~RegularFile() {
    ::close(descriptor_);
}

std::string RegularFile::bytes(size_t most) const {
    std::string bytes;
    std::array<char, 65536> buffer{};
    for (;;) {
        const ssize_t count = ::read(descriptor_, buffer.data(), buffer.size());
        if (count < 0) {
            throw failure(std::strerror(errno));
        }
        if (count == 0) {
            return bytes;
        }
        if (bytes.size() + static_cast<size_t>(count) > most) {
            throw failure(fmt::format("it is larger than {}", formatBytes(most)));
        }
        bytes.append(buffer.data(), static_cast<size_t>(count));
    }
}

Digest RegularFile::digest() const {
    Sha256 sha;
    std::array<char, 65536> piece{};
    for (off_t position = 0;;) {
        const ssize_t count = pread(descriptor_, piece.data(), piece.size(), position);
        if (count < 0) {
            throw failure(std::strerror(errno));
        }
        if (count == 0) {
            return sha.digest();
        }
        sha.add({piece.data(), static_cast<size_t>(count)});
        position += count;
    }
}

void RegularFile::requireRegular(unsigned mode) const {
    if (S_ISDIR(mode)) {
        throw failure("it is a folder");
    }
    if (!S_ISREG(mode)) {
        throw failure("it is a pipe, a device or a socket, not a regular file");
    }
}

} // namespace krl::engine
