#pragma once

#include <CoreFoundation/CFValues.h>
#include <CoreFoundation/CoreFoundation.h>

namespace krl::ringtones {

using cf::makeDictionary;
using cf::Pair;
using cf::pairsOf;

/// Takes a value out of a dictionary; null when it is not in there.
cf::CFRef<CFTypeRef> take(CFMutableDictionaryRef dictionary, CFTypeRef key);

} // namespace krl::ringtones
