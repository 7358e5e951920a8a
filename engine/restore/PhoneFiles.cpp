#include "engine/restore/PhoneFiles.h"

#include "engine/errors/Status.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <utility>

namespace krl::engine {
namespace {

/// What a provider asks for at once is its own affair; this is what is held in memory.
constexpr uint64_t kPiece = uint64_t{1024} * 1024;

/// More than there should be is asked for, at once with the rest: that nothing comes is the end.
constexpr uint64_t kEnd = uint64_t{64} * 1024;

/// Key and value pairs of an answer.
class Pairs {
public:
    explicit Pairs(afc_dictionary* pairs) : pairs_(pairs) {}

    ~Pairs() { AFCKeyValueClose(pairs_); }

    Pairs(const Pairs&) = delete;
    Pairs& operator=(const Pairs&) = delete;

    /// @return the status; at the end there is no pair and hasPair() is false
    int32_t next() { return AFCKeyValueRead(pairs_, &key_, &value_); }

    bool hasPair() const { return key_ != nullptr && value_ != nullptr; }

    std::string_view key() const { return key_; }

    std::string_view value() const { return value_; }

    std::optional<uint64_t> number() const {
        uint64_t number = 0;
        const char* const end = value().data() + value().size();
        const auto result = std::from_chars(value().data(), end, number);
        return result.ec == std::errc() && result.ptr == end ? std::optional(number) : std::nullopt;
    }

private:
    afc_dictionary* pairs_;
    char* key_ = nullptr;
    char* value_ = nullptr;
};

/// A file on the phone, open for a scope.
class OpenFile {
public:
    OpenFile(afc_connection* files, const std::string& path, uint64_t mode)
        : files_(files), status_(AFCFileRefOpen(files, path.c_str(), mode, &file_)) {}

    ~OpenFile() {
        if (isOpen()) {
            AFCFileRefClose(files_, file_);
        }
    }

    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    bool isOpen() const { return status_ == 0 && !isClosed_; }

    int32_t status() const { return status_; }

    afc_file_ref get() const { return file_; }

    int32_t close() {
        isClosed_ = true;
        return AFCFileRefClose(files_, file_);
    }

private:
    afc_connection* files_;
    afc_file_ref file_ = 0;
    int32_t status_;
    bool isClosed_ = false;
};

/// A folder being listed.
class OpenFolder {
public:
    OpenFolder(afc_connection* files, const std::string& path)
        : files_(files), status_(AFCDirectoryOpen(files, path.c_str(), &folder_)) {}

    ~OpenFolder() {
        if (status_ == 0) {
            AFCDirectoryClose(files_, folder_);
        }
    }

    OpenFolder(const OpenFolder&) = delete;
    OpenFolder& operator=(const OpenFolder&) = delete;

    int32_t status() const { return status_; }

