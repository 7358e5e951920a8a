/**
 * @file
 * Sequences of bytes.
 */
#ifndef COREFOUNDATION_CFDATA_H
#define COREFOUNDATION_CFDATA_H

#include <CoreFoundation/CFBase.h>

/** Bytes. */
typedef const struct __CFData* CFDataRef;
/** Bytes that can be changed. */
typedef struct __CFData* CFMutableDataRef;

/** The type of data. */
CF_EXPORT CFTypeID CFDataGetTypeID(void) CF_NOEXCEPT;

/** Copies the bytes. @param bytes may be NULL when length is 0. */
CF_EXPORT CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
/**
 * Takes the bytes as they are, without a copy; they must not change.
 * @param bytesDeallocator  kCFAllocatorNull: the caller keeps them alive as long as the object
 *                          lives. Any other, or NULL: they came from malloc and are freed with the
 *                          object.
 */
CF_EXPORT CFDataRef CFDataCreateWithBytesNoCopy(CFAllocatorRef allocator, const UInt8* bytes,
                                                CFIndex length, CFAllocatorRef bytesDeallocator);
/** An immutable copy; the data itself, with one more reference, when it is immutable. */
CF_EXPORT CFDataRef CFDataCreateCopy(CFAllocatorRef allocator, CFDataRef data);
/** Empty. @param capacity a hint; the data may grow beyond it. */
CF_EXPORT CFMutableDataRef CFDataCreateMutable(CFAllocatorRef allocator, CFIndex capacity);
/** @param capacity a hint; the data may grow beyond it. */
CF_EXPORT CFMutableDataRef CFDataCreateMutableCopy(CFAllocatorRef allocator, CFIndex capacity,
                                                   CFDataRef data);

/** How many bytes there are. */
CF_EXPORT CFIndex CFDataGetLength(CFDataRef data) CF_NOEXCEPT;
/** The bytes, valid until the data changes its length or goes. Never NULL unless the data was made
 *  without a copy of NULL. */
CF_EXPORT const UInt8* CFDataGetBytePtr(CFDataRef data) CF_NOEXCEPT;
/** As CFDataGetBytePtr, to write to. */
CF_EXPORT UInt8* CFDataGetMutableBytePtr(CFMutableDataRef data) CF_NOEXCEPT;
/** @param buffer room for range.length bytes. */
CF_EXPORT void CFDataGetBytes(CFDataRef data, CFRange range, UInt8* buffer) CF_NOEXCEPT;

/** Cuts the data, or makes it longer with zeros. */
CF_EXPORT void CFDataSetLength(CFMutableDataRef data, CFIndex length);
/** @param bytes may point into the data itself; may be NULL when length is 0. */
CF_EXPORT void CFDataAppendBytes(CFMutableDataRef data, const UInt8* bytes, CFIndex length);

#endif
