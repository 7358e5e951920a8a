#include "mobiledevice/provider/wire/Text.h"

#include <CoreFoundation/CFRef.h>

namespace krl::provider {

std::optional<std::string> utf8(CFStringRef string) {
    string = cf::cast<CFStringRef>(string);
    if (string == nullptr) {
        return std::nullopt;
    }
    const CFIndex room =
        CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8) + 1;
    std::string text(static_cast<size_t>(room), '\0');
    if (!CFStringGetCString(string, text.data(), room, kCFStringEncodingUTF8)) {
        return std::nullopt;
    }
    text.resize(text.find('\0'));
    return text;
}

} // namespace krl::provider
