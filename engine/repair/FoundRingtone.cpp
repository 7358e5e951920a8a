#include "engine/repair/FoundRingtone.h"

#include "engine/values/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

namespace krl::engine {
namespace {

bool isNoXml(char32_t character) {
    const bool isSpace = character == U'\t' || character == U'\n' || character == U'\r';
    return (character < 0x20 && !isSpace) || character == 0xFFFE || character == 0xFFFF;
}

/// What an XML document can hold of a name.
std::string fitForXml(const std::string& name) {
    std::u32string characters = codePoints(name);
    std::replace_if(characters.begin(), characters.end(), isNoXml, U' ');
    return utf8(characters);
}

/// The file's name without its extension.
std::string stemOf(const std::string& file) {
    return file.substr(0, file.rfind('.'));
}

cf::CFRef<CFStringRef> freshGuid() {
    const auto uuid = cf::adopt(CFUUIDCreate(nullptr));
    return cf::adopt(CFUUIDCreateString(nullptr, uuid.get()));
}

/// Names and GUIDs as they are given away.
class Identities {
public:
    explicit Identities(bool olderLayout) : olderLayout_(olderLayout) {}

    void give(FoundRingtone& ringtone) {
        const std::string given = ringtone.name;
        ringtone.name = freeName(ringtone.name.empty() ? stemOf(ringtone.file) : ringtone.name);
        CFDictionarySetValue(ringtone.entry.get(), KRTRingtoneName,
                             cf::string(ringtone.name).get());
        ringtone.isChanged = ringtone.name != given;
        const std::string guid = cf::textAt(ringtone.entry.get(), KRTFileKey);
        const bool isOwn = !guid.empty() && guids_.insert(guid).second;
        if (!isOwn && (olderLayout_ || !ringtone.isSeen)) {
            CFDictionarySetValue(ringtone.entry.get(), KRTFileKey, freshGuid().get());
            ringtone.isChanged = true;
        }
    }

private:
    std::string freeName(const std::string& wanted) {
        const std::string fit = fitForXml(wanted);
        std::string name = fit;
        while (!names_.insert(name).second) {
            name = fmt::format("{} ({})", fit, ++numbers_.try_emplace(fit, 1).first->second);
        }
        return name;
    }

    const bool olderLayout_;
    std::set<std::string> names_;
    std::map<std::string, int> numbers_; ///< the last one given to a name that is there twice
    std::set<std::string> guids_;
};

/// An m4r file with a name and a GUID alone is a placeholder to the library. A third key that says
/// nothing makes it a ringtone.
void tellFromPlaceholder(FoundRingtone& ringtone) {
    constexpr CFIndex kOnlyNameAndGuid = 2;
    if (CFDictionaryGetCount(ringtone.entry.get()) <= kOnlyNameAndGuid) {
        CFDictionarySetValue(ringtone.entry.get(), KRTTrackPersistantID, cf::number(0).get());
        ringtone.isChanged = true;
    }
}

} // namespace

bool fitsXml(const std::string& text) {
    const std::u32string characters = codePoints(text);
    return std::none_of(characters.begin(), characters.end(), isNoXml);
}

cf::CFRef<CFMutableDictionaryRef> editableEntry(CFDictionaryRef entry) {
    return entry == nullptr ? cf::dictionary()
                            : cf::adopt(CFDictionaryCreateMutableCopy(nullptr, 0, entry));
}

std::vector<FoundRingtone> listedRingtones(const PhoneState& phone) {
    std::map<std::string, uint64_t> sizes;
    for (const FolderFile& file : phone.folder) {
        sizes[file.name] = file.size;
    }
    std::set<std::string> seen;
    for (const PhoneRingtone& ringtone : phone.ringtones) {
        seen.insert(ringtone.file);
    }
    std::vector<FoundRingtone> found;
    for (const auto& [key, value] : cf::pairs(phone.catalogue.ringtones.get())) {
        const std::string file = cf::text(cf::cast<CFStringRef>(key));
        const auto size = sizes.find(file);
        const bool isSeen = seen.contains(file);
        if (size == sizes.end() || (size->second == 0 && !isSeen)) {
            continue;
        }
        const auto entry = cf::cast<CFDictionaryRef>(value);
        const std::string name = cf::textAt(entry, KRTRingtoneName);
        found.push_back({file, name, name, editableEntry(entry), isSeen});
    }
    return found;
}

void tellApart(std::vector<FoundRingtone>& ringtones, bool olderLayout) {
    Identities identities(olderLayout);
    for (const bool isSeen : {true, false}) {
        for (FoundRingtone& ringtone : ringtones) {
            if (ringtone.isSeen == isSeen) {
                identities.give(ringtone);
                tellFromPlaceholder(ringtone);
            }
        }
    }
}

std::string catalogueOf(const std::vector<FoundRingtone>& ringtones) {
    const auto list = cf::dictionary();
    for (const FoundRingtone& ringtone : ringtones) {
        CFDictionarySetValue(list.get(), cf::string(ringtone.file).get(), ringtone.entry.get());
    }
    const auto root = cf::dictionary();
    CFDictionarySetValue(root.get(), KRTRingtoneKeyName, list.get());
    const auto bytes = cf::adopt(CFPropertyListCreateXMLData(nullptr, root.get()));
    return bytes ? std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(bytes.get())),
                               static_cast<size_t>(CFDataGetLength(bytes.get())))
                 : std::string();
}

} // namespace krl::engine
