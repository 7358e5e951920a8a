/**
 * @file
 * Ordered collections of pointers, usually to objects. Appending is O(1) on average.
 */
#ifndef COREFOUNDATION_CFARRAY_H
#define COREFOUNDATION_CFARRAY_H

#include <CoreFoundation/CFBase.h>

/** Called for what comes in; its result is what is kept. */
typedef const void* (*CFArrayRetainCallBack)(CFAllocatorRef allocator, const void* value);
/** Called for what goes. */
typedef void (*CFArrayReleaseCallBack)(CFAllocatorRef allocator, const void* value);
/** Makes a text of it, for CFCopyDescription. */
typedef CFStringRef (*CFArrayCopyDescriptionCallBack)(const void* value);
/** Whether the two count as one. */
typedef Boolean (*CFArrayEqualCallBack)(const void* value1, const void* value2);

/** What an array does with its values. A NULL member: values are neither retained nor released, and
 *  equal only when they are the same pointer. */
typedef struct {
    CFIndex version;                                /**< 0 */
    CFArrayRetainCallBack retain;                   /**< for what comes in */
    CFArrayReleaseCallBack release;                 /**< for what goes */
    CFArrayCopyDescriptionCallBack copyDescription; /**< for CFCopyDescription */
    CFArrayEqualCallBack equal;                     /**< for CFEqual and for searches */
} CFArrayCallBacks;

/** For values that are objects: retained, released, compared with CFEqual. */
CF_EXPORT const CFArrayCallBacks kCFTypeArrayCallBacks;

/** An array. */
typedef const struct __CFArray* CFArrayRef;
/** An array that can be changed. */
typedef struct __CFArray* CFMutableArrayRef;
/** Called for a value, with the context of CFArrayApplyFunction. */
typedef void (*CFArrayApplierFunction)(const void* value, void* context);

/** The type of arrays. */
CF_EXPORT CFTypeID CFArrayGetTypeID(void) CF_NOEXCEPT;

/**
 * @param values     numValues pointers; may be NULL when there are none.
 * @param callBacks  copied; NULL is the same as all members NULL.
 */
CF_EXPORT CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex numValues,
                                   const CFArrayCallBacks* callBacks);
/** An immutable copy with the same callbacks. */
CF_EXPORT CFArrayRef CFArrayCreateCopy(CFAllocatorRef allocator, CFArrayRef array);
/** @param capacity a hint; the array may grow beyond it. */
CF_EXPORT CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFArrayCallBacks* callBacks);
/** @param capacity a hint; the array may grow beyond it. */
CF_EXPORT CFMutableArrayRef CFArrayCreateMutableCopy(CFAllocatorRef allocator, CFIndex capacity,
                                                     CFArrayRef array);

/** How many values there are. */
CF_EXPORT CFIndex CFArrayGetCount(CFArrayRef array) CF_NOEXCEPT;
/** The value at a place, lent. */
CF_EXPORT const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex idx) CF_NOEXCEPT;
/** @param values room for range.length pointers. */
CF_EXPORT void CFArrayGetValues(CFArrayRef array, CFRange range, const void** values) CF_NOEXCEPT;
/** Whether the range holds an equal value. */
CF_EXPORT Boolean CFArrayContainsValue(CFArrayRef array, CFRange range,
                                       const void* value) CF_NOEXCEPT;
/** The index of the first equal value in the range, or kCFNotFound. */
CF_EXPORT CFIndex CFArrayGetFirstIndexOfValue(CFArrayRef array, CFRange range,
                                              const void* value) CF_NOEXCEPT;
/** Calls the function for each value of the range in order; it must not change the array. */
CF_EXPORT void CFArrayApplyFunction(CFArrayRef array, CFRange range, CFArrayApplierFunction applier,
                                    void* context);

/** Puts a value behind all others. */
CF_EXPORT void CFArrayAppendValue(CFMutableArrayRef array, const void* value);
/** Appends the range of another array, which may be the array itself. */
CF_EXPORT void CFArrayAppendArray(CFMutableArrayRef array, CFArrayRef otherArray,
                                  CFRange otherRange);
/** @param idx 0 to the count; the values from there on move up by one. */
CF_EXPORT void CFArrayInsertValueAtIndex(CFMutableArrayRef array, CFIndex idx, const void* value);
/** @param idx 0 to the count; the count itself appends. */
CF_EXPORT void CFArraySetValueAtIndex(CFMutableArrayRef array, CFIndex idx, const void* value);
/** Takes a value out; those behind it move up. */
CF_EXPORT void CFArrayRemoveValueAtIndex(CFMutableArrayRef array, CFIndex idx) CF_NOEXCEPT;
/** Takes all values out. */
CF_EXPORT void CFArrayRemoveAllValues(CFMutableArrayRef array) CF_NOEXCEPT;
/** Sorts the range; equal values keep their order. */
CF_EXPORT void CFArraySortValues(CFMutableArrayRef array, CFRange range,
                                 CFComparatorFunction comparator, void* context) CF_NOEXCEPT;

#endif
