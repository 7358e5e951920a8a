#include "corefoundation/values/CallBacks.h"
#include "corefoundation/values/Collections.h"
#include "corefoundation/values/SeededHash.h"

#include <CoreFoundation/CFDictionary.h>
#include <algorithm>
#include <bit>
#include <span>

const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks = {0,
                                                                krl::cf::retainObject,
                                                                krl::cf::releaseObject,
                                                                krl::cf::copyObjectDescription,
                                                                krl::cf::equalObjects,
                                                                krl::cf::hashObject};
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {
    0, krl::cf::retainObject, krl::cf::releaseObject, krl::cf::copyObjectDescription,
    krl::cf::equalObjects};

namespace krl::cf {

using KeyCallBacks = CallBacks<CFDictionaryKeyCallBacks>;
using ValueCallBacks = CallBacks<CFDictionaryValueCallBacks>;

/// One pair, or the hole that a removed one has left.
struct DictionaryEntry {
    const void* key;
    const void* value;
    CFHashCode hash; ///< see hashKey
};

} // namespace krl::cf

/// The entries stand in one row, in the order in which they were added; a removed one leaves a hole
/// until the next compaction. Above a handful of entries, slots lead from hashes to entries: open
/// addressing, probed linearly, slotCount a power of two.
struct __CFDictionary {
    CFObjectHeader header;
    CFIndex count;     ///< pairs
    uint32_t used;     ///< entries, holes included
    uint32_t capacity; ///< entries that there is room for
    krl::cf::DictionaryEntry* entries;
    uint32_t* slots; ///< null in a small dictionary
    uint32_t slotCount;
    krl::cf::KeyCallBacks keyCallBacks;
    krl::cf::ValueCallBacks valueCallBacks;
};

