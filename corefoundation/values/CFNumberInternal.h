/// What property lists need of numbers. Internal. Memory that runs out is thrown.
#pragma once

#include "corefoundation/values/CFRuntime.h"

#include <CoreFoundation/CFNumber.h>

namespace krl::cf {

CFNumberRef createInteger(int64_t value);
CFNumberRef createReal(double value);

/// A 64-bit number that may lie beyond the signed range.
CFNumberRef createUnsignedNumber(uint64_t value);

/// Whether a number lies beyond the signed range; its low 64 bits are then the unsigned value.
bool isBeyondSigned(CFNumberRef number);

} // namespace krl::cf
