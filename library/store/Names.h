// Keys of entries that the public header does not name, and the file names and paths of the phone's
// ringtone folder.
#pragma once

#include "library/firmware111/FileNames.h"

#include <CoreFoundation/CFText.h>
#include <CoreFoundation/CoreFoundation.h>

#include <optional>
#include <string>

namespace krl::ringtones {

using krl::FileName;
using krl::splitPath;

inline const CFStringRef kFileTypeKey = CFSTR("FileType");
inline const CFStringRef kNeedsSyncKey = CFSTR("NeedsSync");
inline const CFStringRef kLocalDataKey = CFSTR("LocalData");
inline const CFStringRef kM4R = CFSTR("m4r");

/// What KRTRingtonesPath and KRTRingtonePath say, for the phone's file functions.
inline constexpr char kRingtonesFolder[] = "/iTunes_Control/Ringtones";
inline constexpr char kCataloguePath[] = "/iTunes_Control/iTunes/Ringtones.plist";

/// Whether this is "m4r" in exactly these letters. No file type at all is another one.
bool isM4R(CFStringRef fileType);

/// Whether a file of a folder can be called so: not empty, neither "." nor "..", and without "/" and
/// zero inside. Names in the catalogue and in a listing come from the phone, and one that leads to
/// another folder is damage: nothing is asked, moved, written or deleted there.
bool isPlainFileName(CFStringRef name);

/// Whether no component of a path is "." or "..", so that it leads where its text says.
bool isStraightPath(CFStringRef path);

using cf::utf8;

/// The string's characters, or null: how the phone's file functions take a path that may be
/// missing.
const char* orNull(const std::optional<std::string>& text);

/// The path of a file of the ringtone folder.
cf::CFRef<CFStringRef> ringtonePath(CFStringRef fileName);

/// Base name, point, extension; without an extension the base name alone.
cf::CFRef<CFStringRef> joinName(CFStringRef baseName, CFStringRef extension);

/// The name under which a ringtone of another type has its companion.
cf::CFRef<CFStringRef> companionName(CFStringRef baseName);

/// The last three characters, or all when there are fewer.
cf::CFRef<CFStringRef> lastThreeCharacters(CFStringRef fileName);

} // namespace krl::ringtones
