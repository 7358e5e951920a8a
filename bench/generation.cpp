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

/// @param first  number of the first of them; the even ones are mp3s
CFRef<CFMutableDictionaryRef> newRingtones(int count, int first = 0) {
    auto list = emptyDictionary();
    for (int i = first; i < first + count; ++i) {
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

    KRTRingtoneManagerRef store() { return KRTPhoneGetRingtoneManager(phone_); }

    /// The catalogue of a phone that gets these ringtones; null when there is none.
    CFRef<CFMutableDictionaryRef> generate(CFDictionaryRef added) {
        CFRef<CFMutableDictionaryRef> catalogue;
        CFRef<CFMutableDictionaryRef> renames;
        const auto none = emptyDictionary();
        KRTRingtoneManagerGeneratePList(store(), added, none.get(), none.get(), catalogue.receive(),
                                        renames.receive());
        return catalogue;
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
            if (!phone.generate(list->get())) {
                state.SkipWithError("no catalogue was generated");
                return;
            }
        }
    };
}

/// The base names of a catalogue's files.
CFRef<CFMutableArrayRef> baseNamesOf(CFDictionaryRef catalogue) {
    auto names = adopt(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
    const auto keys = adopt(CFGetAllKeys(catalogue));
    for (CFIndex i = 0; i < CFArrayGetCount(keys.get()); ++i) {
        const auto key = static_cast<CFStringRef>(CFArrayGetValueAtIndex(keys.get(), i));
        const auto base = adopt(CFStringCreateWithSubstring(nullptr, key, CFRangeMake(0, 4)));
        // A companion follows the ringtone that it has the base name of.
        const CFIndex count = CFArrayGetCount(names.get());
        if (count == 0 || !CFEqual(CFArrayGetValueAtIndex(names.get(), count - 1), base.get())) {
            CFArrayAppendValue(names.get(), base.get());
        }
    }
    return names;
}

/// One mp3 more in the catalogue of as many ringtones. The phone is not asked for their files, so
/// that it is not measured.
Body generatingOneMore(int count) {
    auto list = std::make_shared<CFRef<CFMutableDictionaryRef>>(newRingtones(count));
    return [list, count](benchmark::State& state) {
        Phone phone;
        const auto full = phone.generate(list->get());
        const auto usedNames = baseNamesOf(full.get());
        const auto oneMore = newRingtones(1, count);
        const auto none = emptyDictionary();
        for (auto _ : state) {
            srandom(0);
            const auto catalogue = adopt(CFDictionaryCreateMutableCopy(nullptr, 0, full.get()));
            const auto names = adopt(CFArrayCreateMutableCopy(nullptr, 0, usedNames.get()));
            const auto renames = emptyDictionary();
            if (KRTRingtoneManagerGeneratorParseDictionary(phone.store(), oneMore.get(),
                                                           catalogue.get(), names.get()) != 1 ||
                KRTRingtoneManagerFixResultDictionary(catalogue.get(), names.get(), renames.get(),
                                                      none.get()) != 1) {
                state.SkipWithError("no catalogue was generated");
                return;
            }
        }
    };
}

using Generating = Body (*)(int count);

void compareGrowth(const std::string& what, Generating generatingSome, int from, int to) {
    compare({.title = what + " " + std::to_string(from) + " to " + std::to_string(to),
             .ours = generatingSome(to),
             .peer = generatingSome(from),
             .peerScale = static_cast<double>(to) / from},
            "growth per ringtone, older layout, half mp3; 1 is linear");
}

} // namespace

void registerGeneration() {
    compareGrowth("generate", generating, 1000, 2000);
    compareGrowth("generate", generating, 1000, 5000);
    compareGrowth("generate", generating, 1000, 10000);
    compareGrowth("one more on", generatingOneMore, 1000, 10000);
    compareGrowth("one more on", generatingOneMore, 1000, 20000);
}

} // namespace bench
