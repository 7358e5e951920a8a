#include "virtualphone/services/AfcServer.h"

#include "virtualphone/phone/Firmware.h"
#include "virtualphone/phone/PhoneState.h"
#include "virtualphone/services/ReplyFaults.h"
#include "virtualphone/wire/Bytes.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>
#include <vector>

namespace virtualphone {

namespace {

// Room for two paths that are longer than any the kernel takes.
constexpr uint64_t kLongestArguments = uint64_t{64} * 1024;
constexpr uint64_t kLongestReadAnswer = uint64_t{16} * 1024 * 1024;
constexpr size_t kMostOpenFiles = 256;
constexpr uint64_t kBlockSize = 4096;

uint64_t statusOf(int error) {
    switch (error) {
    case 0:
        return afc::kSuccess;
    case EMFILE:
    case ENFILE:
        return afc::kNoResources;
    case ENOTDIR:
        return afc::kReadError;
    case EINVAL:
    case EBADF:
    case ENAMETOOLONG:
        return afc::kInvalidArgument;
    case ENOENT:
        return afc::kObjectNotFound;
    case EISDIR:
        return afc::kObjectIsDirectory;
    case EPERM:
    case EACCES:
    case EROFS:
    case EXDEV: // the path leads out of the media partition
        return afc::kPermissionDenied;
    case EFBIG:
        return afc::kTooMuchData;
    case ENOSYS:
    case EOPNOTSUPP:
        return afc::kNotSupported;
    case EEXIST:
        return afc::kObjectExists;
    case EBUSY:
    case ETXTBSY:
        return afc::kObjectBusy;
    case ENOSPC:
    case EDQUOT:
        return afc::kNoSpaceLeft;
    case EWOULDBLOCK:
        return afc::kWouldBlock;
    case EIO:
        return afc::kIoError;
    case EINTR:
        return afc::kInterrupted;
    case EINPROGRESS:
        return afc::kInProgress;
    default:
        return afc::kUnknownError; // a directory that is not empty among them
    }
}

std::optional<int> openFlags(uint64_t mode) {
    switch (mode) {
    case afc::kModeRead:
        return O_RDONLY;
    case afc::kModeReadWrite:
        return O_RDWR | O_CREAT;
    case afc::kModeWrite:
        return O_WRONLY | O_CREAT | O_TRUNC;
    case afc::kModeReadWriteTruncate:
        return O_RDWR | O_CREAT | O_TRUNC;
    case afc::kModeAppend:
        return O_WRONLY | O_CREAT | O_APPEND;
    case afc::kModeReadAppend:
        return O_RDWR | O_CREAT | O_APPEND;
    default:
        return std::nullopt;
    }
}

std::optional<int> lockOperation(uint64_t kind) {
    switch (kind) {
    case afc::kLockShared:
        return LOCK_SH | LOCK_NB;
    case afc::kLockExclusive:
        return LOCK_EX | LOCK_NB;
    case afc::kUnlock:
        return LOCK_UN | LOCK_NB;
    default:
        return std::nullopt;
    }
}

std::string_view kindOf(mode_t mode) {
    switch (mode & S_IFMT) {
    case S_IFREG:
        return "S_IFREG";
    case S_IFDIR:
        return "S_IFDIR";
    case S_IFLNK:
        return "S_IFLNK";
    case S_IFIFO:
        return "S_IFIFO";
    case S_IFSOCK:
        return "S_IFSOCK";
    case S_IFCHR:
        return "S_IFCHR";
    default:
        return "S_IFBLK";
    }
}

std::string nanosecondsOf(const timespec& time) {
    constexpr int64_t kNanosecondsPerSecond = 1'000'000'000;
    return std::to_string(time.tv_sec * kNanosecondsPerSecond + time.tv_nsec);
}

bool isSound(const afc::Header& header) {
    return std::string_view(header.magic.data(), header.magic.size()) == afc::kMagic &&
           header.thisLength >= afc::kHeaderSize && header.entireLength >= header.thisLength &&
           header.thisLength - afc::kHeaderSize <= kLongestArguments;
}

} // namespace

// What a request's arguments are, in their order, and who carries it out.
struct AfcServer::Operation {
    std::vector<Field> fields;
    Handler handler;
};

const AfcServer::Operation* AfcServer::operationOf(uint64_t number) {
    using enum Field;
    using Server = AfcServer;
    static const std::map<uint64_t, Operation> operations = {
        {afc::kReadDirectory, {{Path}, &Server::readDirectory}},
        {afc::kTruncatePath, {{Size, Path}, &Server::truncatePath}},
        {afc::kRemovePath, {{Path}, &Server::removePath}},
        {afc::kMakeDirectory, {{Path}, &Server::makeDirectory}},
        {afc::kFileInfo, {{Path}, &Server::fileInfo}},
        {afc::kDeviceInfo, {{}, &Server::deviceInfo}},
        {afc::kOpen, {{Mode, Path}, &Server::open}},
        {afc::kRead, {{Handle, Size}, &Server::read}},
        {afc::kWrite, {{Handle}, &Server::write}},
        {afc::kSeek, {{Handle, Mode, Offset}, &Server::seek}},
        {afc::kTell, {{Handle}, &Server::tell}},
        {afc::kClose, {{Handle}, &Server::close}},
        {afc::kSetSize, {{Handle, Size}, &Server::setSize}},
        {afc::kRename, {{Path, NewPath}, &Server::rename}},
        {afc::kLock, {{Handle, Mode}, &Server::lock}},
        {afc::kMakeLink, {{Mode, Path, NewPath}, &Server::makeLink}},
        {afc::kSetModificationTime, {{Nanoseconds, Path}, &Server::setModificationTime}},
        {afc::kRemovePathAndContents, {{Path}, &Server::removePathAndContents}},
    };
    const auto found = operations.find(number);
    return found == operations.end() ? nullptr : &found->second;
}

AfcServer::AfcServer(const Client& client)
    : channel_(client.channel), phone_(client.phone), responder_(client, Service::Afc, spoilAfc),
      hasTimes_(isAtLeast(phone_.options.firmware, 3, 1)),
      hasRemovalOfContents_(isAtLeast(phone_.options.firmware, 6, 0)) {}

void AfcServer::run() {
    char bytes[afc::kHeaderSize];
    bool goesOn = true;
    while (goesOn && channel_.read(bytes)) {
        const auto header = loadLittle<afc::Header>(bytes);
        goesOn = isSound(header) ? serve(header) : refuseHeader(header);
    }
    channel_.flush();
}

// Where the next packet begins cannot be known, so this is the connection's last answer.
bool AfcServer::refuseHeader(const afc::Header& header) {
    Request request{header, 0, responder_.newEntry("BadHeader")};
    replyOperation_ = afc::kStatus;
    if (responder_.begin(request.entry)) {
        answer(request, afc::kBadHeader);
    }
    return false;
}

bool AfcServer::serve(const afc::Header& header) {
    arguments_.resize(static_cast<size_t>(header.thisLength - afc::kHeaderSize));
    if (!channel_.read(arguments_)) {
        return false;
    }
    Request request{header, header.entireLength - header.thisLength,
                    responder_.newEntry(afc::operationName(header.operation))};
    const Operation* const operation = operationOf(header.operation);
    const bool isComplete = operation != nullptr && decode(*operation, request);
    if (!responder_.begin(request.entry)) {
        return false;
    }
    replyOperation_ = afc::kStatus;
    uint64_t status = afc::kUnknownPacketType;
    if (const std::optional<uint64_t> wanted = responder_.wantedStatus()) {
        status = *wanted;
    } else if (operation != nullptr) {
        status =
            isComplete ? (this->*operation->handler)(request) : uint64_t{afc::kInvalidArgument};
    }
    // What was not wanted of the payload goes before the answer: a client sends all of it first.
    if (!channel_.skip(request.payload)) {
        responder_.abandon(std::move(request.entry));
        return false;
    }
    return answer(request, status);
}

bool AfcServer::decode(const Operation& operation, Request& request) const {
    std::span<const char> left(arguments_);
    LogEntry& entry = request.entry;
    bool isComplete = true;
    const auto takeInteger = [&]() -> std::optional<uint64_t> {
        if (left.size() < sizeof(uint64_t)) {
            isComplete = false;
            return std::nullopt;
        }
        const auto value = loadLittle<uint64_t>(left.data());
        left = left.subspan(sizeof value);
        return value;
    };
    const auto takePath = [&]() -> std::string {
        const auto end = std::find(left.begin(), left.end(), '\0');
        std::string path(left.begin(), end);
        isComplete = isComplete && end != left.end();
        left = left.subspan(std::min(left.size(), path.size() + 1));
        return path;
    };
    for (const Field field : operation.fields) {
        switch (field) {
        case Field::Path:
            entry.path = takePath();
            break;
        case Field::NewPath:
            entry.newPath = takePath();
            break;
        case Field::Mode:
            entry.mode = takeInteger();
            break;
        case Field::Handle:
            entry.handle = takeInteger();
            break;
        case Field::Size:
            entry.size = takeInteger();
            break;
        case Field::Offset:
            if (const std::optional<uint64_t> offset = takeInteger()) {
                entry.offset = static_cast<int64_t>(*offset);
            }
            break;
        case Field::Nanoseconds:
            entry.nanoseconds = takeInteger();
            break;
        }
    }
    if (request.header.operation == afc::kWrite) {
        entry.size = request.payload;
    }
    return isComplete;
}

bool AfcServer::answer(Request& request, uint64_t status) {
    if (status != afc::kSuccess || replyOperation_ == afc::kStatus) {
        replyNumber(afc::kStatus, status);
    }
    request.entry.status = status;
    const size_t payload = replyOperation_ == afc::kData ? reply_.size() - afc::kHeaderSize : 0;
    afc::Header header{};
    std::copy(afc::kMagic.begin(), afc::kMagic.end(), header.magic.begin());
    header.entireLength = reply_.size();
    header.thisLength = reply_.size() - payload;
    header.number = request.header.number;
    header.operation = replyOperation_;
    storeLittle(reply_.data(), header);
    return responder_.answer(std::move(request.entry), reply_);
}

void AfcServer::startData() {
    replyOperation_ = afc::kData;
    reply_.resize(afc::kHeaderSize);
}

void AfcServer::addPair(std::string_view key, std::string_view value) {
    for (const std::string_view text : {key, value}) {
        reply_.insert(reply_.end(), text.begin(), text.end());
        reply_.push_back('\0');
    }
}

void AfcServer::replyNumber(afc::Operation operation, uint64_t number) {
    replyOperation_ = operation;
    reply_.resize(afc::kHeaderSize + sizeof number);
    storeLittle(reply_.data() + afc::kHeaderSize, number);
}

int AfcServer::fileOf(const Request& request) const {
    const auto file = files_.find(*request.entry.handle);
    return file == files_.end() ? -1 : file->second.file.get();
}

uint64_t AfcServer::newHandle() {
    if (!phone_.options.reuseFileHandles) {
        return ++lastHandle_;
    }
    uint64_t handle = 1;
    while (files_.contains(handle)) {
        ++handle;
    }
    return handle;
}

uint64_t AfcServer::readDirectory(Request& request) {
    std::string names;
    const int error = phone_.media.list(request.entry.path, names);
    startData();
    reply_.insert(reply_.end(), names.begin(), names.end());
    return statusOf(error);
}

uint64_t AfcServer::truncatePath(Request& request) {
    return statusOf(phone_.media.truncate(request.entry.path, *request.entry.size));
}

uint64_t AfcServer::removePath(Request& request) {
    return statusOf(phone_.media.remove(request.entry.path));
}

uint64_t AfcServer::removePathAndContents(Request& request) {
    if (!hasRemovalOfContents_) {
        return afc::kUnknownPacketType;
    }
    return statusOf(phone_.media.removeWithContents(request.entry.path));
}

uint64_t AfcServer::makeDirectory(Request& request) {
    return statusOf(phone_.media.makeDirectory(request.entry.path,
                                               phone_.options.makeDirectoryMakesParents,
                                               phone_.options.makeDirectoryAcceptsExisting));
}

uint64_t AfcServer::fileInfo(Request& request) {
    struct stat status {};

    std::string target;
    if (const int error = phone_.media.info(request.entry.path, status, target); error != 0) {
        return statusOf(error);
    }
    startData();
    addPair("st_size", std::to_string(status.st_size));
    addPair("st_blocks", std::to_string(status.st_blocks));
    addPair("st_nlink", std::to_string(status.st_nlink));
    addPair("st_ifmt", kindOf(status.st_mode));
    if (S_ISLNK(status.st_mode)) {
        addPair("LinkTarget", target);
    }
    if (hasTimes_) {
        addPair("st_mtime", nanosecondsOf(status.st_mtim));
        addPair("st_birthtime", nanosecondsOf(status.st_ctim));
    }
    return afc::kSuccess;
}

uint64_t AfcServer::deviceInfo(Request&) {
    startData();
    addPair("Model", phone_.options.deviceClass == "iPod" ? "iPod1,1" : "iPhone1,1");
    addPair("FSTotalBytes", std::to_string(phone_.media.totalBytes()));
    addPair("FSFreeBytes", std::to_string(phone_.media.freeBytes()));
    addPair("FSBlockSize", std::to_string(kBlockSize));
    return afc::kSuccess;
}

uint64_t AfcServer::open(Request& request) {
    const std::optional<int> flags = openFlags(*request.entry.mode);
    if (!flags) {
        return afc::kInvalidArgument;
    }
    if (files_.size() >= kMostOpenFiles) {
        return afc::kNoResources;
    }
    UniqueFd file;
    if (const int error = phone_.media.open(request.entry.path, *flags, file); error != 0) {
        return statusOf(error);
    }
    const uint64_t handle = newHandle();
    files_[handle] = {std::move(file), *flags == O_RDONLY ? "" : request.entry.path};
    request.entry.handle = handle;
    replyNumber(afc::kOpened, handle);
    return afc::kSuccess;
}

uint64_t AfcServer::read(Request& request) {
    const int file = fileOf(request);
    if (file < 0) {
        return afc::kInvalidArgument;
    }
    const uint64_t size = *request.entry.size;
    startData();
    reply_.resize(afc::kHeaderSize + static_cast<size_t>(std::min(size, kLongestReadAnswer)));
    const ssize_t got =
        ::read(file, reply_.data() + afc::kHeaderSize, reply_.size() - afc::kHeaderSize);
    if (got < 0) {
        return statusOf(errno);
    }
    reply_.resize(afc::kHeaderSize + static_cast<size_t>(got));
    const uint64_t sound = phone_.options.soundReadBytes;
    if (sound != 0 && size > sound) {
        std::for_each(reply_.begin() + afc::kHeaderSize, reply_.end(),
                      [](char& byte) { byte = static_cast<char>(~byte); });
    }
    // Should the connection end meanwhile, the answer will find out.
    phone_.link.carry(channel_, static_cast<size_t>(got));
    return afc::kSuccess;
}

uint64_t AfcServer::write(Request& request) {
    const int file = fileOf(request);
    if (file < 0) {
        return afc::kInvalidArgument;
    }
    while (request.payload > 0) {
        const std::span<const char> piece =
            channel_.take(phone_.link.pieceSize(static_cast<size_t>(request.payload)));
        if (piece.empty() || !phone_.link.carry(channel_, piece.size())) {
            break; // nobody is left to be answered
        }
        request.payload -= piece.size();
        if (const int error = phone_.media.write(file, piece); error != 0) {
            return statusOf(error);
        }
    }
    return afc::kSuccess;
}

uint64_t AfcServer::seek(Request& request) {
    static constexpr int kWhence[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    const int file = fileOf(request);
    const uint64_t whence = *request.entry.mode;
    if (file < 0 || whence >= std::size(kWhence)) {
        return afc::kInvalidArgument;
    }
    const off_t position = lseek(file, *request.entry.offset, kWhence[whence]);
    return position < 0 ? statusOf(errno) : uint64_t{afc::kSuccess};
}

uint64_t AfcServer::tell(Request& request) {
    const int file = fileOf(request);
    if (file < 0) {
        return afc::kInvalidArgument;
    }
    const off_t position = lseek(file, 0, SEEK_CUR);
    request.entry.offset = position;
    replyNumber(afc::kPosition, static_cast<uint64_t>(position));
    return afc::kSuccess;
}

uint64_t AfcServer::close(Request& request) {
    const auto closed = files_.extract(*request.entry.handle);
    if (closed.empty()) {
        return afc::kInvalidArgument;
    }
    if (const std::string& path = closed.mapped().writtenPath; !path.empty()) {
        phone_.fileStored(path);
    }
    return afc::kSuccess;
}

uint64_t AfcServer::setSize(Request& request) {
    const int file = fileOf(request);
    return file < 0 ? uint64_t{afc::kInvalidArgument}
                    : statusOf(phone_.media.setSize(file, *request.entry.size));
}

uint64_t AfcServer::rename(Request& request) {
    const int error = phone_.media.rename(request.entry.path, request.entry.newPath);
    if (error == 0) {
        phone_.fileStored(request.entry.newPath);
    }
    return statusOf(error);
}

uint64_t AfcServer::lock(Request& request) {
    const int file = fileOf(request);
    const std::optional<int> operation = lockOperation(*request.entry.mode);
    if (file < 0 || !operation) {
        return afc::kInvalidArgument;
    }
    return flock(file, *operation) != 0 ? statusOf(errno) : uint64_t{afc::kSuccess};
}

uint64_t AfcServer::makeLink(Request& request) {
    const std::string& target = request.entry.path;
    const std::string& link = request.entry.newPath;
    switch (*request.entry.mode) {
    case afc::kHardLink:
        return statusOf(phone_.media.makeHardLink(target, link));
    case afc::kSymbolicLink:
        return statusOf(phone_.media.makeSymbolicLink(target, link));
    default:
        return afc::kInvalidArgument;
    }
}

uint64_t AfcServer::setModificationTime(Request& request) {
    if (!hasTimes_) {
        return afc::kUnknownPacketType;
    }
    return statusOf(
        phone_.media.setModificationTime(request.entry.path, *request.entry.nanoseconds));
}

} // namespace virtualphone
