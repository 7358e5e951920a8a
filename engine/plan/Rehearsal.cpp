#include "engine/plan/Rehearsal.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace krl::engine {
namespace {

using Kind = Operation::Kind;

/// No provider hands out such a handle: they count from small numbers.
constexpr afc_file_ref kFirstHandle = afc_file_ref{1} << 62U;

/// The name of a file in the ringtone folder; none for any other path.
std::optional<std::string> ringtoneFile(const std::string& path) {
    const std::string folder = std::string(kRingtonesFolder) + "/";
    if (!path.starts_with(folder)) {
        return std::nullopt;
    }
    const std::string name = path.substr(folder.size());
    return name.empty() || name.find('/') != std::string::npos ? std::nullopt : std::optional(name);
}

} // namespace

Rehearsal::Open* Rehearsal::opened(afc_file_ref file) {
    const auto found = open_.find(file);
    return found == open_.end() ? nullptr : &found->second;
}

std::optional<layer::FileAnswer> Rehearsal::known(const std::string& path) const {
    if (path == kCataloguePath) {
        const auto& catalogue = picture_.catalogue();
        return catalogue ? layer::FileAnswer{0, catalogue->size()}
                         : layer::FileAnswer{kAFCObjectNotFound};
    }
    if (const auto file = ringtoneFile(path)) {
        const PhonePicture::File* const there = picture_.find(*file);
        return there != nullptr ? layer::FileAnswer{0, there->size}
                                : layer::FileAnswer{kAFCObjectNotFound};
    }
    return std::nullopt;
}

int32_t Rehearsal::createDirectory(afc_connection* /*files*/, const char* path) {
    if (path == std::string(kRingtonesFolder)) {
        if (picture_.folderExists()) {
            return kAFCObjectExists;
        }
        picture_.createFolder();
    }
    note({.kind = Kind::CreateFolder, .file = path});
    return 0;
}

int32_t Rehearsal::openDirectory(afc_connection* files, const char* path,
                                 afc_directory** directory) {
    if (path != std::string(kRingtonesFolder)) {
        return FileCalls::openDirectory(files, path, directory);
    }
    if (!picture_.folderExists()) {
        return kAFCObjectNotFound;
    }
    *directory = layer::makeDirectory(picture_.names());
    return 0;
}

int32_t Rehearsal::removePath(afc_connection* /*files*/, const char* path) {
    const auto there = known(path);
    if (!there || there->status != 0) {
        return there ? there->status : kAFCPermissionDenied;
    }
    if (path == std::string(kCataloguePath)) {
        picture_.removeCatalogue();
        note({.kind = Kind::RemoveCatalogue, .bytes = there->sizeBytes});
        return 0;
    }
    const std::string file = *ringtoneFile(path);
    picture_.remove(file);
    note({.kind = wroteCatalogue_ ? Kind::DeleteStray : Kind::Remove,
          .file = file,
          .bytes = there->sizeBytes});
    return 0;
}

int32_t Rehearsal::renamePath(afc_connection* /*files*/, const char* from, const char* to) {
    const auto file = ringtoneFile(from);
    const auto newFile = ringtoneFile(to);
    if (!file || !newFile) {
        return kAFCPermissionDenied;
    }
    const PhonePicture::File* const there = picture_.find(*file);
    if (there == nullptr) {
        return kAFCObjectNotFound;
    }
    note({.kind = Kind::Rename, .file = *file, .newFile = *newFile, .bytes = there->size});
    picture_.rename(*file, *newFile);
    return 0;
}

int32_t Rehearsal::openFile(afc_connection* files, const char* path, uint64_t mode,
                            afc_file_ref* file) {
    const auto there = known(path);
    if (!there) {
        return mode == kAFCOpenRead ? FileCalls::openFile(files, path, mode, file)
                                    : kAFCPermissionDenied;
    }
    Open open{path};
    if (mode == kAFCOpenWrite) {
        open.note = notes_.size();
        if (path == std::string(kCataloguePath)) {
            picture_.createCatalogue();
            wroteCatalogue_ = true;
            note({.kind = Kind::WriteCatalogue});
        } else {
            const std::string name = std::exchange(uploading_, "");
            picture_.create(*ringtoneFile(path), fromComputer(name));
            note({.kind = name.empty() ? Kind::Placeholder : Kind::Upload,
                  .file = *ringtoneFile(path),
                  .name = name,
                  .bytes = 0});
        }
    } else if (there->status != 0) {
        return there->status;
    } else if (path != std::string(kCataloguePath)) {
        return FileCalls::openFile(files, path, kAFCOpenRead, file);
    }
    *file = kFirstHandle + open_.size();
    while (open_.contains(*file)) {
        ++*file;
    }
    open_[*file] = std::move(open);
    return 0;
}

int32_t Rehearsal::readFile(afc_connection* files, afc_file_ref file, void* buffer,
                            uint32_t* length) {
    Open* const open = opened(file);
    if (open == nullptr) {
        return FileCalls::readFile(files, file, buffer, length);
    }
    const std::string_view bytes =
        picture_.catalogue() ? std::string_view(*picture_.catalogue()) : std::string_view();
    const size_t from = std::min(open->next, bytes.size());
    const size_t count = bytes.copy(static_cast<char*>(buffer), *length, from);
    open->next = from + count;
    *length = static_cast<uint32_t>(count);
    return 0;
}

int32_t Rehearsal::writeFile(afc_connection* /*files*/, afc_file_ref file, const void* bytes,
                             uint32_t count) {
    Open* const open = opened(file);
    if (open == nullptr || !open->note) {
        return kAFCPermissionDenied;
    }
    notes_[*open->note].bytes += count;
    if (open->path == kCataloguePath) {
        picture_.growCatalogue(std::string_view(static_cast<const char*>(bytes), count));
    } else {
        picture_.grow(*ringtoneFile(open->path), count);
    }
    return 0;
}

int32_t Rehearsal::closeFile(afc_connection* files, afc_file_ref file) {
    return open_.erase(file) > 0 ? 0 : FileCalls::closeFile(files, file);
}

int32_t Rehearsal::lockFile(afc_connection* /*files*/, afc_file_ref /*file*/) {
    return 0;
}

int32_t Rehearsal::fileInfo(afc_connection* files, const char* path, afc_dictionary** info) {
    const auto answer = known(path);
    if (!answer) {
        return FileCalls::fileInfo(files, path, info);
    }
    if (answer->status == 0) {
        *info = layer::makeFileInfo(answer->sizeBytes);
    }
    return answer->status;
}

} // namespace krl::engine
