// The bytes of a ringtone that is to be uploaded.
#pragma once

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>

namespace krl::ringtones {

struct SourceFile {
    cf::CFRef<CFDataRef> bytes; ///< null: nothing to upload
    SInt32 errorCode = 0;       ///< not 0 when the source could not be read
};

/// The bytes of an entry that has "LocalPath": those of that file, or what the function that its
/// "LocalData" designates makes of it.
SourceFile readSource(CFDictionaryRef entry);

} // namespace krl::ringtones
