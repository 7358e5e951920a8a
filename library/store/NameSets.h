// Sets of names that stay quick with thousands of them.
#pragma once

#include "library/firmware111/ObjectKeys.h"

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>

#include <deque>
#include <list>

namespace krl::ringtones {

/// Names, compared unit by unit: letter case and composed accents make a difference.
class NameSet {
public:
    NameSet() = default;
    /// Of the elements of an array.
    explicit NameSet(CFArrayRef names);

    void add(CFStringRef name);
    bool contains(CFTypeRef name) const;

private:
    ObjectSet names_;
};

/// The base names in use: a list that may hold a name twice, with its names indexed.
class BaseNames {
public:
    BaseNames() = default;
    /// Of the elements of an array.
    explicit BaseNames(CFArrayRef names);

    bool contains(CFStringRef name) const { return places_.contains(cf::retain(name)); }

    void append(CFStringRef name);
    /// Removes the first occurrence, if there is one.
    void removeFirst(CFStringRef name);
    /// Draws names until one is not in use. It is not in use afterwards either.
    cf::CFRef<CFStringRef> drawUnused() const;
    /// Makes an array hold these names, in their order.
    void storeInto(CFMutableArrayRef names) const;

private:
    using Name = cf::CFRef<CFStringRef>;
    using List = std::list<Name>;

    List list_;
    ObjectMap<std::deque<List::iterator>> places_;
};

} // namespace krl::ringtones
