// What happens where the functions of MobileDevice.h are not there: no provider was found, or the
// application calls before it has brought one.

#include "tests/library/objects/ObjectTest.h"

#include "library/phone/KRTPhoneInternal.h"

#include <KRLVesk/KRLVesk.h>
#include <MobileDevice/Provider.h>

namespace {

using namespace krl::test;
using krl::cf::adopt;

struct Variable {
    const char* name;
    void (*clear)();
};

#define KRL_VARIABLE(function) {#function, [] { function = nullptr; }},
const Variable kRequired[] = {MOBILEDEVICE_REQUIRED_FUNCTIONS(KRL_VARIABLE)};
const Variable kOptional[] = {MOBILEDEVICE_OPTIONAL_FUNCTIONS(KRL_VARIABLE)};
#undef KRL_VARIABLE

void clearAll() {
    for (const Variable& variable : kRequired) {
        variable.clear();
    }
    for (const Variable& variable : kOptional) {
        variable.clear();
    }
}

constexpr char kPath[] = "/a";

/// A function that reaches the phone, what it gives when it cannot, and what it records.
struct Call {
    const char* name;
    bool (*fails)(KRTPhoneRef phone);
    int code;
};

const Call kCalls[] = {
    {"Open", [](KRTPhoneRef phone) { return KRTPhoneOpen(phone) == 0; }, 0},
    {"StartFileService", [](KRTPhoneRef phone) { return KRTPhoneStartFileService(phone) == 0; },
     -500},
    {"BeginSync", [](KRTPhoneRef phone) { return KRTPhoneBeginSync(phone) == 0; }, 0},
    {"EndSync", [](KRTPhoneRef phone) { return KRTPhoneEndSync(phone) == 0; }, 0},
    {"CreateDirectory",
     [](KRTPhoneRef phone) { return KRTPhoneCreateDirectoryAtPath(phone, kPath) == 0; }, 0},
    {"ListDirectory",
     [](KRTPhoneRef phone) { return KRTPhoneListDirectoryAtPath(phone, kPath) == nullptr; }, 0},
    {"RemoveObject",
     [](KRTPhoneRef phone) { return KRTPhoneRemoveObjectAtPath(phone, kPath) == 0; }, 0},
    {"RenameObject",
     [](KRTPhoneRef phone) { return KRTPhoneRenameObjectAtPath(phone, kPath, "/b") == 0; }, 0},
    {"WriteData",
     [](KRTPhoneRef phone) { return KRTPhoneWriteDataToFileAtPath(phone, kPath, "x", 1) == 0; }, 0},
    {"ReadFile",
     [](KRTPhoneRef phone) {
         char buffer = 0;
         uint32_t length = 1;
         return KRTPhoneReadFileAtPath(phone, kPath, &buffer, &length) == 0;
     },
     0},
    {"SizeOfFile",
     [](KRTPhoneRef phone) {
         uint32_t size = 0;
         return KRTPhoneSizeOfFileAtPath(phone, kPath, &size) == 0;
     },
     0},
    {"UpdateInformation",
     [](KRTPhoneRef phone) {
         KRTPhoneUpdateInformation(phone);
         const auto information = adopt(KRTPhoneGetPhoneInformation(phone));
         return CFDictionaryGetCount(information.get()) == 0 &&
                KRTPhoneFirmwareVersion(phone) == 1014;
     },
     0},
    {"LoadCurrentRingtoneList",
     [](KRTPhoneRef phone) {
         return KRTRingtoneManagerLoadCurrentRingtoneList(KRTPhoneGetRingtoneManager(phone)) ==
                nullptr;
     },
     0},
    {"SubmitChanges",
     [](KRTPhoneRef phone) {
         const auto none = dictionary();
         return KRTRingtoneManagerSubmitChanges(KRTPhoneGetRingtoneManager(phone), none.get(),
                                                none.get(), none.get()) == 0;
     },
     0},
    {"CleanupPhoneDirectories",
     [](KRTPhoneRef phone) {
         const auto names = adopt(CFArrayCreate(nullptr, nullptr, 0, &kCFTypeArrayCallBacks));
         KRTRingtoneManagerCleanupPhoneDirectories(KRTPhoneGetRingtoneManager(phone), names.get());
         return true;
     },
     0},
    {"BeginSearch", [](KRTPhoneRef) { return KRTPhoneManagerBeginSearch() == kAMDNotConnected; },
     0},
    {"AddDelegate",
     [](KRTPhoneRef) { return KRTPhoneManagerAddDelegate(nullptr, nullptr, nullptr) == nullptr; },
     0},
    {"PhoneConnectedNotification",
     [](KRTPhoneRef phone) {
         testing::internal::CaptureStderr();
         KRTPhoneManagerPhoneConnectedNotification(KRTPhoneRawDevice(phone));
         return testing::internal::GetCapturedStderr().ends_with("Unable to open phone") &&
                KRTGetConnectedPhoneCount() == 0;
     },
     0},
};

class NoDeviceLayer : public ObjectTest {
protected:
    NoDeviceLayer() { KRTPhoneManagerInit(); }

