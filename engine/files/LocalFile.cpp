#include "engine/files/LocalFile.h"

#include "engine/files/RegularFile.h"
#include "engine/values/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

namespace krl::engine {
namespace {

namespace fs = std::filesystem;

constexpr char kCheckPath[] = "Check the path and its permissions.";

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
        throw Failure(FailureKind::BadName, fmt::format("\"{}\" cannot be a ringtone's name", name),
                      "Give a name that is not empty and has no control characters.");
    }
}

void requireUsableSize(const fs::path& file, uint64_t size) {
    constexpr auto kLargest = static_cast<uint64_t>(std::numeric_limits<int32_t>::max());
    if (size > kLargest) {
        throw Failure(
            FailureKind::FileTooLarge,
            fmt::format("\"{}\" is too large for a phone: {}", file.string(), formatBytes(size)),
            "A ringtone must be smaller than 2 GiB.");
    }
}

LocalRingtone LocalFiles::ringtone(const fs::path& path, const std::optional<std::string>& name) {
    std::error_code ignored;
    if (fs::is_directory(path, ignored)) {
        throw unreadable(path, "it is a folder (vesk sync takes folders)", kCheckPath);
    }
    const RegularFile file(path, kCheckPath);
    const std::string type = typeOf(path);
    if (!isSupportedType(type)) {
        throw Failure(FailureKind::UnsupportedType,
                      fmt::format("\"{}\" is not of a file type that phones play as a ringtone",
                                  path.string()),
                      fmt::format("Supported are {}.", fmt::join(supportedTypes(), ", ")));
    }
    if (file.size() == 0) {
        throw Failure(FailureKind::EmptyFile, fmt::format("\"{}\" is empty", path.string()),
                      "Make the file anew.");
    }
    requireUsableSize(path, file.size());
    const std::string absolute = cataloguePath(path);
    LocalRingtone ringtone{name ? composed(*name) : nameFor(path, file.descriptor()), absolute,
                           type, file.size()};
    requireUsableName(ringtone.name);
    return ringtone;
}

std::string LocalFiles::nameFor(const fs::path& path, int descriptor) {
    const auto title = tags_.titleOf(path, descriptor);
    if (!title) {
        unreadableTags_.push_back(path.string());
    }
    return nameAfter(title.value_or(""), path);
}

std::string cataloguePath(const fs::path& path) {
    std::string absolute = fs::absolute(path).lexically_normal().string();
    if (!fitsCatalogue(absolute)) {
        throw Failure(FailureKind::BadName,
                      fmt::format("\"{}\" has control characters or bytes that are no UTF-8 in its "
                                  "path, which the phone's catalogue cannot hold",
                                  absolute),
                      "Rename the file or its folder.");
    }
    return absolute;
}

std::string nameAfter(const std::string& title, const fs::path& file) {
    const std::string name = composed(tidied(title));
    return name.empty() ? composed(file.stem().string()) : name;
}

} // namespace krl::engine
