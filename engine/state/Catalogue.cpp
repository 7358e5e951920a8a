#include "engine/state/Catalogue.h"

#include <KRLVesk/KRTRingtoneManager.h>

namespace krl::engine {

bool CatalogueEntry::isPlaceholder() const {
    constexpr size_t kOnlyNameAndGuid = 2;
    return keyCount == kOnlyNameAndGuid && file.ends_with("m4r");
}

bool CatalogueEntry::hasPlainFile() const {
    return !file.empty() && file != "." && file != ".." && file.find('/') == std::string::npos;
}

std::vector<std::string> strangeKeys(const Catalogue& catalogue) {
    std::vector<std::string> keys;
    for (const CatalogueEntry& entry : catalogue.entries) {
        if (!entry.hasPlainFile()) {
            keys.push_back(entry.file);
        }
    }
    return keys;
}

std::vector<CatalogueEntry> catalogueEntries(CFDictionaryRef ringtones) {
    std::vector<CatalogueEntry> entries;
    for (const auto& [key, value] : cf::pairs(ringtones)) {
        const auto entry = cf::cast<CFDictionaryRef>(value);
        CatalogueEntry& line = entries.emplace_back();
        line.file = cf::text(cf::cast<CFStringRef>(key));
        line.malformed = entry == nullptr;
        if (entry != nullptr) {
            line.name = cf::textAt(entry, KRTRingtoneName);
            line.guid = cf::textAt(entry, KRTFileKey);
            line.keyCount = static_cast<size_t>(CFDictionaryGetCount(entry));
            line.hasLocalPath = CFDictionaryContainsKey(entry, KRTLocalPath) != 0;
        }
    }
    return entries;
}

Catalogue readCatalogue(const std::string& bytes) {
    Catalogue catalogue;
    const auto data = cf::adopt(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(bytes.data()),
                                             static_cast<CFIndex>(bytes.size())));
    const auto root = cf::adopt(
        CFPropertyListCreateFromXMLData(nullptr, data.get(), kCFPropertyListImmutable, nullptr));
    const auto dictionary = cf::cast<CFDictionaryRef>(root.get());
    if (dictionary == nullptr) {
        return catalogue;
    }
    const auto ringtones =
        cf::cast<CFDictionaryRef>(CFDictionaryGetValue(dictionary, KRTRingtoneKeyName));
    if (ringtones == nullptr) {
        return catalogue;
    }
    catalogue.usable = true;
    catalogue.ringtones = cf::retain(ringtones);
    catalogue.entries = catalogueEntries(ringtones);
    return catalogue;
}

} // namespace krl::engine
