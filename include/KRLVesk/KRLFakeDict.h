/**
 * @file
 * The slot hash table of KRTDictionary.h as an object that owns its keys and values.
 */
#ifndef KRLVESK_KRLFAKEDICT_H
#define KRLVESK_KRLFAKEDICT_H

#include <KRLVesk/KRTDictionary.h>

KRL_BEGIN_C

/** Position of the highest set bit, counted from 1; 0 for 0. The same as krl_flsl. */
KRL_EXPORT int flsl(KRTWord word);

/** Mixes a hash value. The same as __KRTDictionaryScrambleHash. */
KRL_EXPORT KRTUnsignedWord __KRLDictionaryScrambleHash(KRTUnsignedWord hash);

/** The capacity for n entries. The same as __KRTHashRoundUpCapacity. */
KRL_EXPORT KRTWord __KRLHashRoundUpCapacity(KRTWord n);

/** The number of slots for a capacity. The same as __KRTHashNumBucketsForCapacity. */
KRL_EXPORT KRTWord __KRLHashNumBucketsForCapacity(KRTWord n);

KRL_END_C

#ifdef __cplusplus

#include <CoreFoundation/CFRef.h>
#include <KRLVesk/KRLException.h>

#include <memory>
#include <vector>

/**
 * A dictionary whose keys come out in the order in which firmware 1.1.1 walks them: in the order of
 * its slots, the same as from a KRTDictionary that was filled in the same way.
 *
 *     auto order = KRLFakeDict::initWithCapacity(10);
 *     order->setObject(entry, CFSTR("ABCD.m4r"));
 *     auto names = order->keyEnumerator();
 *
 * It owns copies of its keys and values: strings, data, arrays and dictionaries are copied as their
 * Copy functions do it (an array's elements are shared), other objects are retained. Keys are told
 * apart with CFHash and CFEqual, and must not change in either while they are inside: an array of
 * mutable strings is a poor key. Values cannot be read back, nothing can be looked up or removed:
 * order is all it is for.
 *
 * Not synchronised: one thread at a time. The methods that say so throw KRLException; nothing is
 * ever caught inside. All other failures to get memory throw std::bad_alloc.
 */
class KRL_EXPORT KRLFakeDict final {
public:
    /** An empty dictionary with room for 3 entries, whose slots are made by the first insertion. */
    static std::unique_ptr<KRLFakeDict> init();

    /**
     * An empty dictionary with slots for capacity entries at least.
     * @throws KRLException "OutOfMemory"
     */
    static std::unique_ptr<KRLFakeDict> initWithCapacity(KRTWord capacity);

    KRLFakeDict(const KRLFakeDict&) = delete;
    KRLFakeDict& operator=(const KRLFakeDict&) = delete;

    /** Gives all keys and values back. */
    ~KRLFakeDict();

    /**
     * Inserts a copy of the object under a copy of the key. When an equal key is there, that key
     * and its place stay and only the object is replaced. A full dictionary is rebuilt before, also
     * when the key turns out to be there, and that may change the order. Neither argument is
     * checked for null: a null object leaves the key without a value, a null key is a key like
     * another.
     *
     * @throws KRLException "OutOfMemory": the new slots could not be made; nothing was inserted,
     * what was there is still there, and the next insertion tries again. "HashError": two keys have
     *         become equal; the keys that had not found their slot by then are gone.
     */
    void setObject(CFTypeRef object, CFTypeRef forKey);

    /** The keys in slot order, as they are now. */
    krl::cf::CFRef<CFArrayRef> keyEnumerator() const;

    /** The keys in slot order, each as its description followed by a line end. */
    krl::cf::CFRef<CFStringRef> description() const;

    // What the insertion is made of.

    /** Chooses another empty marker, lower by a multiple of the word size, that no key equals. */
    void fNM();

    /** Whether the word is neither the empty nor the deleted marker. */
    bool __hkv(KRTUnsignedWord word) const;

    /** Whether the word is the empty or the deleted marker. */
    bool __hkm(KRTUnsignedWord word) const;

    /**
     * The probe.
     * @param found     receives the slot of an equal key, or -1
     * @param freeSlot  receives the slot where the key would go, or -1; may be null
     */
    void fb(CFTypeRef key, KRTWord* found, KRTWord* freeSlot) const;

    /** Rebuilds the slots for the filled ones and extra more, in old slot order. Throws as
     * setObject does. */
    void _dg(KRTWord extra);

private:
    KRL_PRIVATE KRLFakeDict();

    KRTWord _count = 0;
    KRTWord _bucketsNum = 0;
    KRTWord _bucketsUsed = 0;
    KRTWord _bucketsCap = 3;
    KRTWord _mutations = 1;
    KRTWord _deletes = 0;
    [[maybe_unused]] KRTUnsignedWord _context = 0;
    [[maybe_unused]] KRTUnsignedWord _xflags = 0;
    KRTUnsignedWord _marker = 0xA1B1C1D3;
    std::vector<KRTUnsignedWord> _keys;
    std::vector<KRTUnsignedWord> _values;
};

#endif

#endif
