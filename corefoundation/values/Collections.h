/// Collections made in one go from references that are handed over. Internal.
#pragma once

#include <CoreFoundation/CFRef.h>
#include <span>

namespace krl::cf {

/// A dictionary of objects. Of a key that comes again the last value counts, at the first place.
/// @param keysAndValues  keys and values by turns; what the dictionary has taken is null afterwards.
///                       Untouched when memory runs out, which is thrown.
CFMutableDictionaryRef takeIntoDictionary(std::span<CFRef<CFTypeRef>> keysAndValues);

/// The same for an array.
CFMutableArrayRef takeIntoArray(std::span<CFRef<CFTypeRef>> values);

} // namespace krl::cf
