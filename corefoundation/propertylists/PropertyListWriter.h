/// Trees of objects as XML documents. Internal.
#pragma once

#include "corefoundation/values/ByteBuffer.h"

namespace krl::cf {

/// See CFPropertyListIsValid.
bool isPropertyList(CFTypeRef object);

/// Appends the document, in the platform's layout. The object must be a property list.
void writePropertyList(ByteBuffer& xml, CFTypeRef object);

} // namespace krl::cf
