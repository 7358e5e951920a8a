#include "library/firmware111/KRLFDInternal.h"

#include "library/errors/ErrorReport.h"
#include "library/firmware111/SlotProbe.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>

using krl::objectOf;
using krl::wordOf;

namespace {

constexpr krl::ErrorReporter reportError{"KRLFDInternal"};

constexpr KRTUnsignedWord kFirstMarker = 0xA1B1C1D3;

enum ErrorCode { kNullKey = 0, kNullValue = 1, kNullTable = 2 };

/// How often the smallest table is to be doubled to hold n entries.
int doublingsFor(KRTWord n) {
    constexpr KRTWord kSmallestCapacity = 3;
    return n > kSmallestCapacity ? krl_flsl((n - 1) / kSmallestCapacity) : 0;
}

KRTUnsignedWord* allocateWords(KRTWord count) {
    constexpr KRTWord kMostWords = INTPTR_MAX / static_cast<KRTWord>(sizeof(KRTUnsignedWord));
    if (count > kMostWords) {
        return nullptr;
    }
    const auto size = static_cast<size_t>(count) * sizeof(KRTUnsignedWord);
    return static_cast<KRTUnsignedWord*>(std::malloc(size));
}

/// Whether a slot holds the word that would mark empty slots, or the one that would mark deleted
/// ones.
bool holdsMarker(const KRTDictionary& table, KRTUnsignedWord marker) {
    return std::any_of(table._keys, table._keys + table._bucketsNum,
                       [marker](KRTUnsignedWord key) { return key == marker || key == ~marker; });
}

/// Checks the arguments of an insertion; the first one that is missing is the one reported.
bool checkArguments(const KRTDictionary* dictionary, const void* value, const void* key) {
    if (!key) {
        reportError(kNullKey);
        std::puts("Key was NULL!");
        if (!value) {
            std::puts("Value was NULL!");
        }
        return false;
    }
    if (!value) {
        reportError(kNullValue);
        std::puts("Value was NULL!");
        return false;
    }
    if (!dictionary) {
        reportError(kNullTable);
        return false;
    }
    return true;
}

void replaceValue(KRTDictionary& table, KRTWord slot, const void* value) {
    const KRTUnsignedWord key = table._keys[slot];
    table._keys[slot] = ~table._marker;
    // Contract: on replacing, the marker is tested against the address of the record, not against
    // the key. The key is not changed, so nothing is missed.
    // [SlotTableOfWords.ReplacingTestsTheAddressOfTheRecordNotTheKey]
    if (KRTDictionaryHashKeyIsMagic(&table, wordOf(&table))) {
        KRTDictionaryFindNewMarker(&table);
    }
    table._keys[slot] = key;
    table._values[slot] = wordOf(value);
}

void fillSlot(KRTDictionary& table, KRTWord slot, const void* value, const void* key) {
    if (KRTDictionaryHashKeyIsMagic(&table, wordOf(key))) {
        KRTDictionaryFindNewMarker(&table);
    }
    // NOLINTNEXTLINE(clang-analyzer-core.UndefinedBinaryOperatorResult): a probe gave the slot
    if (table._keys[slot] == ~table._marker) {
        --table._deletes;
    }
    table._keys[slot] = wordOf(key);
    table._values[slot] = wordOf(value);
    ++table._bucketsUsed;
    ++table._count;
}

} // namespace

int krl_flsl(KRTWord word) {
    return static_cast<int>(std::bit_width(static_cast<KRTUnsignedWord>(word)));
}

KRTWord __KRTHashRoundUpCapacity(KRTWord n) {
    return KRTWord{3} << doublingsFor(n);
}

KRTWord __KRTHashNumBucketsForCapacity(KRTWord n) {
    return KRTWord{4} << doublingsFor(n);
}

KRTUnsignedWord __KRTDictionaryScrambleHash(KRTUnsignedWord k) {
    KRTUnsignedWord a = k + 0xDB0300492813010A;
    KRTUnsignedWord b = (0x8D6271D7234E6D5A - k) ^ (a << 9);
    KRTUnsignedWord c = (0x24FCFFB6D7ECFEF7 - k - b) ^ (b >> 8);
    a = (a - b - c) ^ (c >> 38);
    b = (b - c - a) ^ (a << 23);
    c = (c - a - b) ^ (b >> 5);
    a = (a - b - c) ^ (c >> 35);
    b = (b - c - a) ^ (a << 49);
    c = (c - a - b) ^ (b >> 11);
    a = (a - b - c) ^ (c >> 12);
    b = (b - c - a) ^ (a << 18);
    return (c - a - b) ^ (b >> 22);
}

KRTDictionary* KRTDictionaryWithCapacity(KRTWord capacity) {
    auto* dictionary = static_cast<KRTDictionary*>(std::malloc(sizeof(KRTDictionary)));
    if (!dictionary) {
        return nullptr;
    }
    *dictionary = {};
    dictionary->_mutations = 1;
    dictionary->_marker = kFirstMarker;
    KRTDictionaryGrow(dictionary, capacity);
    return dictionary;
}

void KRTDictionaryRelease(KRTDictionary* dictionary) {
    std::free(dictionary->_keys);
    std::free(dictionary->_values);
    std::free(dictionary);
}

