// A sync through the objects against the same sync through the functions, over the wire.

#include "bench/Comparison.h"
#include "bench/PhoneOnTheWire.h"
#include "tests/support/FakeMobileDevice.h"

#include <CoreFoundation/CFRef.h>
#include <KRLVesk/KRLVesk.h>

#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace bench {
namespace {

using krl::cf::adopt;
using krl::cf::CFRef;

using List = CFRef<CFMutableDictionaryRef>;

constexpr int kRingtones = 20;
constexpr size_t kFileBytes = 300 * 1024;

List makeList() {
    return adopt(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                           &kCFTypeDictionaryValueCallBacks));
}

CFRef<CFStringRef> text(const std::string& value) {
    return adopt(CFStringCreateWithCString(nullptr, value.c_str(), kCFStringEncodingUTF8));
}

/// The provider in the place of the device functions.
class ProviderFunctions {
public:
    ProviderFunctions() {
#define KRL_ASSIGN(function) function = provider().function;
        MOBILEDEVICE_FUNCTIONS(KRL_ASSIGN)
#undef KRL_ASSIGN
    }

    ~ProviderFunctions() {
#define KRL_CLEAR(function) function = nullptr;
        MOBILEDEVICE_FUNCTIONS(KRL_CLEAR)
#undef KRL_CLEAR
    }

    ProviderFunctions(const ProviderFunctions&) = delete;
    ProviderFunctions& operator=(const ProviderFunctions&) = delete;
};

/// A phone of firmware 1.1.1 and files to put onto it again and again.
struct Scene {
    std::shared_ptr<World> world;
    std::string source;

    explicit Scene(std::shared_ptr<World> aWorld)
        : world(std::move(aWorld)), source((world->root() / "source.mp3").string()) {
        std::ofstream(source) << std::string(kFileBytes, 'x');
    }

    List newRingtones() const {
        List list = makeList();
        for (int i = 0; i < kRingtones; ++i) {
            const auto name = text("Ringtone " + std::to_string(i));
            const auto tone = makeList();
            CFDictionarySetValue(tone.get(), KRTRingtoneName, name.get());
            CFDictionarySetValue(tone.get(), KRTFileKey, text("GUID-" + std::to_string(i)).get());
            CFDictionarySetValue(tone.get(), CFSTR("FileType"),
                                 i % 2 == 0 ? CFSTR("mp3") : CFSTR("m4r"));
            CFDictionarySetValue(tone.get(), KRTLocalPath, text(source).get());
            CFDictionarySetValue(list.get(), name.get(), tone.get());
        }
        return list;
    }
};

// ---------------------------------------------------------------------- the functions

bool goOn(int32_t, int32_t, uint32_t, uint32_t, const char*, void*) {
    return true;
}

/// What the sync of the objects does, down to the list that is read again at the end.
bool syncByFunctions(KRTPhoneRef phone, CFDictionaryRef added, List& onPhone) {
    const KRTRingtoneManagerRef store = KRTPhoneGetRingtoneManager(phone);
    if (KRTPhoneOpen(phone) != 1) {
        return false;
    }
    KRTPhoneBeginSync(phone);
    KRTRingtoneManagerSetStatusResponder(store, goOn, nullptr);
    const bool isDone =
        KRTRingtoneManagerSubmitChanges(store, added, onPhone.get(), makeList().get()) == 1;
    onPhone = adopt(KRTRingtoneManagerLoadCurrentRingtoneList(store));
    KRTPhoneEndSync(phone);
    KRTPhoneClose(phone);
    return isDone;
}

void runFunctions(benchmark::State& state, const Scene& scene, am_device* device) {
    KRTPhoneRef phone = KRTPhoneWithDevice(device);
    KRTPhoneUpdateInformation(phone);
    List onPhone =
        adopt(KRTRingtoneManagerLoadCurrentRingtoneList(KRTPhoneGetRingtoneManager(phone)));
    onPhone = onPhone ? onPhone : makeList();
    for (auto _ : state) {
        if (!syncByFunctions(phone, scene.newRingtones().get(), onPhone)) {
            state.SkipWithError("a sync failed");
            break;
        }
    }
    KRTPhoneRelease(phone);
}

// ---------------------------------------------------------------------- the objects

class Listener : public KRTRingtoneManagerDelegate {
public:
    explicit Listener(KRTRingtoneManager& manager) : manager_(manager) {}

    void syncStatus(int32_t, int32_t, uint32_t, uint32_t, CFStringRef) override {
        manager_.continueSync();
    }

    void reportError(CFErrorRef, bool) override { failed = true; }

    bool failed = false;

private:
    KRTRingtoneManager& manager_;
};

void runObjects(benchmark::State& state, const Scene& scene, am_device* device) {
    KRTPhoneRef record = KRTPhoneWithDevice(device);
    KRTPhoneUpdateInformation(record);
    const auto phone = KRTPhone::_phoneWithPhoneRef(record);
    const auto manager = phone->ringtoneManager();
    const auto listener = std::make_shared<Listener>(*manager);
    for (auto _ : state) {
        const List added = scene.newRingtones();
        std::vector<const void*> tones(kRingtones);
        CFDictionaryGetKeysAndValues(added.get(), nullptr, tones.data());
        for (const void* tone : tones) {
            manager->addRingtone(static_cast<CFMutableDictionaryRef>(const_cast<void*>(tone)));
        }
        manager->syncCurrentListToPhone(listener);
        if (listener->failed) {
            state.SkipWithError("a sync failed");
            break;
        }
    }
}

// ---------------------------------------------------------------------- where to

using Run = void (*)(benchmark::State& state, const Scene& scene, am_device* device);

Body overTheWire(const std::shared_ptr<Scene>& scene, Run run) {
    return [scene, run](benchmark::State& state) {
        const ProviderFunctions functions;
        const Subscription subscription;
        run(state, *scene, subscription.device());
    };
}

Body withoutAWire(const std::shared_ptr<Scene>& scene, Run run) {
    return [scene, run](benchmark::State& state) {
        krl::test::FakeMobileDevice fake;
        fake.phone().firmware("1.1.1");
        run(state, *scene, fake.phone().device());
    };
}

} // namespace

void registerObjectLayer(const std::shared_ptr<World>& world) {
    const auto scene = std::make_shared<Scene>(world);
    compare({.title = "sync by objects",
             .ours = overTheWire(scene, runObjects),
             .peer = overTheWire(scene, runFunctions)},
            "20 ringtones of 300 KiB replaced, firmware 1.1.1; peer the same by functions");
    // What the objects cost shows here; it is to be set against the time that the wire takes.
    compare({.title = "sync by objects, no wire",
             .ours = withoutAWire(scene, runObjects),
             .peer = withoutAWire(scene, runFunctions)},
            "the same with a phone of functions in this process");
}

} // namespace bench
