#include "engine/restore/RingtoneChanges.h"

#include "engine/state/Catalogue.h"
#include "engine/values/Text.h"

#include <fmt/format.h>

#include <algorithm>

namespace krl::engine {

std::map<std::string, Content> ringtonesIn(PhoneSafe& safe, const Snapshot& snapshot) {
    std::map<std::string, Content> ringtones;
    if (!snapshot.catalogue) {
        return ringtones;
    }
    const Catalogue catalogue = readCatalogue(safe.contents().bytes(snapshot.catalogue->digest));
    for (const CatalogueEntry& entry : catalogue.entries) {
        const auto file = snapshot.files.find(entry.file);
        if (!entry.malformed && !entry.isPlaceholder() && file != snapshot.files.end()) {
            ringtones.insert_or_assign(entry.name, file->second.content);
        }
    }
    return ringtones;
}

RingtoneChanges ringtoneChanges(PhoneSafe& safe, const Snapshot& before, const Snapshot& after) {
    const auto old = ringtonesIn(safe, before);
    const auto now = ringtonesIn(safe, after);
    RingtoneChanges changes;
    std::multimap<Content, std::string> gone;
    for (const auto& [name, content] : old) {
        if (!now.contains(name)) {
            gone.emplace(content, name);
        }
    }
    for (const auto& [name, content] : now) {
        const auto same = old.find(name);
        const auto moved = gone.find(content);
        if (same != old.end()) {
            if (same->second != content) {
                changes.replaced.push_back(name);
            }
        } else if (moved != gone.end()) {
            changes.renamed.emplace_back(moved->second, name);
            gone.erase(moved);
        } else {
            changes.added.push_back(name);
        }
    }
    for (const auto& [content, name] : gone) {
        changes.removed.push_back(name);
    }
    std::sort(changes.removed.begin(), changes.removed.end());
    return changes;
}

std::string describe(const RingtoneChanges& changes) {
    constexpr size_t kNames = 4;
    std::vector<std::string> parts;
    const auto part = [&](const char* what, const std::vector<std::string>& names) {
        if (!names.empty()) {
            parts.push_back(
                fmt::format("{} {} ({})", names.size(), what, quotedList(names, kNames)));
        }
    };
    part("added", changes.added);
    part("replaced", changes.replaced);
    part("removed", changes.removed);
    for (const auto& [from, to] : changes.renamed) {
        parts.push_back(fmt::format("\"{}\" renamed to \"{}\"", from, to));
    }
    return parts.empty() ? "no ringtone" : fmt::format("{}", fmt::join(parts, ", "));
}

} // namespace krl::engine
