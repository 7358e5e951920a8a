// Connections, pairing, sessions, services and values.

#include "tests/mobiledevice/provider/ProviderFixture.h"

#include <algorithm>
#include <functional>
#include <ostream>

namespace krl::provider::testing {
namespace {

using virtualphone::parseFault;

class Session : public ProviderTest {
protected:
    CFTypeRef copy(const char* domain, const char* key) {
        const auto text = [](const char* bytes) {
            return bytes == nullptr ? cf::CFRef<CFStringRef>()
                                    : cf::adopt(CFStringCreateWithCString(nullptr, bytes,
                                                                          kCFStringEncodingUTF8));
        };
        return md.AMDeviceCopyValue(device, text(domain).get(), text(key).get());
    }
};

TEST_F(Session, OneReconnectionAsksForNothingThatIsNotNeeded) {
    openSession(); // asks for the firmware, once
    EXPECT_EQ(md.AMDeviceDisconnect(device), 0);
    log().clear();
    afc_connection* files = openFiles();
    EXPECT_EQ(md.AMDeviceDisconnect(device), 0);
    EXPECT_NE(files, nullptr);
    EXPECT_EQ(requests(), (std::vector<std::string>{
                              "usbmux/Connect", "usbmux/ReadPairRecord", "lockdown/ValidatePair",
                              "lockdown/StartSession", "lockdown/StartService",
                              "lockdown/StopSession", "usbmux/Connect"}));
}

TEST_F(Session, ConnectingSaysNothingToThePhone) {
    log().clear();
    EXPECT_EQ(md.AMDeviceConnect(device), 0);
    const auto entries = log().entries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].request, "Connect");
    EXPECT_EQ(entries[0].port, 62078u);
}

TEST_F(Session, ConnectingAConnectedDeviceMakesANewConnection) {
    openSession();
    EXPECT_EQ(md.AMDeviceConnect(device), 0);
    EXPECT_EQ(md.AMDeviceStopSession(device), kAMDNoSession);
    EXPECT_EQ(md.AMDeviceValidatePairing(device), 0);
    ASSERT_TRUE(bus().waitForConnections(2)); // the listener and the new one
}

TEST_F(Session, EverythingNeedsAConnection) {
    am_service* service = nullptr;
    EXPECT_EQ(md.AMDeviceValidatePairing(device), kAMDNotConnected);
    EXPECT_EQ(md.AMDeviceStartSession(device), kAMDNotConnected);
    EXPECT_EQ(md.AMDeviceStopSession(device), kAMDNotConnected);
    EXPECT_EQ(md.AMDeviceDisconnect(device), kAMDNotConnected);
    EXPECT_EQ(md.AMDeviceStartService(device, CFSTR("com.apple.afc"), &service, nullptr),
              kAMDNotConnected);
    EXPECT_EQ(service, nullptr);
    EXPECT_EQ(copy(nullptr, "DeviceName"), nullptr);
}

TEST_F(Session, PairingIsKnownWithoutAConnection) {
    EXPECT_NE(md.AMDeviceIsPaired(device), 0);
}

TEST_F(Session, DisconnectingTwiceIsAnsweredWithAStatus) {
    openSession();
    EXPECT_EQ(md.AMDeviceDisconnect(device), 0);
    EXPECT_EQ(md.AMDeviceDisconnect(device), kAMDNotConnected);
    EXPECT_EQ(md.AMDeviceStartSession(device), kAMDNotConnected);
}

TEST_F(Session, AnUnpairedPhoneIsNotPaired) {
    bus().deletePairRecord(phone().udid());
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    EXPECT_EQ(md.AMDeviceIsPaired(device), 0);
    EXPECT_EQ(md.AMDeviceValidatePairing(device), kAMDNotPaired);
    EXPECT_EQ(md.AMDeviceStartSession(device), kAMDNotPaired);
}

TEST_F(Session, APhoneThatForgotThisComputerIsPairedButNotValidly) {
    phone().forgetHosts();
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    EXPECT_NE(md.AMDeviceIsPaired(device), 0);
    EXPECT_EQ(md.AMDeviceValidatePairing(device), -21);
}

