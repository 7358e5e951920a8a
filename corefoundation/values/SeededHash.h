/// How a dictionary hashes the strings among its keys. Internal.
#pragma once

#include <CoreFoundation/CFString.h>

namespace krl::cf {

/// A hash of all units of a string, with a seed that every process draws anew. CFHash looks at 96
/// units of a long string and can be foreseen: a document with thousands of keys that all have one
/// CFHash is easily made. Nobody outside sees this hash, and no order follows from it.
CFHashCode seededHash(CFStringRef string);

} // namespace krl::cf
