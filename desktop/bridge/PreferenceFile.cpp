#include "desktop/bridge/PreferenceFile.h"

#include "desktop/bridge/CutDocument.h"

#include <fmt/format.h>

namespace krl::desktop {

using namespace engine;

namespace {

/// A number within bounds; what is usual where there is none.
template <typename Number>
Number numberOr(Number usual, const Json& document, const char* key, Number least, Number most) {
    if (!document.contains(key)) {
        return usual;
    }
    const uint64_t number = numberAt(document, key);
    if (number < static_cast<uint64_t>(least) || number > static_cast<uint64_t>(most)) {
        throw BadDocument(fmt::format("\"{}\" is no number that can be", key));
    }
    return static_cast<Number>(number);
}

/// More than any phone holds.
constexpr size_t kMost = 20000;

/// More than several phones' folders take.
constexpr size_t kMostBytes = size_t{16} * 1024 * 1024;

const Json& listAt(const Json& document, const char* key) {
    const Json& list = valueAt(document, key);
    if (!list.is_array() || list.size() > kMost) {
        throw BadDocument(fmt::format("\"{}\" is no list of a length that can be", key));
    }
    return list;
}

Mirror mirrorOf(const Json& entry) {
    Mirror mirror{.folder = bytesAt(entry, "folder"),
                  .phone = bytesAt(entry, "phone"),
                  .isAgreed = boolAt(entry, "agreed"),
                  .isPaused = boolAt(entry, "paused"),
                  .passedOver = bytesAt(entry, "passedOver")};
    if (!mirror.folder.is_absolute() || mirror.folder.string().find('\0') != std::string::npos) {
        throw BadDocument("a folder has a path that is none");
    }
    for (const Json& held : listAt(entry, "held")) {
        mirror.held.emplace(bytesAt(held, "name"), bytesAt(held, "source"));
    }
    for (const Json& wish : listAt(entry, "wishes")) {
        mirror.wishes.push_back(cutOf(wish));
    }
    if (mirror.wishes.size() > Mirror::kMostWishes) {
        throw BadDocument("more wishes than are kept");
    }
    return mirror;
}

std::map<std::string, Mirror> mirrorsOf(const Json& document) {
    std::map<std::string, Mirror> mirrors;
    if (document.contains("mirrors")) {
        for (const Json& entry : listAt(document, "mirrors")) {
            mirrors.emplace(bytesAt(entry, "udid"), mirrorOf(entry));
        }
    }
    return mirrors;
}

Json mirrorJson(const std::string& udid, const Mirror& mirror) {
    Json held = Json::array();
    for (const auto& [name, source] : mirror.held) {
        held.push_back({{"name", bytesJson(name)}, {"source", bytesJson(source)}});
    }
    Json wishes = Json::array();
    for (const audio::Wish& wish : mirror.wishes) {
        wishes.push_back(cutJson(wish));
    }
    return {{"udid", bytesJson(udid)},
            {"phone", bytesJson(mirror.phone)},
            {"folder", bytesJson(mirror.folder.string())},
            {"agreed", mirror.isAgreed},
            {"paused", mirror.isPaused},
            {"passedOver", bytesJson(mirror.passedOver)},
            {"held", std::move(held)},
            {"wishes", std::move(wishes)}};
}

Preferences preferencesOf(const Json& document) {
    const Preferences usual;
    return {.levels = document.contains("level") ? boolAt(document, "level") : usual.levels,
            .seconds = numberOr(usual.seconds, document, "seconds", Preferences::kFewestSeconds,
                                Preferences::kMostSeconds),
            .keptSyncs = numberOr(usual.keptSyncs, document, "keptSyncs", size_t{1},
                                  Preferences::kMostSyncs),
            .mirrors = mirrorsOf(document)};
}

Json documentOf(const Preferences& preferences) {
    Json document = newDocument();
    document["level"] = preferences.levels;
    document["seconds"] = preferences.seconds;
    document["keptSyncs"] = preferences.keptSyncs;
    Json mirrors = Json::array();
    for (const auto& [udid, mirror] : preferences.mirrors) {
        mirrors.push_back(mirrorJson(udid, mirror));
    }
    document["mirrors"] = std::move(mirrors);
    return document;
}

} // namespace

std::filesystem::path preferenceFile(const std::filesystem::path& folder) {
    return folder / "preferences.json";
}

Preferences readPreferences(const std::filesystem::path& file) {
    Preferences preferences;
    readDocument(
        file, [&](const Json& document) { preferences = preferencesOf(document); }, kMostBytes);
    return preferences;
}

void writePreferences(const std::filesystem::path& file, const Preferences& preferences) {
    Disk& disk = realDisk();
    makePrivateFolder(disk, file.parent_path());
    writeDocument(disk, file, documentOf(preferences));
    syncFolder(disk, file.parent_path());
}

} // namespace krl::desktop
