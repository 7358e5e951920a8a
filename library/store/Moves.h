// Moving an entry of the catalogue to another file name.
#pragma once

#include "library/firmware111/LayoutCheck.h"
#include "library/store/NameSets.h"

#include <CoreFoundation/CoreFoundation.h>

namespace krl::ringtones {

/// Keys of a rename record.
inline const CFStringRef kNewBaseName = CFSTR("new");
inline const CFStringRef kNewExtension = CFSTR("fileType");

/// What a move works on.
struct Layout {
    CFMutableDictionaryRef catalogue; ///< file name to entry
    LayoutCheck& check;               ///< of the catalogue; is told of each change
    BaseNames& baseNames;             ///< in use
    CFMutableDictionaryRef renames;   ///< GUID to {"new", "fileType"}
    CFDictionaryRef unchanged;        ///< the ringtones whose files are on the phone; null is empty
};

/// Moves an entry, and its companion with it, to a fresh base name. A ringtone whose file is on the
/// phone gets a rename record. A file name that the catalogue does not have is passed over.
///
/// @return whether the catalogue had the file name
bool moveEntry(const Layout& layout, CFStringRef fileName);

} // namespace krl::ringtones