    int32_t read(char** name) const { return AFCDirectoryRead(files_, folder_, name); }

private:
    afc_connection* files_;
    afc_directory* folder_ = nullptr;
    int32_t status_;
};

} // namespace

PhoneFiles::PhoneFiles(am_device* device) : device_(device) {
    const std::string what = "the phone's file service cannot be reached";
    require(AMDeviceConnect(device), what);
    // Early firmware trusts the connection only afterwards.
    require(AMDeviceValidatePairing(device), what);
    require(AMDeviceStartSession(device), what);
    am_service* service = nullptr;
    const int32_t started = AMDeviceStartService(device, CFSTR("com.apple.afc"), &service, nullptr);
    AMDeviceStopSession(device);
    require(started, what);
    require(AFCConnectionOpen(service, 0, &files_), what);
}

PhoneFiles::~PhoneFiles() {
    AFCConnectionClose(files_);
}

void PhoneFiles::require(int32_t status, const std::string& what) const {
    if (status == 0) {
        return;
    }
    throw PhoneFileFailure(
        hasChanged_ ? FailureKind::SyncFailed : FailureKind::CannotOpen,
        fmt::format("{}: {}", what, statusText(status)),
        hasChanged_ ? "Plug the phone in again and repeat the command: the next one puts in order "
                      "what was broken off here."
                    : "Nothing was changed on the phone. Unlock it, plug it in again and try once "
                      "more.",
        status);
}

void PhoneFiles::requireChange(int32_t status, const std::string& what) {
    hasChanged_ = true;
    require(status, what);
}

std::optional<std::vector<std::string>> PhoneFiles::list(const std::string& folder) {
    const OpenFolder open(files_, folder);
    if (open.status() == kAFCObjectNotFound) {
        return std::nullopt;
    }
    const std::string what = fmt::format("\"{}\" cannot be listed", folder);
    require(open.status(), what);
    std::vector<std::string> names;
    for (;;) {
        char* name = nullptr;
        require(open.read(&name), what);
        if (name == nullptr) {
            return names;
        }
        if (std::string_view(name) != "." && std::string_view(name) != "..") {
            names.emplace_back(name);
        }
    }
}

std::optional<PhoneFiles::Information> PhoneFiles::information(const std::string& path) {
    afc_dictionary* information = nullptr;
    const int32_t status = AFCFileInfoOpen(files_, path.c_str(), &information);
    if (status == kAFCObjectNotFound) {
        return std::nullopt;
    }
    const std::string what = fmt::format("\"{}\" cannot be looked at", path);
    require(status, what);
    // A file of which half is said must not seem to be another one, or none.
    std::optional<uint64_t> size;
    std::optional<bool> isRegular;
    std::string modified;
    Pairs pairs(information);
    for (require(pairs.next(), what); pairs.hasPair(); require(pairs.next(), what)) {
        if (pairs.key() == "st_size") {
            size = pairs.number();
        } else if (pairs.key() == "st_ifmt") {
            isRegular = pairs.value() == "S_IFREG";
        } else if (pairs.key() == "st_mtime") {
            modified = pairs.value();
        }
    }
    require(size && isRegular ? 0 : kAFCBadReply, what);
    return Information{*size, *isRegular, modified};
}

bool PhoneFiles::read(const std::string& path, const Take& take, std::optional<uint64_t> size) {
    const OpenFile file(files_, path, kAFCOpenRead);
    if (file.status() == kAFCObjectNotFound) {
        return false;
    }
    const std::string what = fmt::format("\"{}\" cannot be read", path);
    require(file.status(), what);
    if (!piece_) {
        piece_ = std::make_unique_for_overwrite<char[]>(kPiece);
    }
    for (uint64_t done = 0;;) {
        const uint64_t rest = size && done <= *size ? *size - done : kPiece;
        const auto asked = static_cast<uint32_t>(std::min(rest, kPiece - kEnd) + kEnd);
        uint32_t length = asked;
        require(AFCFileRefRead(files_, file.get(), piece_.get(), &length), what);
        take({piece_.get(), length});
        if (length < asked) {
            return true;
        }
        done += length;
    }
}

void PhoneFiles::write(const std::string& path, const std::function<void(const Take& put)>& fill) {
    const std::string what = fmt::format("\"{}\" cannot be written", path);
    OpenFile file(files_, path, kAFCOpenWrite);
    requireChange(file.status(), what);
    fill([&](std::string_view bytes) {
        require(
            AFCFileRefWrite(files_, file.get(), bytes.data(), static_cast<uint32_t>(bytes.size())),
            what);
    });
    require(file.close(), what);
}

void PhoneFiles::rename(const std::string& from, const std::string& to) {
    requireChange(AFCRenamePath(files_, from.c_str(), to.c_str()),
                  fmt::format("\"{}\" cannot be renamed to \"{}\"", from, to));
}

void PhoneFiles::remove(const std::string& path) {
    requireChange(AFCRemovePath(files_, path.c_str()),
                  fmt::format("\"{}\" cannot be removed", path));
}

void PhoneFiles::makeFolder(const std::string& path) {
    requireChange(AFCDirectoryCreate(files_, path.c_str()),
                  fmt::format("the folder \"{}\" cannot be made", path));
}

std::optional<uint64_t> PhoneFiles::freeBytes() {
    return deviceNumber("FSFreeBytes");
}

std::optional<uint64_t> PhoneFiles::totalBytes() {
    return deviceNumber("FSTotalBytes");
}

std::optional<uint64_t> PhoneFiles::deviceNumber(const char* key) {
    afc_dictionary* information = nullptr;
    require(AFCDeviceInfoOpen(files_, &information), "the phone does not say how much is free");
    Pairs pairs(information);
    while (pairs.next() == 0 && pairs.hasPair()) {
        if (pairs.key() == key) {
            return pairs.number();
        }
    }
    return std::nullopt;
}

} // namespace krl::engine
