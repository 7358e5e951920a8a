// Ringtones and lists of them, made the way an application makes them.
#pragma once

#include <CoreFoundation/CFText.h>
#include <CoreFoundation/CFValues.h>
#include <KRLVesk/KRLVesk.h>

#include <filesystem>
#include <string>

namespace krl::test {

using List = cf::CFRef<CFMutableDictionaryRef>;

inline cf::CFRef<CFStringRef> text(const std::string& utf8) {
    return cf::stringOf(utf8);
}

inline List emptyList() {
    return cf::makeDictionary();
}

/// Adds a new ringtone to a list: its GUID follows from its name, its type from the file.
inline void addNew(const List& list, const std::string& name, const std::filesystem::path& file) {
    const List entry = emptyList();
    CFDictionarySetValue(entry.get(), KRTRingtoneName, text(name).get());
    CFDictionarySetValue(entry.get(), KRTFileKey, text("GUID of " + name).get());
    CFDictionarySetValue(entry.get(), KRTLocalPath, text(file.string()).get());
    CFDictionarySetValue(entry.get(), CFSTR("FileType"),
                         text(file.extension().string().substr(1)).get());
    CFDictionarySetValue(list.get(), text(name).get(), entry.get());
}

/// Moves a ringtone from one list to another.
inline void move(const List& from, const List& to, const std::string& name) {
    const auto key = text(name);
    CFDictionarySetValue(to.get(), key.get(), CFDictionaryGetValue(from.get(), key.get()));
    CFDictionaryRemoveValue(from.get(), key.get());
}

} // namespace krl::test
