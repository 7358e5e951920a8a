#include "engine/sync/Guard.h"

#include "engine/errors/Status.h"
#include "engine/state/SyncLock.h"

#include <fmt/format.h>

namespace krl::engine {
namespace {

using Kind = Operation::Kind;

/// What a refused change is answered with.
constexpr int32_t kRefused = kAFCPermissionDenied;

/// In the deed nobody says which ringtone a file is for.
bool writesRingtone(Kind kind) {
    return kind == Kind::Upload || kind == Kind::Placeholder;
}

bool isSameChange(const Operation& one, const Operation& other) {
    return (one.kind == other.kind || (writesRingtone(one.kind) && writesRingtone(other.kind))) &&
           one.file == other.file && one.newFile == other.newFile;
}

std::string textOf(const Operation& operation) {
    return fmt::format("{} {}", operationName(operation.kind),
                       operation.file.empty() ? kCataloguePath : operation.file);
}

std::string textOf(const layer::FileAnswer& answer) {
    return answer.status == 0 ? fmt::format("{} bytes", answer.sizeBytes)
                              : statusText(answer.status);
}

} // namespace

std::string Guard::reason() const {
    const std::lock_guard lock(mutex_);
    return reason_;
}

int32_t Guard::stop(const std::string& reason) {
    const std::lock_guard lock(mutex_);
    if (!isStopped_) {
        reason_ = reason;
    }
    isStopped_ = true;
    return kRefused;
}

/// Whether what was noted last is the plan's next operation.
bool Guard::isPlanned(size_t note) const {
    return note < plan_.operations.size() && isSameChange(notes()[note], plan_.operations[note]);
}

/// Whether an operation that was gone through in memory with this status may be sent to the phone.
int32_t Guard::admit(int32_t status) {
    if (status != 0) {
        return status; // the phone would say the same: nothing is changed by it
    }
    const size_t note = notes().size() - 1;
    return isPlanned(note)
               ? 0
               : stop(fmt::format("\"{}\" is not what was planned", textOf(notes()[note])));
}

int32_t Guard::send(int32_t status, const std::function<int32_t()>& operation) {
    const int32_t admitted = admit(status);
    if (admitted != 0) {
        return admitted;
    }
    hasChanged_ = true;
    return operation();
}

int32_t Guard::createDirectory(afc_connection* files, const char* path) {
    if (!hasBegun_ || isStopped_) {
        return kRefused;
    }
    const size_t before = notes().size();
    const int32_t status = Rehearsal::createDirectory(files, path);
    return notes().size() == before
               ? status
               : send(status, [=, this] { return FileCalls::createDirectory(files, path); });
}

int32_t Guard::openDirectory(afc_connection* files, const char* path, afc_directory** directory) {
    return hasBegun_ ? Rehearsal::openDirectory(files, path, directory)
                     : FileCalls::openDirectory(files, path, directory);
}

int32_t Guard::removePath(afc_connection* files, const char* path) {
    if (!hasBegun_ || isStopped_) {
        return kRefused;
    }
    const int32_t status = send(Rehearsal::removePath(files, path),
                                [=, this] { return FileCalls::removePath(files, path); });
    const bool isLastPart = !notes().empty() && notes().back().kind == Kind::DeleteStray;
    leftBehind_ += status != 0 && status != kAFCObjectNotFound && isLastPart ? 1U : 0U;
    return status;
}

int32_t Guard::renamePath(afc_connection* files, const char* from, const char* to) {
    if (!hasBegun_ || isStopped_) {
        return kRefused;
    }
    const int32_t inMemory = Rehearsal::renamePath(files, from, to);
    const int32_t status =
        send(inMemory, [=, this] { return FileCalls::renamePath(files, from, to); });
    if (inMemory == 0 && status != 0) {
        // The catalogue to come would list the new name.
        stop(fmt::format("the phone does not move \"{}\": {}", from, statusText(status)));
    }
    return status;
}

int32_t Guard::openFile(afc_connection* files, const char* path, uint64_t mode,
                        afc_file_ref* file) {
    if (mode != kAFCOpenWrite) {
        const bool isPassed = mode == kAFCOpenRead || path == std::string(kSyncLock) ||
                              path == std::string(kCataloguePath);
        return isPassed ? FileCalls::openFile(files, path, mode, file) : kRefused;
    }
    if (!hasBegun_ || isStopped_) {
        return kRefused;
    }
    Written written;
    const int32_t inMemory = Rehearsal::openFile(files, path, mode, &written.inMemory);
    // Opening empties a file: for the catalogue that waits for bytes that are the planned ones.
    const bool waits = path == std::string(kCataloguePath);
    const int32_t status =
        waits ? admit(inMemory)
              : send(inMemory, [=, this] { return FileCalls::openFile(files, path, mode, file); });
    if (status == 0) {
        if (waits) {
            *file = written.inMemory;
        } else {
            written.onPhone = *file;
        }
        written_[*file] = written;
    }
    return status;
}

int32_t Guard::readFile(afc_connection* files, afc_file_ref file, void* buffer, uint32_t* length) {
    return FileCalls::readFile(files, file, buffer, length);
}

int32_t Guard::writeFile(afc_connection* files, afc_file_ref file, const void* bytes,
                         uint32_t count) {
    const auto found = written_.find(file);
    if (found == written_.end() || isStopped_) {
        return kRefused;
    }
    Written& written = found->second;
    Rehearsal::writeFile(files, written.inMemory, bytes, count);
    const Operation& note = notes().back();
    const Operation& planned = plan_.operations[notes().size() - 1];
    if (note.bytes > planned.bytes) {
        return stop(fmt::format("\"{}\" has more than the {} bytes that were planned",
                                textOf(planned), planned.bytes));
    }
    const bool isCatalogue = note.kind == Kind::WriteCatalogue;
    const std::string_view part(static_cast<const char*>(bytes), count);
    if (isCatalogue && plan_.catalogue.compare(note.bytes - count, count, part) != 0) {
        return stop("the library has made another catalogue than was planned");
    }
    if (!written.onPhone) {
        afc_file_ref onPhone = 0;
        hasChanged_ = true;
        const int32_t status = FileCalls::openFile(files, kCataloguePath, kAFCOpenWrite, &onPhone);
        if (status != 0) {
            return status;
        }
        written.onPhone = onPhone;
    }
    return FileCalls::writeFile(files, *written.onPhone, bytes, count);
}

int32_t Guard::closeFile(afc_connection* files, afc_file_ref file) {
    const auto found = written_.find(file);
    if (found == written_.end()) {
        return FileCalls::closeFile(files, file);
    }
    const Written written = found->second;
    written_.erase(found);
    Rehearsal::closeFile(files, written.inMemory);
    const Operation& planned = plan_.operations[notes().size() - 1];
    if (notes().back().bytes < planned.bytes) {
        stop(fmt::format("\"{}\" has less than the {} bytes that were planned", textOf(planned),
                         planned.bytes));
    }
    return written.onPhone ? FileCalls::closeFile(files, *written.onPhone) : 0;
}

int32_t Guard::lockFile(afc_connection* files, afc_file_ref file) {
    const int32_t status = FileCalls::lockFile(files, file);
    hasLock_ = hasLock_ || status == 0;
    return status;
}

int32_t Guard::fileInfo(afc_connection* files, const char* path, afc_dictionary** info) {
    const auto planned = known(path);
    if (!planned) {
        return FileCalls::fileInfo(files, path, info);
    }
    const layer::FileAnswer answer = layer::askForFile(files, path);
    const bool isOver = notes().size() == plan_.operations.size();
    if (hasBegun_ && !isOver &&
        (answer.status != planned->status || answer.sizeBytes != planned->sizeBytes)) {
        stop(fmt::format("the phone says \"{}\" of {}, where it was \"{}\"", textOf(answer), path,
                         textOf(*planned)));
    }
    if (answer.status == 0) {
        *info = layer::makeFileInfo(answer.sizeBytes);
    }
    return answer.status;
}

} // namespace krl::engine
