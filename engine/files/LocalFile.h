#pragma once

#include "engine/errors/Failure.h"
#include "engine/files/TagReader.h"
#include "engine/values/Digest.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace krl::engine {

/// A ringtone file on this computer, ready to be put on a phone.
struct LocalRingtone {
    std::string name;
    std::string path; ///< absolute
    std::string type; ///< extension in lower case, without the point
    uint64_t size = 0;
    std::optional<Digest> source = {}; ///< what it is made of: its content, or a song and a wish
};

/// The file types that a ringtone may have, in lower case.
const std::vector<std::string>& supportedTypes();

/// A file's extension in lower case, without the point; empty when it has none.
std::string typeOf(const std::filesystem::path& file);

bool isSupportedType(const std::string& type);

/// Looks at files of this computer, all with one reader of tags.
class LocalFiles {
public:
    explicit LocalFiles(std::filesystem::path tagProgram = engine::tagProgram())
        : tags_(std::move(tagProgram)) {}

    /// Looks at a file. Its name is the given one, or else the title in its tags, or else its file
    /// name.
    /// @throw Failure when it cannot be a ringtone
    LocalRingtone ringtone(const std::filesystem::path& path,
                           const std::optional<std::string>& name = std::nullopt);

    /// The name of a file that is open: the title in its tags, or else its file name.
    std::string nameFor(const std::filesystem::path& path, int descriptor);

    /// The files so far whose tags could not be read, so that they have their file names.
    const std::vector<std::string>& unreadableTags() const { return unreadableTags_; }

private:
    TagReader tags_;
    std::vector<std::string> unreadableTags_;
};

/// The absolute path of a file, as the catalogue on the phone keeps it.
/// @throw Failure when the catalogue cannot hold it
std::string cataloguePath(const std::filesystem::path& path);

/// A ringtone's name after the title in a file's tags, tidied up, or else after the file.
std::string nameAfter(const std::string& title, const std::filesystem::path& file);

/// @throw Failure when a file is larger than phones take
void requireUsableSize(const std::filesystem::path& file, uint64_t size);

/// @throw Failure when the text cannot be a ringtone's name
void requireUsableName(const std::string& name);

} // namespace krl::engine
