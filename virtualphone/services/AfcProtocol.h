/// The file service on the wire: numbers and the packet header. All integers are little-endian.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace virtualphone::afc {

inline constexpr std::string_view kMagic = "CFA6LPAA";
inline constexpr size_t kHeaderSize = 40;

/// A packet: this header, then arguments, then payload.
struct Header {
    std::array<char, 8> magic;
    uint64_t entireLength; ///< header, arguments and payload
    uint64_t thisLength;   ///< header and arguments
    uint64_t number; ///< of the request, counts up from 1 on a connection; repeated in answers
    uint64_t operation;
};

static_assert(sizeof(Header) == kHeaderSize);

enum Operation : uint64_t {
    // Answers.
    kStatus = 0x01,   ///< argument: the status
    kData = 0x02,     ///< payload: the bytes
    kOpened = 0x0E,   ///< argument: the handle
    kPosition = 0x13, ///< argument: the offset
    // Requests.
    kReadDirectory = 0x03,
    kTruncatePath = 0x07,
    kRemovePath = 0x08,
    kMakeDirectory = 0x09,
    kFileInfo = 0x0A,
    kDeviceInfo = 0x0B,
    kOpen = 0x0D,
    kRead = 0x0F,
    kWrite = 0x10,
    kSeek = 0x11,
    kTell = 0x12,
    kClose = 0x14,
    kSetSize = 0x15,
    kRename = 0x18,
    kLock = 0x1B,
    kMakeLink = 0x1C,
    kSetModificationTime = 0x1E,
    kRemovePathAndContents = 0x22,
};

enum Status : uint64_t {
    kSuccess = 0,
    kUnknownError = 1,
    kBadHeader = 2,
    kNoResources = 3,
    kReadError = 4,
    kWriteError = 5,
    kUnknownPacketType = 6,
    kInvalidArgument = 7,
    kObjectNotFound = 8,
    kObjectIsDirectory = 9,
    kPermissionDenied = 10,
    kNotConnected = 11,
    kTimedOut = 12,
    kTooMuchData = 13,
    kEndOfData = 14,
    kNotSupported = 15,
    kObjectExists = 16,
    kObjectBusy = 17,
    kNoSpaceLeft = 18,
    kWouldBlock = 19,
    kIoError = 20,
    kInterrupted = 21,
    kInProgress = 22,
    kInternalError = 23,
};

enum OpenMode : uint64_t {
    kModeRead = 1,      ///< must exist
    kModeReadWrite = 2, ///< created when missing
    kModeWrite = 3,     ///< created, emptied
    kModeReadWriteTruncate = 4,
    kModeAppend = 5,
    kModeReadAppend = 6,
};

/// What the lock request takes: flock's bits, "do not wait" in all of them.
enum LockKind : uint64_t { kLockShared = 5, kLockExclusive = 6, kUnlock = 12 };

enum LinkKind : uint64_t { kHardLink = 1, kSymbolicLink = 2 };

/// Seek's whence.
enum Whence : uint64_t { kFromStart = 0, kFromHere = 1, kFromEnd = 2 };

/// Name of a request as it stands in the log: "ReadDirectory", "TruncatePath", "RemovePath",
/// "MakeDirectory", "FileInfo", "DeviceInfo", "Open", "Read", "Write", "Seek", "Tell", "Close",
/// "SetSize", "Rename", "Lock", "MakeLink", "SetModificationTime", "RemovePathAndContents";
/// "Unknown" for every other number.
std::string_view operationName(uint64_t operation);

} // namespace virtualphone::afc