void KRTDictionarySetObjectForKey(KRTDictionary* dictionary, const void* value, const void* key) {
    if (!checkArguments(dictionary, value, key)) {
        return;
    }
    // Contract: a full table is rebuilt before it is known whether the key is new, so that
    // replacing a value may change the order.
    // [SlotTable.AFullTableIsRebuiltAlsoForAKeyThatIsPresent]
    if (dictionary->_bucketsUsed == dictionary->_bucketsCap || !dictionary->_keys) {
        KRTDictionaryGrow(dictionary, 1);
    }
    ++dictionary->_mutations;
    KRTWord found = -1;
    KRTWord freeSlot = -1;
    KRTDictionaryFB2(dictionary, key, &found, &freeSlot);
    if (found != -1) {
        replaceValue(*dictionary, found, value);
    } else {
        fillSlot(*dictionary, freeSlot, value, key);
    }
}

KRTWord KRTDictionaryGetCount(const KRTDictionary* dictionary) {
    return dictionary->_count;
}

void KRTDictionaryGetKeysAndValues(const KRTDictionary* dictionary, const void** keys,
                                   const void** values) {
    for (KRTWord i = 0; i < dictionary->_bucketsNum; ++i) {
        if (KRTDictionaryHashKeyIsValue(dictionary, dictionary->_keys[i])) {
            *keys++ = objectOf(dictionary->_keys[i]);
            *values++ = objectOf(dictionary->_values[i]);
        }
    }
}

void KRTDictionaryGrow(KRTDictionary* dictionary, KRTWord extra) {
    KRTUnsignedWord* const oldKeys = dictionary->_keys;
    KRTUnsignedWord* const oldValues = dictionary->_values;
    const KRTWord oldBucketsNum = dictionary->_bucketsNum;

    dictionary->_bucketsCap = __KRTHashRoundUpCapacity(dictionary->_bucketsUsed + extra);
    dictionary->_deletes = 0;
    dictionary->_bucketsNum = __KRTHashNumBucketsForCapacity(dictionary->_bucketsCap);

    // Contract: when memory is exhausted the record keeps the new counts beside whatever arrays it
    // has by then, and nobody is told.
    // [SlotTableOfWords.WithoutMemoryARebuildKeepsTheOldSlotsUnderNewCounts]
    KRTUnsignedWord* const keys = allocateWords(dictionary->_bucketsNum);
    if (!keys) {
        return;
    }
    dictionary->_keys = keys;
    KRTUnsignedWord* const values = allocateWords(dictionary->_bucketsNum);
    if (!values) {
        return;
    }
    dictionary->_values = values;

    for (KRTWord i = 0; i < dictionary->_bucketsNum; ++i) {
        keys[i] = dictionary->_marker;
        values[i] = 0;
    }
    if (!oldKeys) {
        return;
    }
    // The old slot order decides which of two keys that meet in one slot comes first.
    for (KRTWord i = 0; i < oldBucketsNum; ++i) {
        if (!KRTDictionaryHashKeyIsValue(dictionary, oldKeys[i])) {
            continue;
        }
        KRTWord found = -1;
        KRTWord freeSlot = -1;
        KRTDictionaryFB2(dictionary, objectOf(oldKeys[i]), &found, &freeSlot);
        if (found != -1) {
            // Contract: keys that have become equal end the rebuild, and the old arrays are not
            // freed. [SlotTableOfWords.KeysThatHaveBecomeEqualEndTheRebuildAndTheOldSlotsAreKept]
            return;
        }
        if (freeSlot != -1) {
            keys[freeSlot] = oldKeys[i];
            values[freeSlot] = oldValues[i];
        }
    }
    std::free(oldKeys);
    std::free(oldValues);
}

void KRTDictionaryFB2(const KRTDictionary* dictionary, const void* key, KRTWord* found,
                      KRTWord* freeSlot) {
    krl::Probe probe;
    if (key) {
        // Contract: of the marker only the low 32 bits count here. It starts there and only goes
        // down. [SlotTableOfWords.OfTheMarkerTheProbeReadsThirtyTwoBits]
        probe = krl::probeSlots(dictionary->_keys, dictionary->_bucketsNum, CFHash(key),
                                static_cast<uint32_t>(dictionary->_marker),
                                [key](KRTUnsignedWord word) {
                                    return word == wordOf(key) || CFEqual(key, objectOf(word));
                                });
    }
    krl::storeProbe(probe, found, freeSlot);
}

void KRTDictionaryFindNewMarker(KRTDictionary* dictionary) {
    const KRTUnsignedWord oldMarker = dictionary->_marker;
    KRTUnsignedWord marker = oldMarker;
    do {
        --marker;
    } while (holdsMarker(*dictionary, marker));

    for (KRTWord i = 0; i < dictionary->_bucketsNum; ++i) {
        KRTUnsignedWord& key = dictionary->_keys[i];
        if (key == oldMarker) {
            key = marker;
        } else if (key == ~oldMarker) {
            key = ~marker;
        }
    }
    dictionary->_marker = marker;
}

int KRTDictionaryHashKeyIsValue(const KRTDictionary* dictionary, KRTUnsignedWord word) {
    return !KRTDictionaryHashKeyIsMagic(dictionary, word);
}

int KRTDictionaryHashKeyIsMagic(const KRTDictionary* dictionary, KRTUnsignedWord word) {
    return word == dictionary->_marker || word == ~dictionary->_marker;
}
