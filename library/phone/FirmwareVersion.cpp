#include <KRLVesk/KRTPhone.h>

#include <CoreFoundation/CFRef.h>

using krl::cf::adopt;

namespace {

constexpr int kUnknownVersion = 1014;
constexpr int kFirstWithCompanions = 1002;
constexpr int kLastWithCompanions = 1011;

// Lent by the information; null when the phone has not told.
CFStringRef productVersion(CFDictionaryRef information) {
    const auto versions =
        krl::cf::cast<CFDictionaryRef>(CFDictionaryGetValue(information, CFSTR("PhoneVersions")));
    return versions == nullptr ? nullptr
                               : krl::cf::cast<CFStringRef>(
                                     CFDictionaryGetValue(versions, CFSTR("ProductVersion")));
}

// Unsigned, so that what a phone makes up cannot overflow.
uint32_t numberAt(CFArrayRef parts, CFIndex index) {
    return static_cast<uint32_t>(
        CFStringGetIntValue(static_cast<CFStringRef>(CFArrayGetValueAtIndex(parts, index))));
}

// Contract: a patch number counts only where there are exactly three parts, and parts of two digits
// run into each other: 1.1 and 1.1.3.1 and 1.0.10 are all 1010.
// [FirmwareVersionText.BecomesThisNumber]
int versionCode(CFArrayRef parts) {
    const CFIndex count = CFArrayGetCount(parts);
    const uint32_t major = count >= 1 ? numberAt(parts, 0) : 1;
    const uint32_t minor = count >= 2 ? numberAt(parts, 1) : 0;
    const uint32_t patch = count == 3 ? numberAt(parts, 2) : 0;
    return static_cast<int>(major * 1000 + minor * 10 + patch);
}

} // namespace

int KRTPhoneFirmwareVersion(KRTPhoneRef phone) {
    const auto information = adopt(KRTPhoneGetPhoneInformation(phone));
    const CFStringRef version = information ? productVersion(information.get()) : nullptr;
    if (version == nullptr) {
        return kUnknownVersion;
    }
    const auto parts = adopt(CFStringCreateArrayBySeparatingStrings(nullptr, version, CFSTR(".")));
    return versionCode(parts.get());
}

int KRTPhonePostUpdate(KRTPhoneRef phone) {
    // Contract: compared unsigned, so that versions below the first one count as far above the
    // last. [FirmwareVersionText.BecomesThisNumber]
    const auto distance =
        static_cast<uint32_t>(KRTPhoneFirmwareVersion(phone)) - uint32_t{kFirstWithCompanions};
    return distance <= uint32_t{kLastWithCompanions - kFirstWithCompanions} ? 1 : 0;
}
