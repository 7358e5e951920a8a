/**
 * @file
 * Failures, told as a domain, a code and further information.
 */
#ifndef COREFOUNDATION_CFERROR_H
#define COREFOUNDATION_CFERROR_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>

/** Whose codes a failure's code is one of. */
typedef CFStringRef CFErrorDomain;
/** A failure. */
typedef struct __CFError* CFErrorRef;

/** The type of errors. */
CF_EXPORT CFTypeID CFErrorGetTypeID(void) CF_NOEXCEPT;

/** @param userInfo  copied; may be NULL, which is the same as an empty dictionary. */
CF_EXPORT CFErrorRef CFErrorCreate(CFAllocatorRef allocator, CFErrorDomain domain, CFIndex code,
                                   CFDictionaryRef userInfo);
/** Its domain, lent. */
CF_EXPORT CFErrorDomain CFErrorGetDomain(CFErrorRef error) CF_NOEXCEPT;
/** Its code, one of the domain's. */
CF_EXPORT CFIndex CFErrorGetCode(CFErrorRef error) CF_NOEXCEPT;
/** Never NULL. */
CF_EXPORT CFDictionaryRef CFErrorCopyUserInfo(CFErrorRef error);

#endif
