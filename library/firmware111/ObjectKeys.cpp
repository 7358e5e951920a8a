#include "library/firmware111/ObjectKeys.h"

#include <array>
#include <string_view>
#include <utility>
#include <vector>

namespace krl {

using cf::cast;

size_t WholeHash::operator()(const cf::CFRef<CFTypeRef>& object) const {
    const auto string = cast<CFStringRef>(object.get());
    if (string == nullptr) {
        return CFHash(object.get());
    }
    const CFIndex length = CFStringGetLength(string);
    std::array<UniChar, 64> few;
    std::vector<UniChar> many(std::cmp_greater(length, few.size()) ? static_cast<size_t>(length)
                                                                   : 0);
    UniChar* const units = many.empty() ? few.data() : many.data();
    CFStringGetCharacters(string, CFRangeMake(0, length), units);
    return std::hash<std::string_view>()(
        {reinterpret_cast<const char*>(units), static_cast<size_t>(length) * sizeof(UniChar)});
}

} // namespace krl
