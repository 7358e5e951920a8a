/// Objects from the nodes of libplist. Internal.
#pragma once

#include "corefoundation/propertylists/XMLDocument.h"

#include <CoreFoundation/CFPropertyListPlist.h>
#include <memory>

namespace krl::cf {

struct FreePlist {
    void operator()(void* node) const { plist_free(node); }
};

/// A tree of nodes that frees itself.
using PlistOwner = std::unique_ptr<void, FreePlist>;

/// A tree read from an XML document; null when libplist refuses it.
PlistOwner parseXML(std::string_view xml);

/// The objects that a tree of nodes stands for.
/// @param mutability  see kCFPropertyListImmutable and the like.
/// @return null as CFPropertyListCreateFromPlistNode does.
CFRef<CFTypeRef> readPlistNode(plist_t node, CFOptionFlags mutability,
                               const Placeholders& placeholders);

} // namespace krl::cf
