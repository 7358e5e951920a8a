#include "engine/safe/ContentStore.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

namespace krl::engine {
namespace {

namespace fs = std::filesystem;

constexpr size_t kPiece = size_t{256} * 1024;

constexpr size_t kComparedAtOnce = size_t{32} * 1024;

/// Of a content that is on its way.
constexpr size_t kMostInMemory = size_t{1024} * 1024;

constexpr char kAdvice[] = "Check the path and its permissions. Nothing was changed on the phone.";

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

Descriptor openCopy(const fs::path& path) {
    return Descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
}

/// Whether a file has these bytes at a place.
bool holdsAt(const Descriptor& file, uint64_t place, std::string_view bytes) {
    std::array<char, kComparedAtOnce> piece;
    while (!bytes.empty()) {
        const ssize_t count =
            ::pread(file.get(), piece.data(), std::min(piece.size(), bytes.size()),
                    static_cast<off_t>(place));
        if (count <= 0 || !bytes.starts_with({piece.data(), static_cast<size_t>(count)})) {
            return false;
        }
        place += static_cast<uint64_t>(count);
        bytes.remove_prefix(static_cast<size_t>(count));
    }
    return true;
}

Failure damaged(const fs::path& path, const std::string& why) {
    return {FailureKind::NothingKept,
            fmt::format("a copy in the safe is lost: \"{}\" {}", path.string(), why)};
}

} // namespace

ContentStore::ContentStore(fs::path folder, Disk& disk) : folder_(std::move(folder)), disk_(disk) {
    makePrivateFolder(disk_, folder_);
}

ContentStore::Incoming::Incoming(ContentStore& store, const std::optional<Content>& awaited)
    : store_(store), awaited_(awaited) {
    if (awaited && store.has(*awaited)) {
        copy_ = openCopy(store.pathOf(awaited->digest));
    }
}

ContentStore::Incoming::~Incoming() {
    if (!path_.empty()) {
        store_.disk_.unlink(path_);
    }
}

void ContentStore::Incoming::add(std::string_view bytes) {
    if (copy_ && holdsAt(copy_, compared_, bytes)) {
        compared_ += bytes.size();
    } else {
        takeCompared();
        take(bytes);
    }
}

/// It is something else: what has been the same so far is taken from the copy.
void ContentStore::Incoming::takeCompared() {
    const Descriptor copy = std::exchange(copy_, Descriptor());
    std::array<char, kComparedAtOnce> piece;
    for (uint64_t place = 0; place < compared_;) {
        const ssize_t count =
            ::pread(copy.get(), piece.data(), std::min<uint64_t>(compared_ - place, piece.size()),
                    static_cast<off_t>(place));
        if (count <= 0) {
            throw damaged(store_.pathOf(awaited_->digest), "cannot be read any more");
        }
        take({piece.data(), static_cast<size_t>(count)});
        place += static_cast<uint64_t>(count);
    }
    compared_ = 0;
}

void ContentStore::Incoming::take(std::string_view bytes) {
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
    if (copy_ && compared_ == awaited_->size) {
        return *awaited_;
    }
    takeCompared();
    const Content content{sha_.digest(), size_};
    // A copy that was compared with it and is another one has been damaged.
    if (content != awaited_ && store_.has(content)) {
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
    return putFile(RegularFile(file, kAdvice));
}

Content ContentStore::putFile(const fs::path& file, ContentDigests& digests) {
    const RegularFile source(file, kAdvice);
    const Content content{digests.of(source), source.size()};
    return has(content) ? content : putFile(source);
}

Content ContentStore::putFile(const RegularFile& source) {
    Incoming incoming(*this);
    const Descriptor copied(::fcntl(source.descriptor(), F_DUPFD_CLOEXEC, 0));
    if (source.size() > kMostInMemory) {
        copyInto(incoming, copied, source.size());
    } else if (const int error =
                   readPieces(copied, [&](std::string_view piece) { incoming.add(piece); })) {
        throw cannotKeep(source.path(), error);
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
    Descriptor file = openCopy(path);
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
