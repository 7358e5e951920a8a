/// What property lists need of dates. Internal.
#pragma once

#include <CoreFoundation/CFDate.h>

namespace krl::cf {

/// As CFDateCreate, but memory that runs out is thrown.
CFDateRef createDate(CFAbsoluteTime at);

} // namespace krl::cf
