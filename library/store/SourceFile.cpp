#include "library/store/SourceFile.h"

#include "library/store/Names.h"

#include <KRLVesk/KRTRingtoneManager.h>

#include <cerrno>
#include <cstdint>

namespace krl::ringtones {
namespace {

using cf::adopt;
using cf::cast;
using cf::CFRef;

/// The function whose address the number holds; null when it is no whole number.
KRTRingtoneDataFunction functionOf(CFTypeRef number) {
    int64_t address = 0;
    const auto holder = cast<CFNumberRef>(number);
    if (holder == nullptr || !CFNumberGetValue(holder, kCFNumberSInt64Type, &address)) {
        return nullptr;
    }
    return reinterpret_cast<KRTRingtoneDataFunction>(static_cast<uintptr_t>(address));
}

} // namespace

SourceFile readSource(CFDictionaryRef entry) {
    const auto path = cast<CFStringRef>(CFDictionaryGetValue(entry, KRTLocalPath));
    const auto url = path != nullptr ? fileURL(path) : CFRef<CFURLRef>();
    if (!url) {
        return {{}, ENOENT};
    }
    if (const CFTypeRef hook = CFDictionaryGetValue(entry, kLocalDataKey)) {
        const auto function = functionOf(hook);
        return {function != nullptr ? adopt(function(url.get())) : CFRef<CFDataRef>(), 0};
    }
    SourceFile source;
    const bool wasRead = CFURLCreateDataAndPropertiesFromResource(
        nullptr, url.get(), source.bytes.receive(), nullptr, nullptr, &source.errorCode);
    if (wasRead || source.bytes) {
        source.errorCode = 0;
    }
    return source;
}

} // namespace krl::ringtones
