// Sets of names that stay quick with thousands of them.
#pragma once

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>
#include <deque>
#include <list>
#include <unordered_map>

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
    cf::CFRef<CFMutableDictionaryRef> names_ = cf::adopt(CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
};

/// The base names in use: a list that may hold a name twice, with its names indexed.
class BaseNames {
public:
    BaseNames() = default;
    /// Of the elements of an array.
    explicit BaseNames(CFArrayRef names);

    bool contains(CFStringRef name) const { return places_.count(cf::retain(name)) != 0; }

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

    struct Hash {
        size_t operator()(const Name& name) const { return CFHash(name.get()); }
    };

    struct Equal {
        bool operator()(const Name& left, const Name& right) const {
            return CFEqual(left.get(), right.get());
        }
    };

    List list_;
    std::unordered_map<Name, std::deque<List::iterator>, Hash, Equal> places_;
};

} // namespace krl::ringtones
