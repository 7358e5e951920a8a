#include "library/store/Moves.h"

#include "library/store/Dictionaries.h"
#include "library/store/Names.h"

#include <KRLVesk/KRTRingtoneManager.h>

namespace krl::ringtones {

using cf::CFRef;

namespace {

CFRef<CFDictionaryRef> makeRenameRecord(CFStringRef newBase, CFStringRef extension) {
    const auto record = makeDictionary();
    CFDictionarySetValue(record.get(), kNewBaseName, newBase);
    CFDictionarySetValue(record.get(), kNewExtension, extension);
    return record;
}

CFRef<CFTypeRef> takeEntry(const Layout& layout, CFStringRef fileName) {
    auto entry = take(layout.catalogue, fileName);
    layout.check.entryTaken(fileName);
    return entry;
}

void putEntry(const Layout& layout, CFStringRef fileName, CFTypeRef entry) {
    CFDictionarySetValue(layout.catalogue, fileName, entry);
    layout.check.entryPut(fileName, entry);
}

bool isOnPhone(CFDictionaryRef entry, CFDictionaryRef unchanged) {
    const CFTypeRef name = CFDictionaryGetValue(entry, KRTRingtoneName);
    return name != nullptr && unchanged != nullptr && CFDictionaryContainsKey(unchanged, name);
}

} // namespace

bool moveEntry(const Layout& layout, CFStringRef fileName) {
    // The layout check may name files that the catalogue does not have, and one file more than
    // once.
    if (!CFDictionaryContainsKey(layout.catalogue, fileName)) {
        return false;
    }
    const auto entry = takeEntry(layout, fileName);
    if (!entry) {
        return true;
    }
    const FileName old = splitPath(fileName);
    CFRef<CFTypeRef> companion;
    if (!isM4R(old.extension.get())) {
        companion = takeEntry(layout, companionName(old.base.get()).get());
    }

    // Contract: the old base name is free before the new one is drawn, and may come back at once.
    // [Fix.TheOldNameMayComeBackAtOnce]
    layout.baseNames.removeFirst(old.base.get());
    const auto newBase = layout.baseNames.drawUnused();
    putEntry(layout, joinName(newBase.get(), old.extension.get()).get(), entry.get());
    layout.baseNames.append(newBase.get());
    if (companion) {
        putEntry(layout, companionName(newBase.get()).get(), companion.get());
    }

    // Contract: a companion with a name too long is moved like a ringtone of its own, and the
    // record then sends the ringtone's file to the companion's new name.
    // [FixOf111.TheCompanionOfALongMP3MovesAlone]
    const auto tone = cf::cast<CFDictionaryRef>(entry.get());
    const CFTypeRef guid = tone != nullptr ? CFDictionaryGetValue(tone, KRTFileKey) : nullptr;
    if (guid != nullptr && isOnPhone(tone, layout.unchanged)) {
        CFDictionarySetValue(layout.renames, guid,
                             makeRenameRecord(newBase.get(), old.extension.get()).get());
    }
    return true;
}

} // namespace krl::ringtones
