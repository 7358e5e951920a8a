#include "engine/safe/ContentStore.h"

#include "engine/files/RegularFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

namespace krl::engine {
namespace {

namespace fs = std::filesystem;

constexpr size_t kPiece = size_t{256} * 1024;

/// Of a content that is on its way.
constexpr size_t kMostInMemory = size_t{1024} * 1024;

/// No digest begins like this.
constexpr char kIncoming[] = "incoming-";

std::string incomingName() {
    static std::atomic<uint64_t> number{0};
    return fmt::format("{}{}-{}", kIncoming, ::getpid(), ++number);
}

/// Reads to the end of an open file.
/// @return 0, or why it broke off
int readPieces(const Descriptor& file, const std::function<void(std::string_view)>& take) {
    std::vector<char> piece(kPiece);
    for (;;) {
        const ssize_t count = ::read(file.get(), piece.data(), piece.size());
        if (count == 0) {
            return 0;
        }
        if (count > 0) {
            take({piece.data(), static_cast<size_t>(count)});
        } else if (errno != EINTR) {
            return errno;
        }
    }
}

Failure damaged(const fs::path& path, const std::string& why) {
    return {FailureKind::NothingKept,
            fmt::format("a copy in the safe is lost: \"{}\" {}", path.string(), why)};
}

} // namespace

ContentStore::ContentStore(fs::path folder, Disk& disk) : folder_(std::move(folder)), disk_(disk) {
    makePrivateFolder(disk_, folder_);
}

ContentStore::Incoming::~Incoming() {
    if (!path_.empty()) {
        store_.disk_.unlink(path_);
    }
}

void ContentStore::Incoming::add(std::string_view bytes) {
    if (!file_ && held_.size() + bytes.size() > kMostInMemory) {
        beginFile();
    }
    if (file_) {
        writeAll(store_.disk_, file_, path_, bytes);
    } else {
        held_ += bytes;
    }
    sha_.add(bytes);
    size_ += bytes.size();
}

void ContentStore::Incoming::beginFile() {
    const fs::path path = store_.folder_ / incomingName();
    file_ = createFile(store_.disk_, path);
    path_ = path;
    writeAll(store_.disk_, file_, path_, std::exchange(held_, {}));
}

Content ContentStore::Incoming::keep() {
    const Content content{sha_.digest(), size_};
    if (store_.has(content)) {
        return content;
    }
    if (!file_) {
        beginFile();
    }
    syncFile(store_.disk_, file_, path_);
    const fs::path kept = store_.pathOf(content.digest);
    if (store_.disk_.rename(path_, kept) != 0) {
        throw cannotKeep(kept, errno);
    }
    path_.clear();
    store_.isSettled_ = false;
    return content;
}

Content ContentStore::put(std::string_view bytes) {
    const Content content{digestOf(bytes), bytes.size()};
    if (has(content)) {
        return content;
    }
    Incoming incoming(*this);
    incoming.add(bytes);
    return incoming.keep();
}

Content ContentStore::putFile(const fs::path& file) {
    const RegularFile source(file, "Check the path and its permissions. Nothing was changed on "
                                   "the phone.");
    Incoming incoming(*this);
    const Descriptor copied(::fcntl(source.descriptor(), F_DUPFD_CLOEXEC, 0));
    if (source.size() > kMostInMemory) {
        copyInto(incoming, copied, source.size());
    } else if (const int error =
                   readPieces(copied, [&](std::string_view piece) { incoming.add(piece); })) {
        throw cannotKeep(file, error);
    }
    return incoming.keep();
}

/// The copy is what is digested, so that a source that changes meanwhile does no harm.
void ContentStore::copyInto(Incoming& incoming, const Descriptor& source, uint64_t size) {
    incoming.beginFile();
    if (disk_.clone(source.get(), incoming.file_.get()) != 0) {
        uint64_t copied = 0;
        ssize_t count = 1;
        while (copied < size && count > 0) {
            count = disk_.copyRange(source.get(), incoming.file_.get(), size - copied);
            copied += count > 0 ? static_cast<uint64_t>(count) : 0;
        }
        if (count < 0 && (errno == ENOSPC || errno == EDQUOT || errno == EFBIG)) {
            throw cannotKeep(incoming.path_, errno);
        }
        if (count < 0) {
            // Not between these file systems: through memory, from where it stands.
            if (const int error = readPieces(source, [&](std::string_view piece) {
                    writeAll(disk_, incoming.file_, incoming.path_, piece);
                })) {
                throw cannotKeep(incoming.path_, error);
            }
        }
    }
    const Descriptor copy(::open(incoming.path_.c_str(), O_RDONLY | O_CLOEXEC));
    const int error = !copy ? errno : readPieces(copy, [&](std::string_view piece) {
        incoming.sha_.add(piece);
        incoming.size_ += piece.size();
    });
    if (error != 0) {
        throw cannotKeep(incoming.path_, error);
    }
}

bool ContentStore::has(const Content& content) const {
    struct stat status = {};
    return ::lstat(pathOf(content.digest).c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           static_cast<uint64_t>(status.st_size) == content.size;
}

void ContentStore::requireRoom(uint64_t bytes) const {
    if (bytes > disk_.freeBytes(folder_)) {
        throw cannotKeep(folder_, ENOSPC);
    }
}

Descriptor ContentStore::open(const Digest& digest) const {
    const fs::path path = pathOf(digest);
    Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (!file) {
        throw damaged(path, std::strerror(errno));
    }
    return file;
}

void ContentStore::read(const Digest& digest, const std::function<void(std::string_view)>& take) {
    const fs::path path = pathOf(digest);
    const Descriptor file = open(digest);
    Sha256 sha;
    const int error = readPieces(file, [&](std::string_view piece) {
        sha.add(piece);
        take(piece);
    });
    if (error != 0) {
        throw damaged(path, std::strerror(error));
    }
    if (sha.digest() != digest) {
        disk_.unlink(path);
        throw damaged(path, "holds something else");
    }
}

std::string ContentStore::bytes(const Digest& digest) {
    std::string result;
    read(digest, [&](std::string_view piece) { result += piece; });
    return result;
}

void ContentStore::settle() {
    if (!isSettled_) {
        syncFolder(disk_, folder_);
        isSettled_ = true;
    }
}

void ContentStore::dropAllBut(const std::set<Digest>& kept) {
    std::error_code error;
    std::vector<fs::path> dropped;
    for (fs::directory_iterator entry(folder_, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        const auto digest = Digest::parse(name);
        if (digest ? !kept.contains(*digest) : name.starts_with(kIncoming)) {
            dropped.push_back(entry->path());
        }
    }
    for (const fs::path& path : dropped) {
        disk_.unlink(path);
    }
}

} // namespace krl::engine
