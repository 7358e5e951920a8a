/**
 * @file
 * Points in time, as seconds since the start of 2001 in UTC.
 */
#ifndef COREFOUNDATION_CFDATE_H
#define COREFOUNDATION_CFDATE_H

#include <CoreFoundation/CFBase.h>

/** A length of time, in seconds. */
typedef double CFTimeInterval;
/** Seconds since 2001-01-01T00:00:00Z. */
typedef CFTimeInterval CFAbsoluteTime;
/** A point in time as an object. */
typedef const struct __CFDate* CFDateRef;

/** Seconds from the start of 1970 to the start of 2001. */
CF_EXPORT const CFTimeInterval kCFAbsoluteTimeIntervalSince1970;

/** The time of the computer's clock, which may be set back. */
CF_EXPORT CFAbsoluteTime CFAbsoluteTimeGetCurrent(void) CF_NOEXCEPT;

/** The type of dates. */
CF_EXPORT CFTypeID CFDateGetTypeID(void) CF_NOEXCEPT;
/** The date of a point in time. */
CF_EXPORT CFDateRef CFDateCreate(CFAllocatorRef allocator, CFAbsoluteTime at);
/** The point in time of a date. */
CF_EXPORT CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date) CF_NOEXCEPT;
/** @param context NULL. */
CF_EXPORT CFComparisonResult CFDateCompare(CFDateRef date, CFDateRef otherDate,
                                           void* context) CF_NOEXCEPT;

#endif
