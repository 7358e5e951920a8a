// The probe of the slot tables: linear, from the place that a key's scrambled hash gives.
#pragma once

#include <KRLVesk/KRTDictionary.h>

#include <cstddef>

namespace krl {

/// What a slot holds: an object as a word, or a marker.
inline KRTUnsignedWord wordOf(const void* object) {
    return reinterpret_cast<KRTUnsignedWord>(object);
}

inline const void* objectOf(KRTUnsignedWord word) {
    return reinterpret_cast<const void*>(word);
}

struct Probe {
    KRTWord found = -1;    ///< the slot of the key, or -1
    KRTWord freeSlot = -1; ///< the first slot on the way that an insertion could fill, or -1
};

/// @param slotCount  a power of two
/// @param hash       of the key, as CFHash gives it
/// @param empty      the word of an empty slot; its complement is that of a deleted one
/// @param isKey      bool(KRTUnsignedWord): whether a slot's object is the key
template <typename IsKey>
Probe probeSlots(const KRTUnsignedWord* slots, KRTWord slotCount, KRTUnsignedWord hash,
                 KRTUnsignedWord empty, IsKey isKey) {
    const auto mask = static_cast<KRTUnsignedWord>(slotCount - 1);
    const auto start = static_cast<KRTWord>(__KRTDictionaryScrambleHash(hash) & mask);
    Probe probe;
    KRTWord i = start;
    do {
        // A table is probed with as many slots as its count says.
        // NOLINTNEXTLINE(clang-analyzer-core.NullDereference, clang-analyzer-core.uninitialized.*)
        const KRTUnsignedWord word = slots[i];
        if (word == empty || word == ~empty) {
            // The first deleted slot is the one to use; no later one replaces it.
            if (probe.freeSlot == -1) {
                probe.freeSlot = i;
            }
            if (word == empty) {
                return probe;
            }
        } else if (isKey(word)) {
            probe.found = i;
            return probe;
        }
        i = i + 1 < slotCount ? i + 1 : 0;
    } while (i != start);
    return probe;
}

/// Hands the result of a probe to a caller that may not ask for the free slot.
inline void storeProbe(const Probe& probe, KRTWord* found, KRTWord* freeSlot) {
    *found = probe.found;
    if (freeSlot != nullptr) {
        *freeSlot = probe.freeSlot;
    }
}

} // namespace krl
