// The parts of file names, as URLs tell them.
#pragma once

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>

namespace krl {

/// A file's name in its parts.
struct FileName {
    cf::CFRef<CFStringRef> whole;
    cf::CFRef<CFStringRef> base;
    cf::CFRef<CFStringRef> extension; ///< empty when there is none
};

/// The last component of a path. A path that has none is taken as it stands.
FileName splitPath(CFStringRef path);

/// The extension of a file name; null when it has none.
cf::CFRef<CFStringRef> fileNameExtension(CFStringRef name);

/// The name with another extension; null for a name that no file can have.
cf::CFRef<CFStringRef> nameWithExtension(CFStringRef name, CFStringRef extension);

} // namespace krl
