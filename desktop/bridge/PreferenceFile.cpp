#include "desktop/bridge/PreferenceFile.h"

#include "engine/safe/Documents.h"

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

Preferences preferencesOf(const Json& document) {
    const Preferences usual;
    return {.levels = document.contains("level") ? boolAt(document, "level") : usual.levels,
            .seconds = numberOr(usual.seconds, document, "seconds", Preferences::kFewestSeconds,
                                Preferences::kMostSeconds),
            .keptSyncs = numberOr(usual.keptSyncs, document, "keptSyncs", size_t{1},
                                  Preferences::kMostSyncs)};
}

Json documentOf(const Preferences& preferences) {
    Json document = newDocument();
    document["level"] = preferences.levels;
    document["seconds"] = preferences.seconds;
    document["keptSyncs"] = preferences.keptSyncs;
    return document;
}

} // namespace

std::filesystem::path preferenceFile(const std::filesystem::path& folder) {
    return folder / "preferences.json";
}

Preferences readPreferences(const std::filesystem::path& file) {
    Preferences preferences;
    readDocument(file, [&](const Json& document) { preferences = preferencesOf(document); });
    return preferences;
}

void writePreferences(const std::filesystem::path& file, const Preferences& preferences) {
    Disk& disk = realDisk();
    makePrivateFolder(disk, file.parent_path());
    writeDocument(disk, file, documentOf(preferences));
    syncFolder(disk, file.parent_path());
}

} // namespace krl::desktop
