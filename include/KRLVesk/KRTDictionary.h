/**
 * @file
 * The slot hash table: walks its entries in the order in which the dictionaries of firmware 1.1.1
 * do.
 *
 * Keys and values are CoreFoundation objects that the table neither retains nor copies: they must
 * outlive it, and keys must not change meanwhile. There is no removal and no lookup; order is all
 * it is for.
 */
#ifndef KRLVESK_KRTDICTIONARY_H
#define KRLVESK_KRTDICTIONARY_H

#include <KRLVesk/KRLBase.h>

KRL_BEGIN_C

/** A word of the machine. */
typedef intptr_t KRTWord;
/** A word of the machine without a sign. */
typedef uintptr_t KRTUnsignedWord;

/** The table; its fields are not part of the interface. */
typedef struct KRTDictionary KRTDictionary;

/** Makes a table with room for capacity entries at least. NULL when memory is exhausted. */
KRL_EXPORT KRTDictionary* KRTDictionaryWithCapacity(KRTWord capacity);

/** Frees the table. Keys and values are untouched. */
KRL_EXPORT void KRTDictionaryRelease(KRTDictionary* dictionary);

/** Inserts, or replaces the value of an equal key, whose first object stays. Note the order: value
 *  before key. A full table is rebuilt first, also for a key that it has, which may change the
 * order. A NULL key (code 0), value (1) or table (2) is recorded as an error and changes nothing.
 */
KRL_EXPORT void KRTDictionarySetObjectForKey(KRTDictionary* dictionary, const void* value,
                                             const void* key);

/** Number of entries. */
KRL_EXPORT KRTWord KRTDictionaryGetCount(const KRTDictionary* dictionary);

/** Keys and values in slot order, into two arrays with room for all entries. */
KRL_EXPORT void KRTDictionaryGetKeysAndValues(const KRTDictionary* dictionary, const void** keys,
                                              const void** values);

/** Rebuilds the slots for the filled ones and extra more, in old slot order. */
KRL_EXPORT void KRTDictionaryGrow(KRTDictionary* dictionary, KRTWord extra);

/**
 * The probe: where a key is, or where it would go. Slots are counted from 0.
 *
 * @param key       NULL is found nowhere and goes nowhere
 * @param found     out: the slot of an equal key, or -1
 * @param freeSlot  out: the slot that an insertion would fill, or -1; may be NULL
 */
KRL_EXPORT void KRTDictionaryFB2(const KRTDictionary* dictionary, const void* key, KRTWord* found,
                                 KRTWord* freeSlot);

/** Chooses another empty marker, one that no key equals. */
KRL_EXPORT void KRTDictionaryFindNewMarker(KRTDictionary* dictionary);

/** 1 unless the word is the empty or the deleted marker. */
KRL_EXPORT int KRTDictionaryHashKeyIsValue(const KRTDictionary* dictionary, KRTUnsignedWord word);

/** 1 if the word is the empty or the deleted marker. */
KRL_EXPORT int KRTDictionaryHashKeyIsMagic(const KRTDictionary* dictionary, KRTUnsignedWord word);

/** Mixes a hash value. */
KRL_EXPORT KRTUnsignedWord __KRTDictionaryScrambleHash(KRTUnsignedWord hash);

/** The capacity, 3 * 2^k, that a table for n entries has. */
KRL_EXPORT KRTWord __KRTHashRoundUpCapacity(KRTWord n);

/** The number of slots, 4 * 2^k, for a capacity. */
KRL_EXPORT KRTWord __KRTHashNumBucketsForCapacity(KRTWord n);

/** Position of the highest set bit, counted from 1; 0 for 0. */
KRL_EXPORT int krl_flsl(KRTWord word);

KRL_END_C

#endif
