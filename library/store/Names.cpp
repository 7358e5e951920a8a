#include "library/store/Names.h"

#include "library/store/KRTRingtoneManagerInternal.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace krl::ringtones {

using cf::adopt;
using cf::CFRef;

namespace {

std::u16string unitsOf(CFStringRef text) {
    static_assert(sizeof(char16_t) == sizeof(UniChar));
    const CFIndex length = CFStringGetLength(text);
    std::u16string units(static_cast<size_t>(length), u'\0');
    CFStringGetCharacters(text, CFRangeMake(0, length), reinterpret_cast<UniChar*>(units.data()));
    return units;
}

bool isDots(std::u16string_view component) {
    return component == u"." || component == u"..";
}

} // namespace

bool isM4R(CFStringRef fileType) {
    return fileType != nullptr && CFEqual(fileType, kM4R);
}

bool isPlainFileName(CFStringRef name) {
    const std::u16string units = unitsOf(name);
    return !units.empty() && !isDots(units) && units.find(u'/') == units.npos &&
           units.find(u'\0') == units.npos;
}

bool isStraightPath(CFStringRef path) {
    const std::u16string units = unitsOf(path);
    for (size_t from = 0; from <= units.size();) {
        const size_t end = std::min(units.find(u'/', from), units.size());
        if (isDots(std::u16string_view(units).substr(from, end - from))) {
            return false;
        }
        from = end + 1;
    }
    return true;
}

const char* orNull(const std::optional<std::string>& text) {
    return text ? text->c_str() : nullptr;
}

CFRef<CFStringRef> ringtonePath(CFStringRef fileName) {
    return adopt(
        CFStringCreateWithFormat(nullptr, nullptr, CFSTR("%s/%@"), kRingtonesFolder, fileName));
}

CFRef<CFStringRef> joinName(CFStringRef baseName, CFStringRef extension) {
    if (extension == nullptr || CFStringGetLength(extension) == 0) {
        return cf::retain(baseName);
    }
    return adopt(CFStringCreateWithFormat(nullptr, nullptr, CFSTR("%@.%@"), baseName, extension));
}

CFRef<CFStringRef> companionName(CFStringRef baseName) {
    return joinName(baseName, kM4R);
}

CFRef<CFStringRef> lastThreeCharacters(CFStringRef fileName) {
    const CFIndex length = CFStringGetLength(fileName);
    const CFIndex taken = length < 3 ? length : 3;
    return adopt(
        CFStringCreateWithSubstring(nullptr, fileName, CFRangeMake(length - taken, taken)));
}

} // namespace krl::ringtones
