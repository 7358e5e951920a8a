#include "library/firmware111/LayoutCheck.h"

#include <KRLVesk/KRTDictionary.h>
#include <KRLVesk/KRTRingtoneManager.h>

#include <algorithm>
#include <array>
#include <cstdint>
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

constexpr uint32_t kNoGUID = UINT32_MAX;

/// What the check needs of one entry, and no more: entries are walked in an order that jumps about
/// in memory, so that each object looked at there would have to be fetched anew.
struct Entry {
    CFStringRef name; ///< null when the key is no string
    uint32_t guid;    ///< index of its GUID, or kNoGUID
    bool isShort;
};

bool isShort(CFStringRef name) {
    return CFStringGetLength(name) <= kLongestShortName;
}

/// Gives each GUID an index, the same one to equal GUIDs.
class GUIDs {
public:
    uint32_t indexOf(CFTypeRef info) {
        const auto values = cast<CFDictionaryRef>(info);
        const void* const guid =
            values != nullptr ? CFDictionaryGetValue(values, CFSTR("GUID")) : nullptr;
        if (guid == nullptr) {
            return kNoGUID;
        }
        const auto next = static_cast<uintptr_t>(CFDictionaryGetCount(indices_.get()));
        CFDictionaryAddValue(indices_.get(), guid, reinterpret_cast<const void*>(next));
        return static_cast<uint32_t>(
            reinterpret_cast<uintptr_t>(CFDictionaryGetValue(indices_.get(), guid)));
    }

    size_t count() const { return static_cast<size_t>(CFDictionaryGetCount(indices_.get())); }

private:
    CFRef<CFMutableDictionaryRef> indices_ =
        adopt(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, nullptr));
};

/// The catalogue's entries in the order in which firmware 1.1.1 walks them.
std::vector<Entry> entriesInFirmwareOrder(CFDictionaryRef catalogue, GUIDs& guids) {
    constexpr CFIndex kSmallestCapacity = 10;
    const CFIndex catalogueCount = CFDictionaryGetCount(catalogue);
    const auto size = static_cast<size_t>(catalogueCount);
    std::vector<const void*> names(size);
    std::vector<const void*> values(size);
    CFDictionaryGetKeysAndValues(catalogue, names.data(), values.data());

    std::vector<Entry> entries(size);
    const Table table = makeTable(std::max(catalogueCount, kSmallestCapacity));
    for (size_t i = 0; i < size; ++i) {
        if (names[i] && values[i]) {
            const auto name = cast<CFStringRef>(names[i]);
            entries[i] = {name, guids.indexOf(values[i]), name != nullptr && isShort(name)};
            KRTDictionarySetObjectForKey(table.get(), &entries[i], names[i]);
        }
    }
    const auto count = static_cast<size_t>(KRTDictionaryGetCount(table.get()));
    KRTDictionaryGetKeysAndValues(table.get(), names.data(), values.data());
    std::vector<Entry> inOrder(count);
    std::transform(values.begin(), values.begin() + static_cast<ptrdiff_t>(count), inOrder.begin(),
                   [](const void* value) { return *static_cast<const Entry*>(value); });
    return inOrder;
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
    explicit LayoutCheck(size_t guidCount) : firsts_(guidCount) {}

    void look(const Entry& entry) {
        if (entry.name == nullptr) {
            return;
        }
        if (!entry.isShort) {
            lookAtLongName(entry.name);
        } else if (entry.guid != kNoGUID) {
            lookAtShortName(entry.name, firsts_[entry.guid]);
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

    /// @param first  the first short name of the same GUID that has an extension, as far as known
    void lookAtShortName(CFStringRef name, CFStringRef& first) {
        const auto firstExtension =
            first != nullptr ? krl::fileNameExtension(first) : CFRef<CFStringRef>();
        if (!firstExtension) {
            first = name;
        } else if (!CFEqual(firstExtension.get(), CFSTR("m4r"))) {
            // Contract: what is reported is this entry's base name with the first entry's
            // extension, which need not be a name of the catalogue.
            if (const auto reported = nameWithExtension(name, firstExtension.get())) {
                CFArrayAppendValue(names_.get(), reported.get());
            }
        }
    }

    CFRef<CFMutableArrayRef> names_ =
        adopt(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
    /// By index of the GUID; lent by the catalogue.
    std::vector<CFStringRef> firsts_;
};

/// Exhausted memory ends the process here: no catalogue may pass unchecked.
CFMutableArrayRef namesInTheWay(CFDictionaryRef catalogue) noexcept {
    GUIDs guids;
    const std::vector<Entry> entries = entriesInFirmwareOrder(catalogue, guids);
    LayoutCheck check(guids.count());
    for (const Entry& entry : entries) {
        check.look(entry);
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
