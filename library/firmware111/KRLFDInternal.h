#pragma once

#include <KRLVesk/KRTDictionary.h>

static_assert(sizeof(KRTWord) == 8, "the scramble function is the one for 64-bit words");

/// The table's record. A slot is one index into both arrays.
struct KRTDictionary {
    KRTWord _count;
    KRTWord _bucketsNum;      ///< slots, 4 * 2^n
    KRTWord _bucketsUsed;     ///< slots ever filled
    KRTWord _bucketsCap;      ///< slots that may be filled before the next rebuild, 3 * 2^n
    KRTWord _mutations;       ///< insertions and replacements, plus 1
    KRTWord _deletes;         ///< slots that hold the deleted marker
    KRTUnsignedWord _marker;  ///< key of an empty slot; its complement is the key of a deleted one
    KRTUnsignedWord* _keys;   ///< objects or markers
    KRTUnsignedWord* _values; ///< objects, 0 in empty slots
};
