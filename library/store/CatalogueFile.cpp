#include "library/store/CatalogueFile.h"

#include "library/store/Dictionaries.h"
#include "library/store/Names.h"

#include <KRLVesk/KRTRingtoneManager.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

namespace krl::ringtones {

using cf::adopt;
using cf::cast;
using cf::CFRef;

namespace {

struct FreeBytes {
    void operator()(UInt8* bytes) const { std::free(bytes); }
};

} // namespace

CFRef<CFDataRef> readCatalogue(KRTPhoneRef phone, uint32_t sizeBytes) {
    // At least one byte, so that an empty file has a buffer too. Not cleared: whatever size the
    // phone claims, only what it really sends is touched, and one byte too many tells that it is
    // too large.
    uint32_t length = std::min(sizeBytes, kMostCatalogueBytes + 1);
    const size_t roomBytes = std::max(length, uint32_t{1});
    std::unique_ptr<UInt8, FreeBytes> buffer(static_cast<UInt8*>(std::malloc(roomBytes)));
    if (!buffer || KRTPhoneReadFileAtPath(phone, kCataloguePath, buffer.get(), &length) != 1 ||
        length > kMostCatalogueBytes) {
        return {};
    }
    return adopt(CFDataCreateWithBytesNoCopy(nullptr, buffer.release(),
                                             static_cast<CFIndex>(length), kCFAllocatorMalloc));
}

CFRef<CFTypeRef> parseCatalogue(CFDataRef bytes) {
    if (!CFPropertyListIsValid(bytes, kCFPropertyListXMLFormat_v1_0)) {
        return {};
    }
    CFRef<CFStringRef> reason;
    auto root = adopt(CFPropertyListCreateFromXMLData(
        nullptr, bytes, kCFPropertyListMutableContainersAndLeaves, reason.receive()));
    const bool hasMemoryRunOut =
        !root && (!reason || CFEqual(reason.get(), CFSTR("No property list: memory has run out")));
    if (hasMemoryRunOut) {
        // A catalogue that counts as empty costs all ringtones at the next sync.
        throw std::bad_alloc();
    }
    return root;
}

CFTypeRef ringtonesOf(CFTypeRef root) {
    const auto dictionary = cast<CFDictionaryRef>(root);
    return dictionary != nullptr ? CFDictionaryGetValue(dictionary, KRTRingtoneKeyName) : nullptr;
}

bool isCompanion(CFStringRef fileName, CFDictionaryRef entry) {
    return CFDictionaryGetCount(entry) == 2 && CFStringHasSuffix(fileName, kM4R);
}

void writeCatalogue(KRTPhoneRef phone, CFDictionaryRef catalogue) {
    const auto root = makeDictionary();
    CFDictionarySetValue(root.get(), KRTRingtoneKeyName, catalogue);
    const auto bytes = adopt(CFPropertyListCreateXMLData(nullptr, root.get()));
    if (bytes) {
        KRTPhoneWriteDataToFileAtPath(phone, kCataloguePath, CFDataGetBytePtr(bytes.get()),
                                      static_cast<uintptr_t>(CFDataGetLength(bytes.get())));
    }
}

} // namespace krl::ringtones
