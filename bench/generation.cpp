// Generating the catalogue of a phone on the older layout, half of the ringtones with companions.

#include "bench/Comparison.h"
#include "tests/support/FakeMobileDevice.h"

#include <CoreFoundation/CFRef.h>
#include <KRLVesk/KRLVesk.h>

#include <memory>
#include <string>

namespace bench {
namespace {

using krl::cf::adopt;
using krl::cf::CFRef;

CFRef<CFMutableDictionaryRef> emptyDictionary() {
    return adopt(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                           &kCFTypeDictionaryValueCallBacks));
}

CFRef<CFMutableDictionaryRef> newRingtones(int count) {
    auto list = emptyDictionary();
    for (int i = 0; i < count; ++i) {
        auto entry = emptyDictionary();
        const auto name =
            adopt(CFStringCreateWithFormat(nullptr, nullptr, CFSTR("Ringtone %d"), i));
        const auto guid = adopt(CFStringCreateWithFormat(nullptr, nullptr, CFSTR("GUID-%d"), i));
        CFDictionarySetValue(entry.get(), KRTRingtoneName, name.get());
        CFDictionarySetValue(entry.get(), KRTFileKey, guid.get());
        CFDictionarySetValue(entry.get(), KRTLocalPath, CFSTR("/home/me/tone"));
        CFDictionarySetValue(entry.get(), CFSTR("FileType"),
                             i % 2 == 0 ? CFSTR("mp3") : CFSTR("m4r"));
        CFDictionarySetValue(list.get(), name.get(), entry.get());
    }
    return list;
}

/// A phone of firmware 1.1.1 whose information has been read.
class Phone {
public:
    Phone() : phone_(KRTPhoneWithDevice(fake_.phone().device())) {
        fake_.phone().firmware("1.1.1");
        KRTPhoneUpdateInformation(phone_);
    }

    ~Phone() { KRTPhoneRelease(phone_); }

    Phone(const Phone&) = delete;
    Phone& operator=(const Phone&) = delete;

    bool generates(CFDictionaryRef added) {
        CFMutableDictionaryRef catalogue = nullptr;
        CFMutableDictionaryRef renames = nullptr;
        const auto none = emptyDictionary();
        if (KRTRingtoneManagerGeneratePList(KRTPhoneGetRingtoneManager(phone_), added, none.get(),
                                            none.get(), &catalogue, &renames) != 1) {
            return false;
        }
        CFRelease(catalogue);
        CFRelease(renames);
        return true;
    }

private:
    krl::test::FakeMobileDevice fake_;
    KRTPhoneRef phone_;
};

Body generating(int count) {
    auto list = std::make_shared<CFRef<CFMutableDictionaryRef>>(newRingtones(count));
    return [list](benchmark::State& state) {
        Phone phone;
        for (auto _ : state) {
            if (!phone.generates(list->get())) {
                state.SkipWithError("no catalogue was generated");
                return;
            }
        }
    };
}

void compareGrowth(int from, int to) {
    compare({.title = "generate " + std::to_string(from) + " to " + std::to_string(to),
             .ours = generating(to),
             .peer = generating(from),
             .peerScale = static_cast<double>(to) / from},
            "growth per ringtone, older layout, half mp3; 1 is linear");
}

} // namespace

void registerGeneration() {
    compareGrowth(1000, 2000);
    compareGrowth(1000, 5000);
    compareGrowth(1000, 10000);
}

} // namespace bench
