// CoreFoundation objects from what a phone has sent.
#pragma once

#include <CoreFoundation/CFRef.h>
#include <plist/plist.h>

namespace krl::provider {

/// The objects that a node stands for; containers and leaves are mutable, keys are not.
/// @param node  may be null.
/// @return null for null, for a node of a type that has no object (UID, pointer), for text that is
///         not UTF-8, and for trees nested deeper than 512.
cf::CFRef<CFTypeRef> objectsOf(plist_t node);

} // namespace krl::provider
