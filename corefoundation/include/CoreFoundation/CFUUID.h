/**
 * @file
 * Universally unique identifiers.
 */
#ifndef COREFOUNDATION_CFUUID_H
#define COREFOUNDATION_CFUUID_H

#include <CoreFoundation/CFBase.h>

/** A universally unique identifier. */
typedef const struct __CFUUID* CFUUIDRef;

/** Its 16 bytes, in the order in which they are written. */
typedef struct {
    /** @{ */
    /** A byte; the number says which. */
    UInt8 byte0;
    UInt8 byte1;
    UInt8 byte2;
    UInt8 byte3;
    UInt8 byte4;
    UInt8 byte5;
    UInt8 byte6;
    UInt8 byte7;
    UInt8 byte8;
    UInt8 byte9;
    UInt8 byte10;
    UInt8 byte11;
    UInt8 byte12;
    UInt8 byte13;
    UInt8 byte14;
    UInt8 byte15;
    /** @} */
} CFUUIDBytes;

/** The type of UUIDs. */
CF_EXPORT CFTypeID CFUUIDGetTypeID(void) CF_NOEXCEPT;

/** A new random one (version 4). */
CF_EXPORT CFUUIDRef CFUUIDCreate(CFAllocatorRef allocator);
/** The one of these bytes. */
CF_EXPORT CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef allocator, CFUUIDBytes bytes);
/**
 * Reads the form that CFUUIDCreateString gives, in braces or not, with digits of either case.
 * Missing bytes at the end count as zero, further text is ignored, and so is what stands in place
 * of a hyphen.
 * @return NULL for an empty text and where something else stands in place of a digit.
 */
CF_EXPORT CFUUIDRef CFUUIDCreateFromString(CFAllocatorRef allocator, CFStringRef uuidStr);
/** "68753A44-4D6F-1226-9C60-0050E4C00067": upper case. */
CF_EXPORT CFStringRef CFUUIDCreateString(CFAllocatorRef allocator, CFUUIDRef uuid);
/** Its bytes. */
CF_EXPORT CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid) CF_NOEXCEPT;

#endif
