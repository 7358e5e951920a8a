// The lists of KRTRingtoneManager, from name to ringtone. A list may be missing, after a load that
// failed: it is then empty and takes nothing in.
#pragma once

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>

namespace krl::ringtones {

using List = cf::CFRef<CFMutableDictionaryRef>;
using Record = CFMutableDictionaryRef;

List makeList();
List copyOf(const List& list);

CFIndex countOf(const List& list);
bool has(const List& list, CFTypeRef name);
/// Null for none.
Record recordIn(const List& list, CFTypeRef name);
/// Under its name, in place of what was there; nothing without a name or a record.
void putInto(const List& list, CFTypeRef name, CFTypeRef record);
void removeFrom(const List& list, CFTypeRef name);
void removeAllFrom(const List& list);

/// A ringtone out of a list; null when it is something else. Lists hold what they got as mutable.
Record recordOf(CFTypeRef value);

/// Null when there is none, and for a null record.
CFTypeRef valueOf(CFDictionaryRef record, CFStringRef key);
CFTypeRef nameOf(CFDictionaryRef record);

} // namespace krl::ringtones