namespace krl::cf {
namespace {

/// The key of a hole.
const char kHole = 0;

constexpr uint32_t kFreeSlot = UINT32_MAX;
constexpr uint32_t kNoEntry = UINT32_MAX;
/// Up to here looking at every entry is quicker than hashing into slots.
constexpr uint32_t kLargestWithoutSlots = 8;

__CFDictionary& dictionaryOf(CFTypeRef object) {
    return mutableRecordOf<__CFDictionary>(object);
}

bool isHole(const DictionaryEntry& entry) {
    return entry.key == &kHole;
}

std::span<DictionaryEntry> entriesOf(const __CFDictionary& dictionary) {
    return {dictionary.entries, dictionary.used};
}

/// The keys' own hash, except for strings: theirs can be made to collide from outside.
CFHashCode hashKey(const __CFDictionary& dictionary, const void* key) {
    const bool isString = key != nullptr && dictionary.keyCallBacks.hashesObjects() &&
                          recordOf<CFObjectHeader>(key).typeID == kStringTypeID;
    return isString ? seededHash(static_cast<CFStringRef>(key)) : dictionary.keyCallBacks.hash(key);
}

/// Where the search for a hash begins. The low bits of many hashes are alike, so all bits count.
uint32_t firstSlot(const __CFDictionary& dictionary, CFHashCode hash) {
    constexpr CFHashCode kGoldenRatio = 0x9E3779B97F4A7C15;
    return static_cast<uint32_t>((hash * kGoldenRatio) >> 32) & (dictionary.slotCount - 1);
}

uint32_t nextSlot(const __CFDictionary& dictionary, uint32_t slot) {
    return (slot + 1) & (dictionary.slotCount - 1);
}

bool matches(const __CFDictionary& dictionary, const DictionaryEntry& entry, const void* key,
             CFHashCode hash) {
    return entry.hash == hash && !isHole(entry) && dictionary.keyCallBacks.equal(entry.key, key);
}

uint32_t findEntry(const __CFDictionary& dictionary, const void* key, CFHashCode hash) {
    if (dictionary.slots == nullptr) {
        for (uint32_t i = 0; i < dictionary.used; ++i) {
            if (matches(dictionary, dictionary.entries[i], key, hash)) {
                return i;
            }
        }
        return kNoEntry;
    }
    for (uint32_t slot = firstSlot(dictionary, hash); dictionary.slots[slot] != kFreeSlot;
         slot = nextSlot(dictionary, slot)) {
        const uint32_t index = dictionary.slots[slot];
        if (matches(dictionary, dictionary.entries[index], key, hash)) {
            return index;
        }
    }
    return kNoEntry;
}

const DictionaryEntry* find(const __CFDictionary& dictionary, const void* key) {
    if (dictionary.count == 0) {
        return nullptr;
    }
    const uint32_t index = findEntry(dictionary, key, hashKey(dictionary, key));
    return index == kNoEntry ? nullptr : &dictionary.entries[index];
}

void enterSlot(__CFDictionary& dictionary, uint32_t index) {
    uint32_t slot = firstSlot(dictionary, dictionary.entries[index].hash);
    while (dictionary.slots[slot] != kFreeSlot) {
        slot = nextSlot(dictionary, slot);
    }
    dictionary.slots[slot] = index;
}

/// Makes slots for twice as many entries as there is room for, and enters all.
void rebuildSlots(__CFDictionary& dictionary) {
    std::free(dictionary.slots);
    dictionary.slots = nullptr;
    if (dictionary.capacity <= kLargestWithoutSlots) {
        return;
    }
    dictionary.slotCount = std::bit_ceil(dictionary.capacity * 2);
    dictionary.slots =
        static_cast<uint32_t*>(allocate(dictionary.slotCount * sizeof(*dictionary.slots)));
    std::fill_n(dictionary.slots, dictionary.slotCount, kFreeSlot);
    for (uint32_t i = 0; i < dictionary.used; ++i) {
        enterSlot(dictionary, i);
    }
}

void compact(__CFDictionary& dictionary) {
    const auto entries = entriesOf(dictionary);
    const auto end = std::remove_if(entries.begin(), entries.end(), isHole);
    dictionary.used = static_cast<uint32_t>(end - entries.begin());
}

/// Makes room for capacity entries, without holes.
void resize(__CFDictionary& dictionary, uint32_t capacity) {
    compact(dictionary);
    dictionary.capacity = capacity;
    dictionary.entries = static_cast<DictionaryEntry*>(
        reallocate(dictionary.entries, capacity * sizeof(DictionaryEntry)));
    rebuildSlots(dictionary);
}

void reserveEntry(__CFDictionary& dictionary) {
    if (dictionary.used < dictionary.capacity) {
        return;
    }
    // With as many holes as pairs, taking them out makes room enough to pay for itself.
    const bool grows = static_cast<uint32_t>(dictionary.count) * 2 > dictionary.capacity;
    resize(dictionary, grows ? dictionary.capacity * 2 : dictionary.capacity);
}

/// Adds an entry, whose references it takes over, at the end, where there must be room.
void appendEntry(__CFDictionary& dictionary, const DictionaryEntry& entry) {
    dictionary.entries[dictionary.used] = entry;
    if (dictionary.slots != nullptr) {
        enterSlot(dictionary, dictionary.used);
    }
    ++dictionary.used;
    ++dictionary.count;
}

/// The same with references of its own.
void appendRetained(__CFDictionary& dictionary, const DictionaryEntry& entry) {
    appendEntry(dictionary, {dictionary.keyCallBacks.retain(entry.key),
                             dictionary.valueCallBacks.retain(entry.value), entry.hash});
}

enum class Put { Always, IfAbsent, IfPresent };

void put(__CFDictionary& dictionary, const void* key, const void* value, Put when) {
    if (!dictionary.keyCallBacks.accepts(key) || !dictionary.valueCallBacks.accepts(value)) {
        return;
    }
    const CFHashCode hash = hashKey(dictionary, key);
    const uint32_t index = findEntry(dictionary, key, hash);
    if (index != kNoEntry) {
        if (when != Put::IfAbsent) {
            const void* old = std::exchange(dictionary.entries[index].value,
                                            dictionary.valueCallBacks.retain(value));
            dictionary.valueCallBacks.release(old);
        }
        return;
    }
    if (when == Put::IfPresent) {
        return;
    }
    reserveEntry(dictionary);
    appendRetained(dictionary, {key, value, hash});
}

__CFDictionary* createDictionary(CFIndex capacity, const KeyCallBacks& keyCallBacks,
                                 const ValueCallBacks& valueCallBacks) {
    constexpr CFIndex kSmallest = 4;
    const auto room = static_cast<uint32_t>(std::max(capacity, kSmallest));
    auto* dictionary = createObject<__CFDictionary>(
        kDictionaryTypeID, 0, CFIndex{0}, 0U, 0U, static_cast<DictionaryEntry*>(nullptr),
        static_cast<uint32_t*>(nullptr), 0U, keyCallBacks, valueCallBacks);
    auto owner = adopt(dictionary); // memory may run out
    resize(*dictionary, room);
    return owner.leak();
}

__CFDictionary* copyDictionary(const __CFDictionary& source) {
    __CFDictionary* copy =
        createDictionary(source.count, source.keyCallBacks, source.valueCallBacks);
    for (const DictionaryEntry& entry : entriesOf(source)) {
        if (!isHole(entry)) {
            appendRetained(*copy, entry);
        }
    }
    return copy;
}

__CFDictionary* asMutable(__CFDictionary* dictionary) {
    dictionary->header.flags |= kMutableFlag;
    return dictionary;
}

void releaseEntries(const __CFDictionary& dictionary, std::span<const DictionaryEntry> entries) {
    for (const DictionaryEntry& entry : entries) {
        if (!isHole(entry)) {
            dictionary.keyCallBacks.release(entry.key);
            dictionary.valueCallBacks.release(entry.value);
        }
    }
}

void finalizeDictionary(CFTypeRef object) {
    __CFDictionary& dictionary = dictionaryOf(object);
    releaseEntries(dictionary, entriesOf(dictionary));
    std::free(dictionary.entries);
    std::free(dictionary.slots);
    dictionary.keyCallBacks.~KeyCallBacks();
    dictionary.valueCallBacks.~ValueCallBacks();
}

bool equalDictionaries(CFTypeRef left, CFTypeRef right) {
    const __CFDictionary& one = dictionaryOf(left);
    const __CFDictionary& other = dictionaryOf(right);
    const auto entries = entriesOf(one);
    return one.count == other.count &&
           std::all_of(entries.begin(), entries.end(), [&](const DictionaryEntry& entry) {
               if (isHole(entry)) {
                   return true;
               }
               const DictionaryEntry* match = find(other, entry.key);
               return match != nullptr && one.valueCallBacks.equal(entry.value, match->value);
           });
}

CFHashCode hashDictionary(CFTypeRef object) {
    return static_cast<CFHashCode>(dictionaryOf(object).count);
}

CFStringRef copyDictionaryDescription(CFTypeRef object) {
    const __CFDictionary& dictionary = dictionaryOf(object);
    CFMutableStringRef description = CFStringCreateMutable(nullptr, 0);
    CFStringAppend(description, CFSTR("{"));
    for (const DictionaryEntry& entry : entriesOf(dictionary)) {
        if (!isHole(entry)) {
            auto key = adopt(dictionary.keyCallBacks.copyDescription(entry.key));
            auto value = adopt(dictionary.valueCallBacks.copyDescription(entry.value));
            CFStringAppendFormat(description, nullptr, CFSTR("%s%@ = %@"),
                                 CFStringGetLength(description) > 1 ? "; " : "", key.get(),
                                 value.get());
        }
    }
    CFStringAppend(description, CFSTR("}"));
    return freeze(description);
}

} // namespace

constinit const ClassTable kDictionaryClass{"CFDictionary", finalizeDictionary, equalDictionaries,
                                            hashDictionary, copyDictionaryDescription};

CFMutableDictionaryRef takeIntoDictionary(std::span<CFRef<CFTypeRef>> keysAndValues) {
    __CFDictionary* dictionary = createDictionary(
        static_cast<CFIndex>(keysAndValues.size() / 2),
        KeyCallBacks(&kCFTypeDictionaryKeyCallBacks, kCFTypeDictionaryKeyCallBacks),
        ValueCallBacks(&kCFTypeDictionaryValueCallBacks, kCFTypeDictionaryValueCallBacks));
    for (size_t i = 0; i < keysAndValues.size(); i += 2) {
        CFRef<CFTypeRef>& key = keysAndValues[i];
        CFRef<CFTypeRef>& value = keysAndValues[i + 1];
        const CFHashCode hash = hashKey(*dictionary, key.get());
        const uint32_t index = findEntry(*dictionary, key.get(), hash);
        if (index == kNoEntry) {
            appendEntry(*dictionary, {key.leak(), value.leak(), hash});
        } else {
            CFRelease(std::exchange(dictionary->entries[index].value, value.leak()));
        }
    }
    return asMutable(dictionary);
}

} // namespace krl::cf