TEST_F(Session, ThePairRecordIsReadAnewOnEachConnection) {
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    EXPECT_EQ(md.AMDeviceValidatePairing(device), 0);
    bus().deletePairRecord(phone().udid());
    EXPECT_EQ(md.AMDeviceStartSession(device), 0); // still known on this one
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    EXPECT_EQ(md.AMDeviceValidatePairing(device), kAMDNotPaired);
}

TEST_F(Session, NeedsAValidatedPairing) {
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    EXPECT_LT(md.AMDeviceStartSession(device), 0);
    EXPECT_EQ(md.AMDeviceValidatePairing(device), 0);
    EXPECT_EQ(md.AMDeviceStartSession(device), 0);
}

TEST_F(Session, IsStoppedOnce) {
    openSession();
    EXPECT_EQ(md.AMDeviceStopSession(device), 0);
    EXPECT_EQ(md.AMDeviceStopSession(device), kAMDNoSession);
    EXPECT_EQ(md.AMDeviceStartSession(device), 0);
}

TEST_F(Session, AServiceNeedsASessionAndANameThatThePhoneKnows) {
    am_service* service = nullptr;
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    ASSERT_EQ(md.AMDeviceValidatePairing(device), 0);
    EXPECT_LT(md.AMDeviceStartService(device, CFSTR("com.apple.afc"), &service, nullptr), 0);
    ASSERT_EQ(md.AMDeviceStartSession(device), 0);
    EXPECT_EQ(md.AMDeviceStartService(device, CFSTR("com.example.nothing"), &service, nullptr),
              -27);
    EXPECT_EQ(service, nullptr);
}

TEST_F(Session, AServiceIsConnectedAlsoAfterTheSessionAndTheConnection) {
    openSession();
    am_service* service = startService("com.apple.afc");
    EXPECT_EQ(md.AMDeviceStopSession(device), 0);
    EXPECT_EQ(md.AMDeviceDisconnect(device), 0);
    afc_connection* files = nullptr;
    ASSERT_EQ(md.AFCConnectionOpen(service, 0, &files), 0);
    EXPECT_EQ(md.AFCDirectoryCreate(files, "/made"), 0);
    EXPECT_TRUE(exists("/made"));
}

TEST_F(Session, AServiceThatIsNotUsedHoldsNoDescriptor) {
    openSession();
    startService("com.apple.afc");
    ASSERT_TRUE(bus().waitForConnections(2)); // the listener and lockdown
    const size_t descriptors = openDescriptors();
    for (int i = 0; i < 5; ++i) {
        startService("com.apple.afc");
        startService("com.apple.mobile.notification_proxy");
    }
    EXPECT_EQ(bus().connectionCount(), 2u);
    EXPECT_LE(openDescriptors(), descriptors);
}

// ------------------------------------------------------------------ values

TEST_F(Session, AValueComesAsItsObject) {
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    const auto name = cf::adopt(copy(nullptr, "DeviceName"));
    ASSERT_TRUE(name);
    EXPECT_TRUE(CFEqual(name.get(), CFSTR("Virtual Phone")));
    const auto deviceClass = cf::adopt(copy(nullptr, "DeviceClass"));
    ASSERT_TRUE(deviceClass);
    EXPECT_TRUE(CFEqual(deviceClass.get(), CFSTR("iPhone")));
}

TEST_F(Session, AllValuesComeAsADictionary) {
    openSession();
    const auto values = cf::adopt(copy(nullptr, nullptr));
    const auto dictionary = cf::cast<CFDictionaryRef>(values.get());
    ASSERT_NE(dictionary, nullptr);
    const auto* version = CFDictionaryGetValue(dictionary, CFSTR("ProductVersion"));
    ASSERT_NE(version, nullptr);
    EXPECT_TRUE(CFEqual(version, CFSTR("1.1.1")));
}

TEST_F(Session, ValuesOfADomainComeAsADictionary) {
    openSession();
    const auto values = cf::adopt(copy("com.apple.mobile.iTunes", nullptr));
    ASSERT_NE(cf::cast<CFDictionaryRef>(values.get()), nullptr);
    EXPECT_FALSE(
        CFDictionaryContainsKey(cf::cast<CFDictionaryRef>(values.get()), CFSTR("DeviceName")));
}

TEST_F(Session, AValueThatIsNotThereIsNull) {
    openSession();
    EXPECT_EQ(copy(nullptr, "NoSuchKey"), nullptr);
    EXPECT_EQ(copy("com.example.nothing", "NoSuchKey"), nullptr);
    EXPECT_NE(cf::adopt(copy(nullptr, "DeviceName")).get(), nullptr); // and harms nothing
}

