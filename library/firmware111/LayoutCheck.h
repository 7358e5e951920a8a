#pragma once

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>

namespace krl {

/// The extension of a file name, as CFURLCopyPathExtension gives it; null when it has none. Names
/// of letters and digits around one point, as almost all are, are split without making a URL.
cf::CFRef<CFStringRef> fileNameExtension(CFStringRef name);

} // namespace krl
