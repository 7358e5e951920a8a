#pragma once

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>

#include <vector>

namespace krl::ringtones {

struct Pair {
    CFTypeRef key;
    CFTypeRef value; ///< null only where the dictionary's callbacks let one in
};

/// Keys and values in the dictionary's order, lent by it. Null is an empty dictionary.
std::vector<Pair> pairsOf(CFDictionaryRef dictionary);

/// An empty dictionary that retains its keys and values.
cf::CFRef<CFMutableDictionaryRef> makeDictionary();

/// Takes a value out of a dictionary; null when it is not in there.
cf::CFRef<CFTypeRef> take(CFMutableDictionaryRef dictionary, CFTypeRef key);

} // namespace krl::ringtones
