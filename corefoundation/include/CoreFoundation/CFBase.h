/**
 * @file
 * What every CoreFoundation object has in common.
 *
 * Conventions of all these headers:
 *  1. A function with "Create" or "Copy" in its name hands a new reference to the caller, who gives
 *     it back with CFRelease. A result of any other function ("Get") is lent: it lives as long as
 *     the object that it came from and keeps holding it; CFRetain keeps it longer.
 *  2. Object arguments must not be NULL and must be of the declared type, unless a declaration says
 *     otherwise. Indices and ranges must lie inside the object; this is not checked.
 *  3. The allocator argument is there for the platform's sake. All memory comes from malloc,
 *     whichever allocator is named. When it runs out, functions that make an object or let one
 *     grow throw std::bad_alloc, which leaves their arguments as they were but for what a function
 *     on several values has done so far; a C program ends then. No function returns NULL for it but
 *     CFPropertyListCreateFromXMLData. All other functions need no memory, or end the process.
 *  4. Reference counts are atomic. An immutable object may be used by several threads at once, a
 *     mutable one by one thread at a time.
 *  5. Callbacks must not throw, but those of the Apply functions may throw std::bad_alloc.
 */
#ifndef COREFOUNDATION_CFBASE_H
#define COREFOUNDATION_CFBASE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
/** Before each declaration: a C function of this library, also in C++. */
#define CF_EXPORT extern "C" __attribute__((visibility("default")))
/** Behind a declaration: the function throws nothing. */
#define CF_NOEXCEPT noexcept
#else
#define CF_EXPORT extern __attribute__((visibility("default")))
#define CF_NOEXCEPT
#endif

#ifndef TRUE
/** As a Boolean. */
#define TRUE 1
#endif
#ifndef FALSE
/** As a Boolean. */
#define FALSE 0
#endif

/** @{ */
/** A number whose size does not depend on the machine. */
typedef unsigned char Boolean;
typedef uint8_t UInt8;
typedef int8_t SInt8;
typedef uint16_t UInt16;
typedef int16_t SInt16;
typedef uint32_t UInt32;
typedef int32_t SInt32;
typedef uint64_t UInt64;
typedef int64_t SInt64;
typedef float Float32;
typedef double Float64;
/** @} */

/** One UTF-16 code unit. */
typedef UInt16 UniChar;
/** One Unicode scalar value. */
typedef UInt32 UTF32Char;

/** A count, or a place counted from 0. */
typedef long CFIndex;
/** Bits that are set together. */
typedef unsigned long CFOptionFlags;
/** The type of an object, see CFGetTypeID. */
typedef unsigned long CFTypeID;
/** What CFHash gives: equal for equal objects. */
typedef unsigned long CFHashCode;

/** Any object. */
typedef const void* CFTypeRef;
/** An object that a property list is made of: string, number, boolean, date, data, array or
 *  dictionary. */
typedef CFTypeRef CFPropertyListRef;

/** Where memory would come from; see the conventions above. */
typedef const struct __CFAllocator* CFAllocatorRef;
/** The type of kCFNull. */
typedef const struct __CFNull* CFNullRef;
/** A text, see CFString.h. */
typedef const struct __CFString* CFStringRef;
/** A text that can be changed. */
typedef struct __CFString* CFMutableStringRef;

/** A part of a sequence. */
typedef struct {
    CFIndex location; /**< of the first item, counted from 0 */
    CFIndex length;   /**< how many items */
} CFRange;

/** The range of length items from location on. */
static inline CFRange CFRangeMake(CFIndex location, CFIndex length) {
    CFRange range;
    range.location = location;
    range.length = length;
    return range;
}

/** How the first of two values stands to the second. */
typedef CFIndex CFComparisonResult;

/** Less, equal, greater. */
enum { kCFCompareLessThan = -1, kCFCompareEqualTo = 0, kCFCompareGreaterThan = 1 };

/** The index that stands for "not there". */
static const CFIndex kCFNotFound = -1;

/** Compares two values; context is what its caller was given for it. */
typedef CFComparisonResult (*CFComparatorFunction)(const void* value1, const void* value2,
                                                   void* context);

/**
 * What every object begins with. Only the library looks inside; it is declared here because the
 * compiler lays out the objects of CFSTR.
 */
struct CFObjectHeader {
    uint16_t typeID;      /**< what kind of object it is */
    uint16_t flags;       /**< of that kind */
    uint32_t retainCount; /**< references, unless it is immortal */
};

/** NULL: the default allocator. */
CF_EXPORT const CFAllocatorRef kCFAllocatorDefault;
/** The same. */
CF_EXPORT const CFAllocatorRef kCFAllocatorSystemDefault;
/** As a deallocator: the bytes are freed with free. */
CF_EXPORT const CFAllocatorRef kCFAllocatorMalloc;
/** As a deallocator: the bytes are not freed, and must outlive the object. */
CF_EXPORT const CFAllocatorRef kCFAllocatorNull;

/** The object that stands for "nothing" where an object is asked for. Immortal. */
CF_EXPORT const CFNullRef kCFNull;

/** The type of allocators. */
CF_EXPORT CFTypeID CFAllocatorGetTypeID(void) CF_NOEXCEPT;
/** The type of kCFNull. */
CF_EXPORT CFTypeID CFNullGetTypeID(void) CF_NOEXCEPT;

/** The object's type, to be compared with the result of CFStringGetTypeID and the like. */
CF_EXPORT CFTypeID CFGetTypeID(CFTypeRef object) CF_NOEXCEPT;

/**
 * Takes one more reference.
 * @param object  may be NULL; constants are left as they are.
 * @return object.
 */
CF_EXPORT CFTypeRef CFRetain(CFTypeRef object) CF_NOEXCEPT;

/**
 * Gives one reference back; with the last one the object goes.
 * @param object  may be NULL; constants are left as they are.
 */
CF_EXPORT void CFRelease(CFTypeRef object) CF_NOEXCEPT;

/** The number of references now, for tests; a huge number for constants. */
CF_EXPORT CFIndex CFGetRetainCount(CFTypeRef object) CF_NOEXCEPT;

/**
 * Whether two objects are of one type and mean the same. Numbers compare by value whatever their
 * size; a boolean equals no number. Equal objects have equal hashes.
 * @param object1, object2  may be NULL, which equals NULL only.
 */
CF_EXPORT Boolean CFEqual(CFTypeRef object1, CFTypeRef object2) CF_NOEXCEPT;

/** The platform's own hash, bit for bit. That of a mutable object changes with its contents. */
CF_EXPORT CFHashCode CFHash(CFTypeRef object) CF_NOEXCEPT;

/** A text for people. The caller releases it. */
CF_EXPORT CFStringRef CFCopyDescription(CFTypeRef object) CF_NOEXCEPT;

/** Writes the description and a line end to standard error. @param object may be NULL. */
CF_EXPORT void CFShow(CFTypeRef object) CF_NOEXCEPT;

#endif