TEST_F(Session, ANameThatUtf8CannotExpressIsRefused) {
    openSession();
    const UniChar half = 0xD800;
    const auto name = cf::adopt(CFStringCreateWithCharacters(nullptr, &half, 1));
    log().clear();
    am_service* service = nullptr;
    EXPECT_EQ(md.AMDeviceCopyValue(device, nullptr, name.get()), nullptr);
    EXPECT_EQ(md.AMDeviceCopyValue(device, name.get(), nullptr), nullptr);
    EXPECT_EQ(md.AMDeviceStartService(device, name.get(), &service, nullptr), kAMDInvalidHandle);
    EXPECT_TRUE(log().entries().empty());
}

class OtherNames : public Session, public ::testing::WithParamInterface<const char*> {
protected:
    OtherNames() { options.name = GetParam(); }
};

TEST_P(OtherNames, OfThePhoneComeUnharmed) {
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    const auto name = cf::adopt(copy(nullptr, "DeviceName"));
    const auto expected =
        cf::adopt(CFStringCreateWithCString(nullptr, GetParam(), kCFStringEncodingUTF8));
    ASSERT_TRUE(name);
    EXPECT_TRUE(CFEqual(name.get(), expected.get()));
}

INSTANTIATE_TEST_SUITE_P(Texts, OtherNames,
                         ::testing::Values("", "Zo\xC3\xAB's <&> \"phone\"", "a\nb",
                                           "\xF0\x9F\x8E\xB5 e\xCC\x81"));

class LaterFirmware : public Session {
protected:
    LaterFirmware() { options.firmware = "6.1"; } // answers without "Result"
};

TEST_F(LaterFirmware, IsUnderstoodToo) {
    afc_connection* files = openFiles();
    EXPECT_EQ(md.AFCDirectoryCreate(files, "/made"), 0);
    EXPECT_EQ(copy(nullptr, "NoSuchKey"), nullptr);
    EXPECT_EQ(md.AMDeviceStopSession(device), kAMDNoSession);
    phone().forgetHosts();
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    EXPECT_EQ(md.AMDeviceValidatePairing(device), -21);
}

class BinaryReplies : public Session {
protected:
    BinaryReplies() { options.binaryReplies = true; }
};

TEST_F(BinaryReplies, AreUnderstoodToo) {
    afc_connection* files = openFiles();
    EXPECT_EQ(md.AFCDirectoryCreate(files, "/made"), 0);
    const auto name = cf::adopt(copy(nullptr, "DeviceName"));
    ASSERT_TRUE(name);
    EXPECT_TRUE(CFEqual(name.get(), CFSTR("Virtual Phone")));
    am_service* proxy = openProxy();
    EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("x"), nullptr), 0);
    EXPECT_EQ(md.AMDShutdownNotificationProxy(proxy), 0);
}

// ------------------------------------------------------------------ failures of each step

// One function in the state in which it works.
struct Step {
    const char* name;
    const char* request; // what it asks of lockdown
    int32_t (*call)(const MobileDeviceTable&, am_device*);
    int preparations; // how many of the steps before it are needed
};

int32_t startFileService(const MobileDeviceTable& md, am_device* device) {
    am_service* service = nullptr;
    const int32_t status =
        md.AMDeviceStartService(device, CFSTR("com.apple.afc"), &service, nullptr);
    EXPECT_EQ(status == 0, service != nullptr);
    return status;
}

// Its failure has no status.
int32_t copyName(const MobileDeviceTable& md, am_device* device) {
    return cf::adopt(md.AMDeviceCopyValue(device, nullptr, CFSTR("DeviceName"))) ? 0 : -1;
}

const Step kSteps[] = {
    {"Validate", "ValidatePair",
     [](const MobileDeviceTable& md, am_device* device) {
         return md.AMDeviceValidatePairing(device);
     },
     0},
    {"StartSession", "StartSession",
     [](const MobileDeviceTable& md, am_device* device) { return md.AMDeviceStartSession(device); },
     1},
    {"StopSession", "StopSession",
     [](const MobileDeviceTable& md, am_device* device) { return md.AMDeviceStopSession(device); },
     2},
    {"StartService", "StartService", startFileService, 2},
    {"CopyValue", "GetValue", copyName, 0},
};

