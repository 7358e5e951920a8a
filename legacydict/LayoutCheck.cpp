#include "LayoutCheck.h"

#include <KRLVesk/KRTDictionary.h>
#include <KRLVesk/KRTRingtoneManager.h>

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <vector>

using krl::cf::adopt;
using krl::cf::cast;
using krl::cf::CFRef;

namespace {

/// In UTF-16 units. Longer names take no part in the rule about GUIDs.
constexpr CFIndex kLongestShortName = 8;

struct ReleaseTable {
    void operator()(KRTDictionary* table) const { KRTDictionaryRelease(table); }
};

using Table = std::unique_ptr<KRTDictionary, ReleaseTable>;

Table makeTable(KRTWord capacity) {
    Table table(KRTDictionaryWithCapacity(capacity));
    if (!table) {
        throw std::bad_alloc();
    }
    return table;
}

struct Entries {
    std::vector<const void*> names;
    std::vector<const void*> infos;
};

/// The catalogue's entries in the order in which firmware 1.1.1 walks them.
Entries entriesInFirmwareOrder(CFDictionaryRef catalogue) {
    constexpr CFIndex kSmallestCapacity = 10;
    const CFIndex catalogueCount = CFDictionaryGetCount(catalogue);
    const auto size = static_cast<size_t>(catalogueCount);
    Entries entries{std::vector<const void*>(size), std::vector<const void*>(size)};
    CFDictionaryGetKeysAndValues(catalogue, entries.names.data(), entries.infos.data());

    const Table table = makeTable(std::max(catalogueCount, kSmallestCapacity));
    for (size_t i = 0; i < size; ++i) {
        if (entries.names[i] && entries.infos[i]) {
            KRTDictionarySetObjectForKey(table.get(), entries.infos[i], entries.names[i]);
        }
    }
    const auto count = static_cast<size_t>(KRTDictionaryGetCount(table.get()));
    entries.names.resize(count);
    entries.infos.resize(count);
    KRTDictionaryGetKeysAndValues(table.get(), entries.names.data(), entries.infos.data());
    return entries;
}

bool isLetterOrDigit(UniChar unit) {
    return (unit >= '0' && unit <= '9') || (unit >= 'A' && unit <= 'Z') ||
           (unit >= 'a' && unit <= 'z');
}

CFRef<CFURLRef> fileURL(CFStringRef name) {
    constexpr Boolean kIsDirectory = false;
    return adopt(CFURLCreateWithFileSystemPath(nullptr, name, kCFURLPOSIXPathStyle, kIsDirectory));
}

/// The name with another extension; null for a name that no file can have.
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

/// Is shown the entries in the firmware's order and gathers the names that it stumbles over.
class LayoutCheck {
public:
    void look(CFStringRef name, CFTypeRef info) {
        if (CFStringGetLength(name) > kLongestShortName) {
            lookAtLongName(name);
        } else if (const auto entry = cast<CFDictionaryRef>(info)) {
            if (const void* guid = CFDictionaryGetValue(entry, CFSTR("GUID"))) {
                lookAtShortName(name, guid);
            }
        }
    }

    /// The names, handed over; null when there are none.
    CFMutableArrayRef takeNames() {
        return CFArrayGetCount(names_.get()) > 0 ? names_.leak() : nullptr;
    }

private:
    void lookAtLongName(CFStringRef name) {
        if (CFStringHasSuffix(name, CFSTR("m4r"))) {
            CFArrayAppendValue(names_.get(), name);
        }
    }

    void lookAtShortName(CFStringRef name, CFTypeRef guid) {
        const auto firstExtension =
            static_cast<CFStringRef>(CFDictionaryGetValue(firstExtensions_.get(), guid));
        if (!firstExtension) {
            if (const auto extension = krl::fileNameExtension(name)) {
                CFDictionarySetValue(firstExtensions_.get(), guid, extension.get());
            }
        } else if (!CFEqual(firstExtension, CFSTR("m4r"))) {
            // Contract: what is reported is this entry's base name with the first entry's
            // extension, which need not be a name of the catalogue.
            if (const auto reported = nameWithExtension(name, firstExtension)) {
                CFArrayAppendValue(names_.get(), reported.get());
            }
        }
    }

    CFRef<CFMutableArrayRef> names_ =
        adopt(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
    /// GUID to the extension of its first short name that has one.
    CFRef<CFMutableDictionaryRef> firstExtensions_ = adopt(CFDictionaryCreateMutable(
        nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
};

/// Exhausted memory ends the process here: no catalogue may pass unchecked.
CFMutableArrayRef namesInTheWay(CFDictionaryRef catalogue) noexcept {
    const Entries entries = entriesInFirmwareOrder(catalogue);
    LayoutCheck check;
    for (size_t i = 0; i < entries.names.size(); ++i) {
        if (const auto name = cast<CFStringRef>(entries.names[i])) {
            check.look(name, entries.infos[i]);
        }
    }
    return check.takeNames();
}

} // namespace

namespace krl {

CFRef<CFStringRef> fileNameExtension(CFStringRef name) {
    const CFIndex length = CFStringGetLength(name);
    if (length <= kLongestShortName) {
        std::array<UniChar, kLongestShortName> units;
        CFStringGetCharacters(name, CFRangeMake(0, length), units.data());
        const auto end = units.begin() + length;
        const auto point = std::find(units.begin(), end, '.');
        const bool isPlain = point != units.begin() && end - point > 1 &&
                             std::all_of(units.begin(), point, isLetterOrDigit) &&
                             std::all_of(point + 1, end, isLetterOrDigit);
        if (isPlain) {
            return adopt(CFStringCreateWithCharacters(nullptr, point + 1, end - point - 1));
        }
    }
    const auto url = fileURL(name);
    return url ? adopt(CFURLCopyPathExtension(url.get())) : CFRef<CFStringRef>();
}

} // namespace krl

CFMutableArrayRef KRTRingtoneManagerIsValidFor111(CFDictionaryRef catalogue) {
    return namesInTheWay(catalogue);
}
