#include "library/store/Names.h"

#include "library/store/KRTRingtoneManagerInternal.h"

#include <cstddef>

namespace krl::ringtones {

using cf::adopt;
using cf::CFRef;

bool isM4R(CFStringRef fileType) {
    return fileType != nullptr && CFEqual(fileType, kM4R);
}

std::optional<std::string> utf8(CFStringRef text) {
    const CFIndex length = CFStringGetLength(text);
    const CFIndex room = CFStringGetMaximumSizeForEncoding(length, kCFStringEncodingUTF8);
    std::string bytes(static_cast<size_t>(room), '\0');
    CFIndex used = 0;
    const CFIndex converted =
        CFStringGetBytes(text, CFRangeMake(0, length), kCFStringEncodingUTF8, 0, false,
                         reinterpret_cast<UInt8*>(bytes.data()), room, &used);
    bytes.resize(static_cast<size_t>(used));
    if (converted != length || bytes.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    return bytes;
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
    return adopt(CFStringCreateWithSubstring(kCFAllocatorDefault, fileName,
                                             CFRangeMake(length - taken, taken)));
}

CFRef<CFURLRef> fileURL(CFStringRef path) {
    return adopt(
        CFURLCreateWithFileSystemPath(kCFAllocatorDefault, path, kCFURLPOSIXPathStyle, false));
}

FileName splitPath(CFStringRef path) {
    const auto url = fileURL(path);
    if (!url) {
        return {cf::retain(path), cf::retain(path), cf::retain(CFSTR(""))};
    }
    const auto stripped =
        adopt(CFURLCreateCopyDeletingPathExtension(kCFAllocatorDefault, url.get()));
    auto extension = adopt(CFURLCopyPathExtension(url.get()));
    return {adopt(CFURLCopyLastPathComponent(url.get())),
            adopt(CFURLCopyLastPathComponent(stripped.get())),
            extension ? std::move(extension) : cf::retain(CFSTR(""))};
}

} // namespace krl::ringtones
