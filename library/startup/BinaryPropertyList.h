// Binary property lists, as far as the information of a plug-in needs them: its files are often
// kept in that form, which CoreFoundation's reader of this house does not read.
#pragma once

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>

namespace krl::plugin {

/// Whether the bytes say that they are a binary property list.
bool isBinaryPropertyList(CFDataRef data);

/// The string under a key of the dictionary that a binary property list is; null when the bytes
/// are something else or broken, or when there is no string under the key. Nothing is trusted: a
/// file may hold any bytes.
cf::CFRef<CFStringRef> stringInBinaryPropertyList(CFDataRef data, CFStringRef key);

} // namespace krl::plugin
