#include "engine/state/Catalogue.h"

#include <KRLVesk/KRTRingtoneManager.h>

namespace vesk {

bool CatalogueEntry::isPlaceholder() const {
    constexpr size_t kOnlyNameAndGuid = 2;
    return keyCount == kOnlyNameAndGuid && file.ends_with("m4r");
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

std::string catalogueBytes(CFDictionaryRef ringtones) {
    const auto root = cf::dictionary();
    CFDictionarySetValue(root.get(), KRTRingtoneKeyName, ringtones);
    const auto data = cf::adopt(CFPropertyListCreateXMLData(nullptr, root.get()));
    if (!data) {
        return {};
    }
    return {reinterpret_cast<const char*>(CFDataGetBytePtr(data.get())),
            static_cast<size_t>(CFDataGetLength(data.get()))};
}

} // namespace vesk
