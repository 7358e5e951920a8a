#pragma once

#include "tests/support/Texts.h"

#include <CoreFoundation/CFText.h>
#include <CoreFoundation/CoreFoundation.h>

#include <string>

namespace krl::test {

inline std::u16string unitsOf(CFStringRef string) {
    std::u16string units(static_cast<size_t>(CFStringGetLength(string)), u'\0');
    CFStringGetCharacters(string, CFRangeMake(0, CFStringGetLength(string)),
                          reinterpret_cast<UniChar*>(units.data()));
    return units;
}

} // namespace krl::test