    ~NoDeviceLayer() override { KRTPhoneManagerShutdown(); }

    /// Every function on a record of its own, with the layer as it is now.
    void callAll() {
        for (const Call& call : kCalls) {
            SCOPED_TRACE(call.name);
            KRTErrorClear();
            const KRTPhoneRef phone = KRTPhoneWithDevice(fake.phone().device());
            EXPECT_EQ(KRTPhoneRawDevice(phone), fake.phone().device());
            EXPECT_TRUE(call.fails(phone));
            EXPECT_TRUE(KRTError());
            EXPECT_EQ(KRTErrorGetCode(), call.code);
            EXPECT_EQ(phone->openCount, 0);
            KRTPhoneEndFileService(phone);
            KRTPhoneClose(phone);
            KRTPhoneRelease(phone);
        }
        KRTPhoneManagerEndSearch();
    }
};

TEST_F(NoDeviceLayer, EveryCallThatNeedsItFailsAsAnOpenFails) {
    clearAll();
    callAll();
    EXPECT_EQ(KRTVeskInit(), 0);
}

TEST_F(NoDeviceLayer, ALayerThatLacksOneFunctionIsNone) {
    for (const Variable& variable : kRequired) {
        SCOPED_TRACE(variable.name);
        fake.fill();
        variable.clear();
        fake.clearCalls();
        callAll();
        EXPECT_THAT(fake.calls(), testing::IsEmpty());
    }
}

TEST_F(NoDeviceLayer, FunctionsThatMayBeMissingAreNotMissed) {
    for (const Variable& variable : kOptional) {
        variable.clear();
    }
    const KRTPhoneRef phone = KRTPhoneWithDevice(fake.phone().device());
    EXPECT_EQ(KRTPhoneOpen(phone), 1);
    KRTPhoneClose(phone);
    KRTPhoneRelease(phone);
}

TEST_F(NoDeviceLayer, ALayerThatGoesAwayUnderAnOpenPhoneIsNotCalled) {
    const KRTPhoneRef phone = KRTPhoneWithDevice(fake.phone().device());
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(KRTPhoneOpen(phone), 1);
    }
    ASSERT_EQ(KRTPhoneStartFileService(phone), 1);
    ASSERT_EQ(KRTPhoneBeginSync(phone), 1);
    const KRTPhoneManagerDelegateRef delegate = KRTPhoneManagerAddDelegate(
        nullptr, [](void*, KRTPhoneRef) {}, [](void*, KRTPhoneRef) {});
    ASSERT_NE(delegate, nullptr);
    clearAll();
    fake.clearCalls();
    KRTErrorClear();

    EXPECT_EQ(KRTPhoneEndSync(phone), 0);
    EXPECT_EQ(KRTErrorGetCode(), 1);
    phone->notificationProxy = nullptr;
    EXPECT_EQ(KRTPhoneBeginSync(phone), 0);
    EXPECT_EQ(KRTPhoneOpen(phone), 0);
    phone->openCount = 1;
    phone->fileServiceCount = 0;
    EXPECT_EQ(KRTPhoneStartFileService(phone), 0);
    phone->openCount = 1;
    phone->fileServiceCount = 1;
    KRTPhoneEndFileService(phone);
    EXPECT_EQ(phone->openCount, 0);
    KRTPhoneManagerRemoveDelegate(delegate);
    KRTPhoneRelease(phone);
    EXPECT_THAT(fake.calls(), testing::IsEmpty());
}

TEST_F(NoDeviceLayer, ObjectsFindNothingAndSayWhy) {
    class Nobody : public KRTPhoneManagerDelegate {
        void phoneConnected(const std::shared_ptr<KRTPhone>&) override {}

        void phoneRemoved(const std::shared_ptr<KRTPhone>&) override {}
    };

    clearAll();
    const auto manager = KRTPhoneManager::sharedManager();
    const auto delegate = std::make_shared<Nobody>();
    manager->addDelegate(delegate);
    EXPECT_TRUE(KRTError());
    EXPECT_EQ(KRTErrorGetCode(), 0);
    KRTErrorClear();
    manager->removeDelegate(delegate);

    const auto phone = KRTPhone::_phoneWithPhoneRef(KRTPhoneWithDevice(fake.phone().device()));
    const auto error = phone->open();
    ASSERT_TRUE(error);
    EXPECT_EQ(CFErrorGetCode(error.get()), 0);
    phone->close();
    EXPECT_EQ(phone->beginSync(), 0);
    const auto tones = phone->ringtoneManager();
    EXPECT_EQ(CFArrayGetCount(tones->currentRingtonesManaged().get()), 0);
    tones->addRingtone(record({"New"}).get());
    tones->syncCurrentListToPhone(nullptr);
    EXPECT_TRUE(tones->ringtonesUpdated()) << "nothing was synced";

    // Once it is there, a delegate is found phones for.
    fake.fill();
    manager->addDelegate(delegate);
    fake.attach();
    EXPECT_EQ(manager->phones().size(), 1U);
    manager->shutdown();
}

} // namespace
