// Any bytes as the catalogue on a phone: read, and then synced over with one ringtone more. A sync
// that says that it succeeded has left a catalogue that can be read and holds the new ringtone.

#include "library/phone/KRTPhoneInternal.h"
#include "library/store/KRTRingtoneManagerInternal.h"
#include "tests/support/FakeMobileDevice.h"

#include <CoreFoundation/CFRef.h>
#include <KRLVesk/KRTError.h>

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

using krl::cf::adopt;
using krl::cf::CFRef;

constexpr char kFolder[] = "/iTunes_Control/Ringtones/";
constexpr char kCatalogue[] = "/iTunes_Control/iTunes/Ringtones.plist";
constexpr std::array<const char*, 6> kFirmwares = {"1.0.0", "1.0.2", "1.1.1",
                                                   "1.1.2", "1.1.3", "strange"};

CFRef<CFMutableDictionaryRef> dictionary() {
    return adopt(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                           &kCFTypeDictionaryValueCallBacks));
}

/// A file on this computer for as long as the process lives. It is in memory and has no name that
/// another process could meet.
CFStringRef sourceFile() {
    static const CFRef<CFStringRef> path = [] {
        const int file = memfd_create("source", MFD_CLOEXEC);
        if (write(file, "sound", 5) != 5) {
            std::abort();
        }
        const std::string name = "/proc/self/fd/" + std::to_string(file);
        return adopt(CFStringCreateWithCString(nullptr, name.c_str(), kCFStringEncodingUTF8));
    }();
    return path.get();
}

CFRef<CFMutableDictionaryRef> oneNewRingtone() {
    const auto tone = dictionary();
    CFDictionarySetValue(tone.get(), KRTRingtoneName, CFSTR("new"));
    CFDictionarySetValue(tone.get(), KRTFileKey, CFSTR("guid-new"));
    CFDictionarySetValue(tone.get(), CFSTR("FileType"), CFSTR("mp3"));
    CFDictionarySetValue(tone.get(), KRTLocalPath, sourceFile());
    auto added = dictionary();
    CFDictionarySetValue(added.get(), CFSTR("new"), tone.get());
    return added;
}

/// Files for some of the names that short catalogues are likely to have.
void putFiles(krl::test::FakePhone& phone) {
    for (const char* name : {"A.m4r", "AAAA.m4r", "AAAA.mp3", "BBBB.m4r", "longername.m4r"}) {
        phone.file(kFolder + std::string(name), "sound");
    }
}

using Phone = std::unique_ptr<std::remove_pointer_t<KRTPhoneRef>, decltype(&KRTPhoneRelease)>;

CFRef<CFMutableDictionaryRef> load(KRTRingtoneManagerRef manager) {
    return adopt(KRTRingtoneManagerLoadCurrentRingtoneList(manager));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    if (size == 0) {
        return 0;
    }
    krl::test::FakeMobileDevice fake;
    fake.phone().firmware(kFirmwares[bytes[0] % kFirmwares.size()]);
    fake.phone().file(kCatalogue, std::string(reinterpret_cast<const char*>(bytes + 1), size - 1));
    putFiles(fake.phone());
    KRTErrorClear();
    const Phone phone(KRTPhoneWithDevice(fake.phone().device()), &KRTPhoneRelease);
    const KRTRingtoneManagerRef manager = KRTPhoneGetRingtoneManager(phone.get());
    auto unchanged = load(manager);
    if (!unchanged) {
        unchanged = dictionary();
    }
    const auto added = oneNewRingtone();
    const auto removed = dictionary();
    KRTErrorClear();
    if (KRTRingtoneManagerSubmitChanges(manager, added.get(), removed.get(), unchanged.get()) ==
        1) {
        const auto result = load(manager);
        if (!result || !CFDictionaryContainsKey(result.get(), CFSTR("new"))) {
            std::abort();
        }
    }
    return 0;
}
