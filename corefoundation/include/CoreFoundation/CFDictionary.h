/**
 * @file
 * Collections of key and value pairs.
 *
 * A dictionary enumerates in the order in which its keys were first added: replacing a value keeps
 * the place, removing a key and adding it again moves it to the end, and a copy keeps the order.
 * Looking up, adding and removing are O(1) on average, also when keys are strings that somebody has
 * made to have one CFHash: with the hash of kCFTypeDictionaryKeyCallBacks strings are hashed in full,
 * and differently in each process.
 */
#ifndef COREFOUNDATION_CFDICTIONARY_H
#define COREFOUNDATION_CFDICTIONARY_H

#include <CoreFoundation/CFBase.h>

/** Called for what comes in; its result is what is kept. */
typedef const void* (*CFDictionaryRetainCallBack)(CFAllocatorRef allocator, const void* value);
/** Called for what goes. */
typedef void (*CFDictionaryReleaseCallBack)(CFAllocatorRef allocator, const void* value);
/** Makes a text of it, for CFCopyDescription. */
typedef CFStringRef (*CFDictionaryCopyDescriptionCallBack)(const void* value);
/** Whether the two count as one. */
typedef Boolean (*CFDictionaryEqualCallBack)(const void* value1, const void* value2);
/** The same number for keys that are equal. */
typedef CFHashCode (*CFDictionaryHashCallBack)(const void* value);

/** What a dictionary does with its keys. A NULL member: keys are neither retained nor released,
 *  equal only when they are the same pointer, and hashed by their address. Keys that are equal must
 *  have equal hashes, and a key must not change in the dictionary. */
typedef struct {
    CFIndex version;                                     /**< 0 */
    CFDictionaryRetainCallBack retain;                   /**< for what comes in */
    CFDictionaryReleaseCallBack release;                 /**< for what goes */
    CFDictionaryCopyDescriptionCallBack copyDescription; /**< for CFCopyDescription */
    CFDictionaryEqualCallBack equal;                     /**< for CFEqual and for searches */
    CFDictionaryHashCallBack hash;                       /**< for where a key stands */
} CFDictionaryKeyCallBacks;

/** What a dictionary does with its values; a NULL member as above. */
typedef struct {
    CFIndex version;                                     /**< 0 */
    CFDictionaryRetainCallBack retain;                   /**< for what comes in */
    CFDictionaryReleaseCallBack release;                 /**< for what goes */
    CFDictionaryCopyDescriptionCallBack copyDescription; /**< for CFCopyDescription */
    CFDictionaryEqualCallBack equal;                     /**< for CFEqual and for searches */
} CFDictionaryValueCallBacks;

/** For keys and values that are objects: retained, released, compared with CFEqual. A dictionary
 *  with these holds no NULL: adding one changes nothing. */
CF_EXPORT const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
/** The same for values. */
CF_EXPORT const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;

/** A dictionary. */
typedef const struct __CFDictionary* CFDictionaryRef;
/** A dictionary that can be changed. */
typedef struct __CFDictionary* CFMutableDictionaryRef;
/** Called for a pair, with the context of CFDictionaryApplyFunction. */
typedef void (*CFDictionaryApplierFunction)(const void* key, const void* value, void* context);

/** The type of dictionaries. */
CF_EXPORT CFTypeID CFDictionaryGetTypeID(void) CF_NOEXCEPT;

/**
 * @param keys, values  numValues pointers each, a repeated key replaces the value; may be NULL when
 *                      there are none.
 * @param keyCallBacks, valueCallBacks  copied; NULL is the same as all members NULL.
 */
CF_EXPORT CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys,
                                             const void** values, CFIndex numValues,
                                             const CFDictionaryKeyCallBacks* keyCallBacks,
                                             const CFDictionaryValueCallBacks* valueCallBacks);
/** An immutable copy with the same callbacks and order. */
CF_EXPORT CFDictionaryRef CFDictionaryCreateCopy(CFAllocatorRef allocator,
                                                 CFDictionaryRef dictionary);
/** @param capacity a hint; the dictionary may grow beyond it. */
CF_EXPORT CFMutableDictionaryRef CFDictionaryCreateMutable(
    CFAllocatorRef allocator, CFIndex capacity, const CFDictionaryKeyCallBacks* keyCallBacks,
    const CFDictionaryValueCallBacks* valueCallBacks);
/** @param capacity a hint; the dictionary may grow beyond it. */
CF_EXPORT CFMutableDictionaryRef CFDictionaryCreateMutableCopy(CFAllocatorRef allocator,
                                                               CFIndex capacity,
                                                               CFDictionaryRef dictionary);

/** How many pairs there are. */
CF_EXPORT CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary) CF_NOEXCEPT;
/** The key's value, or NULL when it is not there. @param key may be NULL. */
CF_EXPORT const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key) CF_NOEXCEPT;
/** @param value may be NULL; receives the value, and stays as it is when the key is not there.
 *  @return whether the key is there. */
CF_EXPORT Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef dictionary, const void* key,
                                                const void** value) CF_NOEXCEPT;
/** Whether the key is there. */
CF_EXPORT Boolean CFDictionaryContainsKey(CFDictionaryRef dictionary, const void* key) CF_NOEXCEPT;
/** @param keys, values  room for as many pointers as there are pairs; either may be NULL. */
CF_EXPORT void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys,
                                            const void** values) CF_NOEXCEPT;
/** Calls the function for each pair in order; it must not change the dictionary. */
CF_EXPORT void CFDictionaryApplyFunction(CFDictionaryRef dictionary,
                                         CFDictionaryApplierFunction applier, void* context);

/** Adds the pair, or replaces the value of a key that is there (the key object stays). */
CF_EXPORT void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key,
                                    const void* value);
/** Adds the pair when the key is not there, else changes nothing. */
CF_EXPORT void CFDictionaryAddValue(CFMutableDictionaryRef dictionary, const void* key,
                                    const void* value);
/** Replaces the value of a key that is there, else changes nothing. */
CF_EXPORT void CFDictionaryReplaceValue(CFMutableDictionaryRef dictionary, const void* key,
                                        const void* value);
/** Takes the key's pair out; does nothing when the key is not there. */
CF_EXPORT void CFDictionaryRemoveValue(CFMutableDictionaryRef dictionary,
                                       const void* key) CF_NOEXCEPT;
/** Takes all pairs out. */
CF_EXPORT void CFDictionaryRemoveAllValues(CFMutableDictionaryRef dictionary) CF_NOEXCEPT;

#endif
