#include "library/store/SourceFile.h"

#include "library/store/Names.h"

#include <CoreFoundation/CFValues.h>
#include <KRLVesk/KRTRingtoneManager.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <mutex>
#include <new>
#include <vector>

namespace krl::ringtones {
namespace {

using cf::adopt;
using cf::cast;
using cf::CFRef;

/// The functions that the application has registered. Never shrinks: there is no way back.
struct DataFunctions {
    std::mutex mutex;
    std::vector<KRTRingtoneDataFunction> registered;
};

DataFunctions& dataFunctions() {
    static DataFunctions functions;
    return functions;
}

int64_t numberOf(KRTRingtoneDataFunction function) {
    return static_cast<int64_t>(reinterpret_cast<uintptr_t>(function));
}

/// The registered function with this number, or null. A number comes from outside, also from the
/// phone, so it is looked for and never made into an address.
KRTRingtoneDataFunction functionOf(CFTypeRef number) {
    int64_t wanted = 0;
    const auto holder = cast<CFNumberRef>(number);
    if (holder == nullptr || !CFNumberGetValue(holder, kCFNumberSInt64Type, &wanted)) {
        return nullptr;
    }
    DataFunctions& functions = dataFunctions();
    const std::lock_guard lock(functions.mutex);
    for (const KRTRingtoneDataFunction function : functions.registered) {
        if (numberOf(function) == wanted) {
            return function;
        }
    }
    return nullptr;
}

void enter(KRTRingtoneDataFunction function) {
    DataFunctions& functions = dataFunctions();
    const std::lock_guard lock(functions.mutex);
    auto& registered = functions.registered;
    if (std::find(registered.begin(), registered.end(), function) == registered.end()) {
        registered.push_back(function);
    }
}

} // namespace

SourceFile readSource(CFDictionaryRef entry) {
    const auto path = cast<CFStringRef>(CFDictionaryGetValue(entry, KRTLocalPath));
    const auto url = cf::fileURL(path);
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

int64_t KRTRingtoneManagerRegisterDataFunction(KRTRingtoneDataFunction function) {
    if (function == nullptr) {
        return 0;
    }
    try {
        krl::ringtones::enter(function);
    } catch (const std::bad_alloc&) {
        return 0;
    }
    return krl::ringtones::numberOf(function);
}
