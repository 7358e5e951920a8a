#include "engine/repair/WalkingOrders.h"

#include <KRLVesk/KRTDictionary.h>

#include <algorithm>
#include <map>
#include <memory>
#include <utility>

namespace krl::engine {
namespace {

/// Entries as the firmware's table is filled with them.
using Order = std::vector<const CatalogueEntry*>;

/// Where the table begins.
enum class Room { ForAll, Least };

Order catalogueOrder(const std::vector<CatalogueEntry>& entries) {
    Order order;
    for (const CatalogueEntry& entry : entries) {
        order.push_back(&entry);
    }
    return order;
}

Order sortedOrder(Order order) {
    std::sort(order.begin(), order.end(), [](const CatalogueEntry* one, const CatalogueEntry* two) {
        return one->file < two->file;
    });
    return order;
}

/// The next sync puts each placeholder behind its ringtone.
Order nextLoadOrder(const Order& catalogue) {
    std::multimap<std::string, const CatalogueEntry*> placeholders;
    for (const CatalogueEntry* entry : catalogue) {
        if (entry->isPlaceholder()) {
            placeholders.emplace(entry->guid, entry);
        }
    }
    Order order;
    for (const CatalogueEntry* entry : catalogue) {
        if (!entry->isPlaceholder()) {
            order.push_back(entry);
            const auto [first, last] = placeholders.equal_range(entry->guid);
            std::transform(first, last, std::back_inserter(order),
                           [](const auto& placeholder) { return placeholder.second; });
        }
    }
    return order;
}

/// The entries in the order in which the firmware walks them.
Order walked(const Order& filled, Room room) {
    // A catalogue is read into a table with room for ten entries at least.
    constexpr KRTWord kLeastForAll = 10;
    const KRTWord capacity =
        room == Room::ForAll ? std::max(kLeastForAll, static_cast<KRTWord>(filled.size())) : 0;
    const std::unique_ptr<KRTDictionary, decltype(&KRTDictionaryRelease)> table(
        KRTDictionaryWithCapacity(capacity), KRTDictionaryRelease);
    std::vector<cf::CFRef<CFStringRef>> keys; // the table does not keep them
    for (const CatalogueEntry* entry : filled) {
        keys.push_back(cf::string(entry->file));
        KRTDictionarySetObjectForKey(table.get(), entry, keys.back().get());
    }
    const auto count = static_cast<size_t>(KRTDictionaryGetCount(table.get()));
    std::vector<const void*> names(count);
    std::vector<const void*> values(count);
    KRTDictionaryGetKeysAndValues(table.get(), names.data(), values.data());
    Order order;
    std::transform(values.begin(), values.end(), std::back_inserter(order),
                   [](const void* value) { return static_cast<const CatalogueEntry*>(value); });
    return order;
}

void addAheadOfPlaceholders(const Order& order, std::set<std::string>& files) {
    std::map<std::string, const CatalogueEntry*> firstOfGuid;
    for (const CatalogueEntry* entry : order) {
        const auto [first, isFirst] = firstOfGuid.emplace(entry->guid, entry);
        if (!isFirst && !first->second->file.ends_with(".m4r")) {
            files.insert(first->second->file);
        }
    }
}

} // namespace

std::set<std::string> filesAheadOfPlaceholders(const std::vector<CatalogueEntry>& entries) {
    const Order catalogue = catalogueOrder(entries);
    std::set<std::string> files;
    for (const Order& order : {catalogue, sortedOrder(catalogue), nextLoadOrder(catalogue)}) {
        for (const Room room : {Room::ForAll, Room::Least}) {
            addAheadOfPlaceholders(walked(order, room), files);
        }
    }
    return files;
}

} // namespace krl::engine
