/**
 * @file
 * Numbers and booleans.
 */
#ifndef COREFOUNDATION_CFNUMBER_H
#define COREFOUNDATION_CFNUMBER_H

#include <CoreFoundation/CFBase.h>

/** True or false, as an object. */
typedef const struct __CFBoolean* CFBooleanRef;

/** True. Immortal. */
CF_EXPORT const CFBooleanRef kCFBooleanTrue;
/** False. Immortal. */
CF_EXPORT const CFBooleanRef kCFBooleanFalse;

/** The type of booleans. */
CF_EXPORT CFTypeID CFBooleanGetTypeID(void) CF_NOEXCEPT;
/** What it says. */
CF_EXPORT Boolean CFBooleanGetValue(CFBooleanRef boolean) CF_NOEXCEPT;

/** How a number is handed in or out. */
typedef CFIndex CFNumberType;

/** Types of numbers: of a fixed size first, then those of C. */
enum {
    kCFNumberSInt8Type = 1,
    kCFNumberSInt16Type = 2,
    kCFNumberSInt32Type = 3,
    kCFNumberSInt64Type = 4,
    kCFNumberFloat32Type = 5,
    kCFNumberFloat64Type = 6,
    kCFNumberCharType = 7,
    kCFNumberShortType = 8,
    kCFNumberIntType = 9,
    kCFNumberLongType = 10,
    kCFNumberLongLongType = 11,
    kCFNumberFloatType = 12,
    kCFNumberDoubleType = 13,
    kCFNumberCFIndexType = 14
};

/** A number. */
typedef const struct __CFNumber* CFNumberRef;

/** The type of numbers. */
CF_EXPORT CFTypeID CFNumberGetTypeID(void) CF_NOEXCEPT;

/**
 * @param valuePtr  points to a value of the type.
 * @return NULL when the type is unknown.
 */
CF_EXPORT CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type,
                                     const void* valuePtr);

/** The type that the number is kept as, always one of the fixed sizes. A whole number between 2^63
 *  and 2^64 - 1, as a property list can hold, says kCFNumberSInt64Type. */
CF_EXPORT CFNumberType CFNumberGetType(CFNumberRef number) CF_NOEXCEPT;

/**
 * @param valuePtr  room for a value of the type. A value that does not fit is cut to the type's low
 *                  bits, or held within its range when it has to be converted from a float.
 * @return whether the value came through unchanged. False as well when the type is unknown; nothing
 *         is written then.
 */
CF_EXPORT Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type,
                                   void* valuePtr) CF_NOEXCEPT;

/** Whether it was made of a floating-point number. */
CF_EXPORT Boolean CFNumberIsFloatType(CFNumberRef number) CF_NOEXCEPT;
/** By value. NaN comes after every negative number and before all others. @param context NULL. */
CF_EXPORT CFComparisonResult CFNumberCompare(CFNumberRef number, CFNumberRef otherNumber,
                                             void* context) CF_NOEXCEPT;

#endif
