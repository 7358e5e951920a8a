/// Trees of objects as XML documents. Internal.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <string>

namespace krl::cf {

/// See CFPropertyListIsValid.
bool isPropertyList(CFTypeRef object);

/// The document, in the platform's layout. The object must be a property list.
std::string writePropertyList(CFTypeRef object);

} // namespace krl::cf
