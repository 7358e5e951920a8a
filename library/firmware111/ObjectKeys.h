// Sets and maps of objects that stay quick whatever the objects are.
#pragma once

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>
#include <unordered_map>
#include <unordered_set>

namespace krl {

/// Looks at all of a string. CFHash looks at a part of a long one, so that names can be made that
/// all have one hash.
struct WholeHash {
    size_t operator()(const cf::CFRef<CFTypeRef>& object) const;
};

struct SameObject {
    bool operator()(const cf::CFRef<CFTypeRef>& one, const cf::CFRef<CFTypeRef>& other) const {
        return CFEqual(one.get(), other.get());
    }
};

using ObjectSet = std::unordered_set<cf::CFRef<CFTypeRef>, WholeHash, SameObject>;

template <typename Value>
using ObjectMap = std::unordered_map<cf::CFRef<CFTypeRef>, Value, WholeHash, SameObject>;

} // namespace krl