struct StepFault {
    const char* action;
    int32_t status;
    bool connectionLives;
};

const StepFault kStepFaults[] = {
    {"error:InvalidHostID", -21, true},
    {"error:SessionInactive", -23, true},
    {"error:SomethingNew", kAMDRefused, true},
    {"drop", kAMDNotConnected, false},
    {"silent", kAMDTimedOut, false},
    {"unplug", kAMDNotConnected, false},
    {"drop-unanswered", kAMDNotConnected, false},
    {"cut", kAMDNotConnected, false},
    {"stall", kAMDTimedOut, false},
    {"short", kAMDBadReply, false},
    {"long", kAMDBadReply, false},
    {"garbled", kAMDBadReply, false},
    {"wrong-number", kAMDBadReply, false},
    {"tiny-length", kAMDBadReply, false},
    {"huge-length", kAMDBadReply, false},
};

class FaultyStep : public Session,
                   public ::testing::WithParamInterface<std::tuple<Step, StepFault>> {};

void PrintTo(const Step& step, std::ostream* stream) {
    *stream << step.name;
}

void PrintTo(const StepFault& fault, std::ostream* stream) {
    *stream << fault.action;
}

TEST_P(FaultyStep, FailsWithThisStatusAndNeverSucceeds) {
    const auto& [step, fault] = GetParam();
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    if (step.preparations > 0) {
        ASSERT_EQ(md.AMDeviceValidatePairing(device), 0);
    }
    if (step.preparations > 1) {
        ASSERT_EQ(md.AMDeviceStartSession(device), 0);
    }
    const bool waits = fault.status == kAMDTimedOut;
    md.AMDeviceSetCallTimeout(waits ? 50 : 0);
    phone().faults().add(parseFault("lockdown/" + std::string(step.request) + "=" + fault.action));
    const int32_t status = step.call(md, device);
    const bool hasStatus = step.call != copyName;
    EXPECT_EQ(status, hasStatus ? fault.status : -1);
    md.AMDeviceSetCallTimeout(0);
    // What follows works on a connection that lives, and fails at once on one that does not.
    EXPECT_EQ(copyName(md, device) == 0, fault.connectionLives);
    EXPECT_EQ(md.AMDeviceValidatePairing(device), fault.connectionLives ? 0 : kAMDNotConnected);
}

INSTANTIATE_TEST_SUITE_P(Steps, FaultyStep,
                         ::testing::Combine(::testing::ValuesIn(kSteps),
                                            ::testing::ValuesIn(kStepFaults)),
                         nameOfCallAndFault);

// ------------------------------------------------------------------ the bus

TEST_F(Session, AConnectionThatTheBusRefusesIsAStatus) {
    for (const char* action :
         {"status:2", "status:3", "status:1", "drop", "cut", "garbled", "wrong-operation"}) {
        SCOPED_TRACE(action);
        bus().faults().add(parseFault("usbmux/Connect=" + std::string(action)));
        EXPECT_EQ(md.AMDeviceConnect(device), kAMDNotConnected);
        EXPECT_EQ(md.AMDeviceValidatePairing(device), kAMDNotConnected);
    }
    EXPECT_EQ(md.AMDeviceConnect(device), 0);
}

TEST_F(Session, AFileConnectionThatTheBusRefusesUsesTheServiceUp) {
    openSession();
    am_service* service = startService("com.apple.afc");
    bus().faults().add(parseFault("usbmux/Connect=status:3"));
    afc_connection* files = nullptr;
    EXPECT_EQ(md.AFCConnectionOpen(service, 0, &files), kAFCNotConnected);
    EXPECT_EQ(files, nullptr);
    EXPECT_EQ(md.AFCConnectionOpen(service, 0, &files), kAFCNotConnected);
}

TEST_F(Session, APairRecordThatCannotBeReadIsNone) {
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    for (const char* action : {"status:2", "drop", "cut", "garbled", "wrong-operation"}) {
        SCOPED_TRACE(action);
        bus().faults().add(parseFault("usbmux/ReadPairRecord=" + std::string(action)));
        EXPECT_EQ(md.AMDeviceIsPaired(device), 0);
    }
    EXPECT_NE(md.AMDeviceIsPaired(device), 0);
}

} // namespace
} // namespace krl::provider::testing
