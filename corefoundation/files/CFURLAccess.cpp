#include <CoreFoundation/CFURLAccess.h>

#include "corefoundation/values/CFRuntime.h"

#include <CoreFoundation/CFRef.h>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace krl::cf {
namespace {

/// An open file that closes itself.
class File {
public:
    // Without O_NONBLOCK opening a pipe would wait for its writer.
    explicit File(const char* path) : descriptor_(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}

    File(const File&) = delete;
    File& operator=(const File&) = delete;

    ~File() {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
    }

    bool isOpen() const { return descriptor_ >= 0; }

    bool getStatus(struct stat& status) const { return fstat(descriptor_, &status) == 0; }

    /// @return the bytes read, 0 at the end, -1 with errno set on failure.
    ssize_t readSome(UInt8* buffer, CFIndex size) const {
        ssize_t count = 0;
        do {
            count = read(descriptor_, buffer, static_cast<size_t>(size));
        } while (count < 0 && errno == EINTR);
        return count;
    }

private:
    int descriptor_;
};

/// Reads a file from where it stands to its end. @return 0, or the error number.
int readToEnd(const File& file, CFIndex expectedSize, CFMutableDataRef contents) {
    constexpr CFIndex kStep = 65536;
    CFIndex length = 0;
    // With room for one byte more than expected the read that finds the end needs no growing.
    for (CFIndex room = expectedSize + 1;;) {
        if (length == room) {
            room += kStep;
        }
        CFDataSetLength(contents, room);
        const ssize_t count =
            file.readSome(CFDataGetMutableBytePtr(contents) + length, room - length);
        if (count <= 0) {
            const int error = count < 0 ? errno : 0;
            CFDataSetLength(contents, length);
            return error;
        }
        length += count;
    }
}

/// Reads a whole file. @return 0, or the error number.
int readFile(CFURLRef url, CFRef<CFDataRef>& result) {
    UInt8 path[PATH_MAX];
    if (!CFURLGetFileSystemRepresentation(url, true, path, sizeof path)) {
        return ENAMETOOLONG;
    }
    const File file(reinterpret_cast<const char*>(path));

    struct stat status {};

    if (!file.isOpen() || !file.getStatus(status)) {
        return errno;
    }
    if (!S_ISREG(status.st_mode)) {
        return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    }
    auto contents = adopt(CFDataCreateMutable(nullptr, 0));
    const int error = readToEnd(file, status.st_size, contents.get());
    if (error == 0) {
        result = adopt(freeze(contents.leak()));
    }
    return error;
}

} // namespace
} // namespace krl::cf

using namespace krl::cf;

Boolean CFURLCreateDataAndPropertiesFromResource(CFAllocatorRef, CFURLRef url,
                                                 CFDataRef* resourceData,
                                                 CFDictionaryRef* properties, CFArrayRef,
                                                 SInt32* errorCode) {
    CFRef<CFDataRef> contents;
    const int error = readFile(url, contents);
    if (errorCode != nullptr) {
        *errorCode = error;
    }
    if (properties != nullptr) {
        *properties = nullptr;
    }
    if (resourceData != nullptr) {
        *resourceData = contents.leak();
    }
    return error == 0;
}