using namespace krl::cf;

CFTypeID CFDictionaryGetTypeID() noexcept {
    return kDictionaryTypeID;
}

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef, const void** keys, const void** values,
                                   CFIndex numValues, const CFDictionaryKeyCallBacks* keyCallBacks,
                                   const CFDictionaryValueCallBacks* valueCallBacks) {
    __CFDictionary* dictionary =
        createDictionary(numValues, KeyCallBacks(keyCallBacks, kCFTypeDictionaryKeyCallBacks),
                         ValueCallBacks(valueCallBacks, kCFTypeDictionaryValueCallBacks));
    for (CFIndex i = 0; i < numValues; ++i) {
        put(*dictionary, keys[i], values[i], Put::Always);
    }
    return dictionary;
}

CFDictionaryRef CFDictionaryCreateCopy(CFAllocatorRef, CFDictionaryRef dictionary) {
    if (!isMutable(dictionary)) {
        return retain(dictionary).leak();
    }
    return copyDictionary(*dictionary);
}

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef, CFIndex capacity,
                                                 const CFDictionaryKeyCallBacks* keyCallBacks,
                                                 const CFDictionaryValueCallBacks* valueCallBacks) {
    constexpr CFIndex kLargestHint = 1024;
    return asMutable(createDictionary(
        std::min(capacity, kLargestHint), KeyCallBacks(keyCallBacks, kCFTypeDictionaryKeyCallBacks),
        ValueCallBacks(valueCallBacks, kCFTypeDictionaryValueCallBacks)));
}

