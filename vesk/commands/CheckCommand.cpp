#include "vesk/commands/Commands.h"

#include "engine/files/RegularFile.h"
#include "engine/state/Catalogue.h"
#include "engine/values/Text.h"
#include "vesk/commands/StrangeKeys.h"

#include <KRLVesk/KRLVesk.h>
#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <memory>
#include <set>

namespace vesk {
namespace {

/// Where firmware 1.1.1 comes upon an entry.
struct Slot {
    KRTWord index = 0;
    CatalogueEntry entry;
};

struct Layout {
    KRTWord slotCount = 0;
    std::vector<Slot> slots; ///< in the order in which the firmware walks them
    std::vector<std::string> offending;
};

Catalogue readChecked(const std::string& path) {
    // As much as is read of one on a phone.
    constexpr size_t kLargest = 64U << 20U;
    const RegularFile file(path, "Give the path of a catalogue file, \"Ringtones.plist\".");
    Catalogue catalogue = readCatalogue(file.bytes(kLargest));
    const bool damaged = std::any_of(catalogue.entries.begin(), catalogue.entries.end(),
                                     [](const CatalogueEntry& entry) { return entry.malformed; });
    if (!catalogue.usable || damaged) {
        throw Failure(FailureKind::NotACatalogue,
                      fmt::format("\"{}\" is not a ringtone catalogue", path),
                      "A catalogue is an XML property list with a dictionary \"Ringtones\" from "
                      "file names to dictionaries.");
    }
    return catalogue;
}

Layout layoutOf(const Catalogue& catalogue) {
    // The firmware reads a catalogue into a table with room for ten entries at least.
    const KRTWord capacity = std::max<KRTWord>(10, static_cast<KRTWord>(catalogue.entries.size()));
    const std::unique_ptr<KRTDictionary, decltype(&KRTDictionaryRelease)> table(
        KRTDictionaryWithCapacity(capacity), KRTDictionaryRelease);
    for (const auto& [key, value] : cf::pairs(catalogue.ringtones.get())) {
        KRTDictionarySetObjectForKey(table.get(), value, key);
    }
    const auto count = static_cast<size_t>(KRTDictionaryGetCount(table.get()));
    std::vector<const void*> keys(count);
    std::vector<const void*> values(count);
    KRTDictionaryGetKeysAndValues(table.get(), keys.data(), values.data());

    std::map<std::string, CatalogueEntry> entryOf;
    for (const CatalogueEntry& entry : catalogue.entries) {
        entryOf[entry.file] = entry;
    }
    Layout layout;
    layout.slotCount = __KRTHashNumBucketsForCapacity(__KRTHashRoundUpCapacity(capacity));
    for (const void* key : keys) {
        Slot& slot = layout.slots.emplace_back();
        KRTDictionaryFB2(table.get(), key, &slot.index, nullptr);
        slot.entry = entryOf[cf::text(cf::cast<CFStringRef>(key))];
    }
    return layout;
}

std::vector<std::string> offendingNames(const Catalogue& catalogue) {
    const auto names = cf::adopt(KRTRingtoneManagerIsValidFor111(catalogue.ringtones.get()));
    std::vector<std::string> result;
    for (CFIndex i = 0; names && i < CFArrayGetCount(names.get()); ++i) {
        result.push_back(cf::text(cf::cast<CFStringRef>(CFArrayGetValueAtIndex(names.get(), i))));
    }
    return result;
}

} // namespace

ExitCode runCheck(const Options& options, Output& output) {
    const std::string& path = options.arguments.front();
    const Catalogue catalogue = readChecked(path);
    warnOfStrangeKeys("the catalogue", catalogue, output);
    const Layout layout = layoutOf(catalogue);
    const std::vector<std::string> offending = offendingNames(catalogue);
    const std::set<std::string> isOffending(offending.begin(), offending.end());

    Table table({{"SLOT", Table::Align::Right}, {"FILE"}, {"RINGTONE"}, {"GUID"}, {""}});
    Json order = Json::array();
    for (const Slot& slot : layout.slots) {
        const CatalogueEntry& entry = slot.entry;
        table.add({std::to_string(slot.index), entry.file, entry.name, entry.guid,
                   isOffending.contains(entry.file) ? "<- in the way" : ""});
        order.push_back({{"slot", slot.index},
                         {"file", entry.file},
                         {"name", entry.name},
                         {"guid", entry.guid},
                         {"placeholder", entry.isPlaceholder()}});
    }
    output.table(table);
    output.document({{"file", path},
                     {"accepted", offending.empty()},
                     {"entries", layout.slots.size()},
                     {"slots", layout.slotCount},
                     {"order", order},
                     {"offending", offending}});
    if (offending.empty()) {
        output.summary(fmt::format("Accepted: {} in {} slots.",
                                   counted(layout.slots.size(), "entry", "entries"),
                                   layout.slotCount));
        return ExitCode::Success;
    }
    output.summary(fmt::format("Not accepted by firmware 1.1.1. Names in the way: {}",
                               quotedList(offending, 20)));
    return ExitCode::NotAccepted;
}

} // namespace vesk
