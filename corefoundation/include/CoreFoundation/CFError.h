/** Failures, told as a domain, a code and further information. */
#ifndef COREFOUNDATION_CFERROR_H
#define COREFOUNDATION_CFERROR_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>

typedef CFStringRef CFErrorDomain;
typedef struct __CFError* CFErrorRef;

CF_EXPORT CFTypeID CFErrorGetTypeID(void) CF_NOEXCEPT;

/** @param userInfo  copied; may be NULL, which is the same as an empty dictionary. */
CF_EXPORT CFErrorRef CFErrorCreate(CFAllocatorRef allocator, CFErrorDomain domain, CFIndex code,
                                   CFDictionaryRef userInfo);
CF_EXPORT CFErrorDomain CFErrorGetDomain(CFErrorRef error) CF_NOEXCEPT;
CF_EXPORT CFIndex CFErrorGetCode(CFErrorRef error) CF_NOEXCEPT;
/** Never NULL. */
CF_EXPORT CFDictionaryRef CFErrorCopyUserInfo(CFErrorRef error);

#endif
