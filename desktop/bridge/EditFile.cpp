#include "desktop/bridge/EditFile.h"

#include "desktop/bridge/CutDocument.h"

#include <fmt/format.h>

#include <functional>

namespace krl::desktop {

using namespace engine;

namespace {

/// More than a person edits, and little enough for a window.
constexpr size_t kMost = 20000;
constexpr size_t kMostBytes = size_t{16} * 1024 * 1024;

/// @param take  called with each object of a list
void forEach(const Json& document, const char* key,
             const std::function<void(const Json& entry)>& take) {
    const Json& list = valueAt(document, key);
    if (!list.is_array() || list.size() > kMost) {
        throw BadDocument(fmt::format("\"{}\" is no list of a length that can be", key));
    }
    for (const Json& entry : list) {
        take(entry);
    }
}

/// Before cuts, and what was sent, were kept there was nothing of them; nor is there of what is as
/// songs are at first.
Edits::Song songOf(const Json& entry) {
    Edits::Song song{bytesAt(entry, "path"), bytesAt(entry, "name")};
    if (!song.path.is_absolute() || song.path.string().find('\0') != std::string::npos) {
        throw BadDocument("a song has a path that is none");
    }
    if (entry.contains("cut")) {
        song.cut = cutOf(valueAt(entry, "cut"));
    }
    if (entry.contains("sent")) {
        const Json& sent = valueAt(entry, "sent");
        song.sent = {bytesAt(sent, "name"), numberAt(sent, "size")};
    }
    if (entry.contains("usual")) {
        song.usual = cutOf(valueAt(entry, "usual"));
    }
    return song;
}

Edits editsOf(const Json& document) {
    Edits edits;
    forEach(document, "removed",
            [&](const Json& entry) { edits.removed.push_back(bytesAt(entry, "name")); });
    forEach(document, "renamed", [&](const Json& entry) {
        edits.renamed.emplace_back(bytesAt(entry, "from"), bytesAt(entry, "to"));
    });
    forEach(document, "songs", [&](const Json& entry) { edits.songs.push_back(songOf(entry)); });
    return edits;
}

Json documentOf(const Edits& edits) {
    Json document = newDocument();
    Json removed = Json::array();
    for (const std::string& name : edits.removed) {
        removed.push_back({{"name", bytesJson(name)}});
    }
    Json renamed = Json::array();
    for (const auto& [from, to] : edits.renamed) {
        renamed.push_back({{"from", bytesJson(from)}, {"to", bytesJson(to)}});
    }
    Json songs = Json::array();
    for (const Edits::Song& song : edits.songs) {
        Json entry = {{"path", bytesJson(song.path.string())}, {"name", bytesJson(song.name)}};
        if (song.cut) {
            entry["cut"] = cutJson(*song.cut);
        }
        if (song.sent) {
            entry["sent"] = {{"name", bytesJson(song.sent->name)}, {"size", song.sent->size}};
        }
        if (song.usual != audio::Wish{}) {
            entry["usual"] = cutJson(song.usual);
        }
        songs.push_back(std::move(entry));
    }
    document["removed"] = std::move(removed);
    document["renamed"] = std::move(renamed);
    document["songs"] = std::move(songs);
    return document;
}

} // namespace

std::filesystem::path editFile(const std::filesystem::path& folder, const std::string& udid) {
    return folder / "window" / (digestOf(udid).hex() + ".json");
}

Edits readEdits(const std::filesystem::path& file) {
    Edits edits;
    readDocument(
        file, [&](const Json& document) { edits = editsOf(document); }, kMostBytes);
    return edits;
}

void writeEdits(const std::filesystem::path& file, const Edits& edits) {
    Disk& disk = realDisk();
    if (edits.isEmpty()) {
        removeFile(disk, file);
        return;
    }
    makePrivateFolder(disk, file.parent_path());
    writeDocument(disk, file, documentOf(edits));
    syncFolder(disk, file.parent_path());
}

} // namespace krl::desktop
