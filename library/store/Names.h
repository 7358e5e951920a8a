// Keys of entries that the public header does not name, and the file names and paths of the phone's
// ringtone folder.
#pragma once

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>

#include <optional>
#include <string>

namespace krl::ringtones {

inline const CFStringRef kFileTypeKey = CFSTR("FileType");
inline const CFStringRef kNeedsSyncKey = CFSTR("NeedsSync");
inline const CFStringRef kLocalDataKey = CFSTR("LocalData");
inline const CFStringRef kM4R = CFSTR("m4r");

/// What KRTRingtonesPath and KRTRingtonePath say, for the phone's file functions.
inline constexpr char kRingtonesFolder[] = "/iTunes_Control/Ringtones";
inline constexpr char kCataloguePath[] = "/iTunes_Control/iTunes/Ringtones.plist";

/// Whether this is "m4r" in exactly these letters. No file type at all is another one.
bool isM4R(CFStringRef fileType);

/// Zero-terminated UTF-8; none when the text has none: lone surrogates, or a zero inside.
std::optional<std::string> utf8(CFStringRef text);

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

/// A URL of a file, not of a directory; null when the path is empty.
cf::CFRef<CFURLRef> fileURL(CFStringRef path);

/// A file's name in its parts.
struct FileName {
    cf::CFRef<CFStringRef> whole;
    cf::CFRef<CFStringRef> base;
    cf::CFRef<CFStringRef> extension; ///< empty when there is none
};

/// The last component of a path. A path that has none is taken as it stands.
FileName splitPath(CFStringRef path);

} // namespace krl::ringtones