CFMutableDictionaryRef CFDictionaryCreateMutableCopy(CFAllocatorRef, CFIndex,
                                                     CFDictionaryRef dictionary) {
    return asMutable(copyDictionary(*dictionary));
}

CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary) noexcept {
    return dictionary->count;
}

const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key) noexcept {
    const DictionaryEntry* entry = find(*dictionary, key);
    return entry != nullptr ? entry->value : nullptr;
}

Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef dictionary, const void* key,
                                      const void** value) noexcept {
    const DictionaryEntry* entry = find(*dictionary, key);
    if (entry != nullptr && value != nullptr) {
        *value = entry->value;
    }
    return entry != nullptr;
}

Boolean CFDictionaryContainsKey(CFDictionaryRef dictionary, const void* key) noexcept {
    return find(*dictionary, key) != nullptr;
}

void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys,
                                  const void** values) noexcept {
    for (const DictionaryEntry& entry : entriesOf(*dictionary)) {
        if (isHole(entry)) {
            continue;
        }
        if (keys != nullptr) {
            *keys++ = entry.key;
        }
        if (values != nullptr) {
            *values++ = entry.value;
        }
    }
}

void CFDictionaryApplyFunction(CFDictionaryRef dictionary, CFDictionaryApplierFunction applier,
                               void* context) {
    for (const DictionaryEntry& entry : entriesOf(*dictionary)) {
        if (!isHole(entry)) {
            applier(entry.key, entry.value, context);
        }
    }
}

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value) {
    put(*dictionary, key, value, Put::Always);
}

void CFDictionaryAddValue(CFMutableDictionaryRef dictionary, const void* key, const void* value) {
    put(*dictionary, key, value, Put::IfAbsent);
}

void CFDictionaryReplaceValue(CFMutableDictionaryRef dictionary, const void* key,
                              const void* value) {
    put(*dictionary, key, value, Put::IfPresent);
}

void CFDictionaryRemoveValue(CFMutableDictionaryRef dictionary, const void* key) noexcept {
    const uint32_t index = findEntry(*dictionary, key, hashKey(*dictionary, key));
    if (index == kNoEntry) {
        return;
    }
    // The slot keeps leading to the hole, so that searches still pass over it.
    DictionaryEntry& entry = dictionary->entries[index];
    const DictionaryEntry old = std::exchange(entry, {&kHole, nullptr, entry.hash});
    --dictionary->count;
    releaseEntries(*dictionary, {&old, 1});
}

void CFDictionaryRemoveAllValues(CFMutableDictionaryRef dictionary) noexcept {
    // Releasing the last reference of a value may run code that looks at this dictionary.
    const std::span<const DictionaryEntry> entries = entriesOf(*dictionary);
    dictionary->entries = nullptr;
    dictionary->used = 0;
    dictionary->count = 0;
    resize(*dictionary, kLargestWithoutSlots);
    releaseEntries(*dictionary, entries);
    std::free(const_cast<DictionaryEntry*>(entries.data()));
}
