#include "engine/files/LocalFile.h"

#include "engine/files/Tags.h"
#include "engine/values/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <map>
#include <sys/stat.h>
#include <unistd.h>

namespace vesk {
namespace {

namespace fs = std::filesystem;

Failure unreadable(const fs::path& file, const std::string& why) {
    return {ExitCode::UnreadableFile, fmt::format("\"{}\" cannot be read: {}", file.string(), why),
            "Check the path and its permissions. Nothing was changed on the phone."};
}

struct stat statusOf(const fs::path& file) {
    struct stat status = {};
    if (::stat(file.c_str(), &status) != 0) {
        throw unreadable(file, std::strerror(errno));
    }
    return status;
}

void requireOpens(const fs::path& file) {
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        throw unreadable(file, std::strerror(errno));
    }
    ::close(descriptor);
}

/// Characters that an XML document cannot hold, or that no name has use for. The catalogue on the
/// phone is XML and holds names and paths: one such character would make all of it unreadable.
bool fitsCatalogue(char32_t character) {
    return !(character < 0x20 || (character >= 0x7F && character <= 0x9F) || character == 0xFEFF ||
             character == 0xFFFE || character == 0xFFFF);
}

bool fitsCatalogue(const std::string& text) {
    const std::u32string characters = codePoints(text);
    return isUtf8(text) && std::all_of(characters.begin(), characters.end(),
                                       [](char32_t c) { return fitsCatalogue(c); });
}

/// A title as a name: what does not fit becomes a space, and none stands at an end.
std::string tidied(const std::string& title) {
    std::u32string result;
    for (const char32_t character : codePoints(title)) {
        const bool space = character == U' ' || !fitsCatalogue(character) || isUnsafe(character);
        if (!space) {
            result += character;
        } else if (!result.empty() && result.back() != U' ') {
            result += U' ';
        }
    }
    while (!result.empty() && result.back() == U' ') {
        result.pop_back();
    }
    return utf8(result);
}

std::string nameFor(const fs::path& file) {
    const std::string title = tidied(titleInTags(file.string()));
    return title.empty() ? file.stem().string() : title;
}

void requireUsablePath(const std::string& path) {
    if (!fitsCatalogue(path)) {
        throw Failure(ExitCode::BadName,
                      fmt::format("\"{}\" has control characters or bytes that are no UTF-8 in its "
                                  "path, which the phone's catalogue cannot hold",
                                  path),
                      "Rename the file or its folder. Nothing was changed on the phone.");
    }
}

} // namespace

const std::vector<std::string>& supportedTypes() {
    static const std::vector<std::string> types{"m4a", "m4p", "mp3", "m4r", "wav", "aif", "aiff"};
    return types;
}

std::string typeOf(const fs::path& file) {
    std::string extension = file.extension().string();
    extension.erase(0, 1);
    // The phone and the catalogue tell "m4r" from "M4R".
    std::transform(extension.begin(), extension.end(), extension.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return extension;
}

bool isSupportedType(const std::string& type) {
    const auto& types = supportedTypes();
    return std::find(types.begin(), types.end(), type) != types.end();
}

void requireUsableName(const std::string& name) {
    if (name.empty() || !fitsCatalogue(name)) {
        throw Failure(ExitCode::BadName, fmt::format("\"{}\" cannot be a ringtone's name", name),
                      "Give a name that is not empty and has no control characters. Nothing was "
                      "changed on the phone.");
    }
}

LocalRingtone localRingtone(const fs::path& file, const std::optional<std::string>& name) {
    constexpr auto kLargest = static_cast<uint64_t>(std::numeric_limits<int32_t>::max());
    const struct stat status = statusOf(file);
    if (S_ISDIR(status.st_mode)) {
        throw unreadable(file, "it is a folder (vesk sync takes folders)");
    }
    if (!S_ISREG(status.st_mode)) {
        throw unreadable(file, "it is not a regular file");
    }
    const std::string type = typeOf(file);
    if (!isSupportedType(type)) {
        throw Failure(ExitCode::UnsupportedType,
                      fmt::format("\"{}\" is not of a file type that phones play as a ringtone",
                                  file.string()),
                      fmt::format("Supported are {}. Nothing was changed on the phone.",
                                  fmt::join(supportedTypes(), ", ")));
    }
    requireOpens(file);
    const auto size = static_cast<uint64_t>(status.st_size);
    if (size == 0) {
        throw Failure(ExitCode::EmptyFile, fmt::format("\"{}\" is empty", file.string()),
                      "Make the file anew. Nothing was changed on the phone.");
    }
    if (size > kLargest) {
        throw Failure(
            ExitCode::FileTooLarge,
            fmt::format("\"{}\" is too large for a phone: {}", file.string(), formatBytes(size)),
            "A ringtone must be smaller than 2 GiB. Nothing was changed on the phone.");
    }
    const std::string path = fs::absolute(file).lexically_normal().string();
    requireUsablePath(path);
    LocalRingtone ringtone{name ? *name : nameFor(file), path, type, size};
    requireUsableName(ringtone.name);
    return ringtone;
}

LocalFolder localFolder(const fs::path& folder) {
    const struct stat status = statusOf(folder);
    if (!S_ISDIR(status.st_mode)) {
        throw unreadable(folder, "it is not a folder (vesk add takes files)");
    }
    std::error_code error;
    std::vector<fs::path> files;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        files.push_back(entry->path());
    }
    if (error) {
        throw unreadable(folder, error.message());
    }
    std::sort(files.begin(), files.end());
    LocalFolder result;
    for (const fs::path& file : files) {
        const std::string name = file.filename().string();
        std::error_code ignored;
        if (name.front() == '.' || !isSupportedType(typeOf(file)) ||
            fs::is_directory(file, ignored)) {
            result.skipped.push_back(name);
        } else {
            result.ringtones.push_back(localRingtone(file));
        }
    }
    return result;
}

void requireDistinctNames(const std::vector<LocalRingtone>& ringtones) {
    std::map<std::string, std::string> pathOf;
    for (const LocalRingtone& ringtone : ringtones) {
        const auto [first, isNew] = pathOf.emplace(ringtone.name, ringtone.path);
        if (!isNew) {
            throw Failure(ExitCode::SameNameTwice,
                          fmt::format("two files are named \"{}\"", ringtone.name),
                          "Change the title in one file's tags, or leave one out. Nothing was "
                          "changed on the phone.",
                          {first->second, ringtone.path});
        }
    }
}

} // namespace vesk
