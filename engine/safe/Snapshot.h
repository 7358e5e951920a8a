#pragma once

#include "engine/safe/ContentStore.h"
#include "engine/safe/Documents.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace krl::engine {

/// The ringtone side of a phone at one moment: the catalogue and every file of the ringtone folder,
/// under names of any bytes. The contents are in the safe.
struct Snapshot {
    struct File {
        Content content;
        std::string modified; ///< as the phone says it; empty where it says nothing

        friend bool operator==(const File&, const File&) = default;
    };

    std::optional<Content> catalogue; ///< none when the phone has no catalogue
    bool hasFolder = false;
    std::map<std::string, File> files;
};

/// What is known of a phone without reading its files: those that nobody has written to since they
/// were read, and the catalogues under which that holds.
struct Index {
    std::map<std::string, Snapshot::File> files;
    std::set<std::optional<Content>> catalogues;

    /// What files should hold that have to be read, since a job is not known to have ended: not kept.
    std::map<std::string, Content> awaited = {};

    friend bool operator==(const Index&, const Index&) = default;
};

/// What a snapshot that was taken just now says.
Index indexOf(const Snapshot& snapshot);

/// Whether two hold the same ringtones: the same catalogue, the same names and contents.
bool sameContents(const Snapshot& left, const Snapshot& right);

/// Whether bytes can be the name of a file in a folder, and of nothing anywhere else.
bool isPlainName(std::string_view name);

Json contentJson(const Content& content);
Content contentAt(const Json& object, const char* key);

Json indexJson(const Index& index);

/// @throw BadDocument
Index indexOf(const Json& document);

Json snapshotJson(const Snapshot& snapshot);

/// @throw BadDocument
Snapshot snapshotOf(const Json& document);

} // namespace krl::engine
