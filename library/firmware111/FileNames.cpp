#include "library/firmware111/FileNames.h"

#include <CoreFoundation/CFValues.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace krl {

using cf::adopt;
using cf::CFRef;
using cf::fileURL;

namespace {

bool isLetterOrDigit(UniChar unit) {
    return (unit >= '0' && unit <= '9') || (unit >= 'A' && unit <= 'Z') ||
           (unit >= 'a' && unit <= 'z');
}

/// Where the point is in a short name of letters and digits around one point, as almost all names
/// are: no URL need be made to split it.
std::optional<CFIndex> pointOfPlainName(CFStringRef name) {
    constexpr CFIndex kLongest = 16;
    const CFIndex length = CFStringGetLength(name);
    if (length > kLongest) {
        return std::nullopt;
    }
    std::array<UniChar, kLongest> units;
    CFStringGetCharacters(name, CFRangeMake(0, length), units.data());
    const auto end = units.begin() + length;
    const auto point = std::find(units.begin(), end, '.');
    const bool isPlain = point != units.begin() && end - point > 1 &&
                         std::all_of(units.begin(), point, isLetterOrDigit) &&
                         std::all_of(point + 1, end, isLetterOrDigit);
    return isPlain ? std::optional(point - units.begin()) : std::nullopt;
}

CFRef<CFStringRef> part(CFStringRef name, CFIndex from, CFIndex to) {
    return adopt(CFStringCreateWithSubstring(nullptr, name, CFRangeMake(from, to - from)));
}

} // namespace

FileName splitPath(CFStringRef path) {
    if (const auto point = pointOfPlainName(path)) {
        return {adopt(CFStringCreateCopy(nullptr, path)), part(path, 0, *point),
                part(path, *point + 1, CFStringGetLength(path))};
    }
    const auto url = fileURL(path);
    if (!url) {
        return {cf::retain(path), cf::retain(path), cf::retain(CFSTR(""))};
    }
    const auto stripped = adopt(CFURLCreateCopyDeletingPathExtension(nullptr, url.get()));
    auto extension = adopt(CFURLCopyPathExtension(url.get()));
    return {adopt(CFURLCopyLastPathComponent(url.get())),
            adopt(CFURLCopyLastPathComponent(stripped.get())),
            extension ? std::move(extension) : cf::retain(CFSTR(""))};
}

CFRef<CFStringRef> fileNameExtension(CFStringRef name) {
    if (const auto point = pointOfPlainName(name)) {
        return part(name, *point + 1, CFStringGetLength(name));
    }
    const auto url = fileURL(name);
    return url ? adopt(CFURLCopyPathExtension(url.get())) : CFRef<CFStringRef>();
}

CFRef<CFStringRef> nameWithExtension(CFStringRef name, CFStringRef extension) {
    const auto url = fileURL(name);
    if (!url) {
        return {};
    }
    const auto base = adopt(CFURLCreateCopyDeletingPathExtension(nullptr, url.get()));
    if (!base) {
        return {};
    }
    const auto renamed =
        adopt(CFURLCreateCopyAppendingPathExtension(nullptr, base.get(), extension));
    return renamed ? adopt(CFURLCopyLastPathComponent(renamed.get())) : CFRef<CFStringRef>();
}

} // namespace krl
