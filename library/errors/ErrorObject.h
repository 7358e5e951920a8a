#pragma once

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>

namespace krl {

/// An error object with "file" and "line" in its user information.
///
/// @param file  UTF-8; a null one, or one that is not UTF-8, becomes an empty string
cf::CFRef<CFErrorRef> makeErrorObject(CFStringRef domain, int code, const char* file, int line);

/// An error object of what the error record holds, which is not cleared.
cf::CFRef<CFErrorRef> errorObjectFromRecord(CFStringRef domain);

} // namespace krl
