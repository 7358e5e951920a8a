// What an arriving device goes through before anybody is told of it.

#include "tests/library/discovery/LinkedFunctions.h"
#include "tests/library/discovery/PhoneManagerTest.h"

#include <ostream>

namespace {

using PhoneArrival = PhoneManagerTest;

constexpr char kNotOpened[] =
    "Error: KRTPhoneManagerPhoneConnectedNotification, Unable to open phone";
constexpr char kNoIPhone[] =
    "Error: KRTPhoneManagerPhoneConnectedNotification, Unable to open phone, not an iPhone";

TEST_F(PhoneArrival, OpensThePhoneReadsItsInformationAndClosesIt) {
    first.add();
    fake.clearCalls();
    std::vector<std::string> calls;
    first.then = [&](const std::string&, KRTPhoneRef) { calls = fake.calls(); };
    fake.attach();

    std::erase_if(calls, [](const std::string& call) { return call.starts_with("AFCKeyValue"); });
    EXPECT_THAT(calls,
                ElementsAre("AMDeviceRetain",
                            // open
                            "AMDeviceConnect", "AMDeviceIsPaired", "AMDeviceValidatePairing",
                            "AMDeviceStartSession", "AMDeviceStartService com.apple.afc",
                            "AMDeviceStopSession", "AFCConnectionOpen",
                            // information
                            "AMDeviceCopyValue * DeviceName", "AMDeviceCopyValue * DeviceClass",
                            "AMDeviceStartSession", "AMDeviceCopyValue * *",
                            "AMDeviceCopyValue com.apple.mobile.iTunes *", "AMDeviceStopSession",
                            "AFCDeviceInfoOpen",
                            // closed by the end of the file service
                            "AMDeviceDisconnect"));
    EXPECT_EQ(fake.calls().back(), "AMDeviceDisconnect"); // nothing after the delegates
}

TEST_F(PhoneArrival, DelegatesAreToldOfAListedPhoneWithItsInformation) {
    first.add();
    first.then = [&](const std::string&, KRTPhoneRef phone) {
        EXPECT_THAT(phones(), ElementsAre(phone));
        EXPECT_EQ(KRTPhoneRawDevice(phone), fake.phone().device());
        EXPECT_EQ(KRTPhoneFirmwareVersion(phone), 1011);
    };
    second.add();
    fake.attach();
    EXPECT_THAT(told, ElementsAre("first connected", "second connected"));
    EXPECT_EQ(first.phones, second.phones);
}

TEST_F(PhoneArrival, LeavesOpenZeroServiceOneAndALiveConnection) {
    first.add();
    first.then = [&](const std::string&, KRTPhoneRef phone) {
        EXPECT_EQ(phone->openCount, 0);
        EXPECT_EQ(phone->fileServiceCount, 1);
        EXPECT_NE(phone->fileConnection, nullptr);
        EXPECT_EQ(fake.live().fileConnections, 1);
        EXPECT_FALSE(fake.phone().isConnected());
    };
    fake.attach();
    EXPECT_THAT(told, ElementsAre("first connected"));
}

TEST_F(PhoneArrival, ThePhoneMayBeOpenedFromTheCallback) {
    first.add();
    first.then = [&](const std::string&, KRTPhoneRef phone) {
        ASSERT_EQ(KRTPhoneOpen(phone), 1);
        KRTPhoneClose(phone);
    };
    fake.attach();
    EXPECT_FALSE(KRTError());
}

TEST_F(PhoneArrival, WritesNothingForAnIPhone) {
    first.add();
    EXPECT_EQ(errorOutputOf([&] { fake.attach(); }), "");
    EXPECT_FALSE(KRTError());
    EXPECT_EQ(fake.phone().references(), 1);
}

TEST_F(PhoneArrival, OneDeviceThatArrivesTwiceIsTwoPhones) {
    first.add();
    fake.attach();
    fake.attach();
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 2);
    EXPECT_EQ(fake.phone().references(), 2);
    ASSERT_EQ(first.phones.size(), 2U);
    EXPECT_NE(first.phones[0], first.phones[1]);
    EXPECT_EQ(phones(), first.phones);
}

TEST_F(PhoneArrival, WithoutMemoryForARecordIsIgnoredInSilence) {
    first.add();
    fake.clearCalls();
    LinkedFunctions::failNextAllocation();
    EXPECT_EQ(errorOutputOf([&] { fake.attach(); }), "");
    EXPECT_THAT(told, IsEmpty());
    EXPECT_THAT(fake.calls(), IsEmpty());
    EXPECT_FALSE(KRTError());
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 0);
}

// ---------------------------------------------------------------------------- not opened

struct OpenFailure {
    const char* function;
    int32_t status;
    int code;

    friend void PrintTo(const OpenFailure& row, std::ostream* out) { *out << row.function; }
};

class PhoneArrivalNotOpened : public PhoneManagerTest,
                              public testing::WithParamInterface<OpenFailure> {};

TEST_P(PhoneArrivalNotOpened, IsReportedDroppedAndToldToNobody) {
    first.add();
    second.add();
    fake.fail(GetParam().function, GetParam().status);
    EXPECT_EQ(errorOutputOf([&] { fake.attach(); }), kNotOpened);
    EXPECT_THAT(told, IsEmpty());
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 0);
    EXPECT_EQ(fake.phone().references(), 0);
    EXPECT_EQ(fake.countOf("AMDeviceCopyValue"), 0);
    // The lowest layer's report came first.
    EXPECT_TRUE(KRTError());
    EXPECT_STREQ(KRTErrorGetFile(), "KRTPhoneInternal");
    EXPECT_EQ(KRTErrorGetCode(), GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(Calls, PhoneArrivalNotOpened,
                         testing::Values(OpenFailure{"AMDeviceConnect", kStatus, kStatus},
                                         OpenFailure{"AMDeviceIsPaired", 0, 0},
                                         OpenFailure{"AMDeviceValidatePairing", kStatus, kStatus},
                                         OpenFailure{"AMDeviceStartSession", kStatus, kStatus},
                                         OpenFailure{"AMDeviceStartService", kStatus, kStatus},
                                         OpenFailure{"AMDeviceStopSession", kStatus, kStatus},
                                         OpenFailure{"AFCConnectionOpen", kStatus, kStatus}),
                         [](const testing::TestParamInfo<OpenFailure>& row) {
                             return row.param.function;
                         });

TEST_F(PhoneArrival, AFailedOpenIsRecordedAsCodeZeroAfterThePhoneIsReleased) {
    first.add();
    fake.fail("AMDeviceConnect", kStatus);
    // The phone's own report is taken away, so that the manager's is seen.
    fake.onCall([&](const std::string& line) {
        if (line == "AMDeviceRelease") {
            KRTErrorClear();
        }
    });
    errorOutputOf([&] { fake.attach(); });
    EXPECT_TRUE(KRTError());
    EXPECT_STREQ(KRTErrorGetFile(), "KRTPhoneManagerInternal");
    EXPECT_EQ(KRTErrorGetCode(), 0);
}

TEST_F(PhoneArrival, APhoneThatWasNotOpenedMayArriveAgain) {
    first.add();
    fake.failNth("AMDeviceConnect", 1, kStatus);
    errorOutputOf([&] { fake.attach(); });
    fake.attach();
    EXPECT_THAT(told, ElementsAre("first connected"));
}

// ---------------------------------------------------------------------------- not an iPhone

struct NoIPhone {
    const char* name;
    void (*prepare)(FakePhone& phone);

    friend void PrintTo(const NoIPhone& row, std::ostream* out) { *out << row.name; }
};

class ArrivalOfAnotherDevice : public PhoneManagerTest,
                               public testing::WithParamInterface<NoIPhone> {};

TEST_P(ArrivalOfAnotherDevice, IsToldToEveryDelegateWithoutAPhone) {
    first.add();
    second.add();
    GetParam().prepare(fake.phone());
    first.then = [&](const std::string&, KRTPhoneRef) {
        EXPECT_EQ(fake.phone().references(), 0); // released before
        EXPECT_EQ(KRTGetConnectedPhoneCount(), 0);
    };
    EXPECT_EQ(errorOutputOf([&] { fake.attach(); }), kNoIPhone);
    EXPECT_THAT(told, ElementsAre("first connected null", "second connected null"));
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 0);
    EXPECT_FALSE(KRTError());
    EXPECT_EQ(KRTErrorGetFile(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Classes, ArrivalOfAnotherDevice,
    testing::Values(
        NoIPhone{"AnotherClass", [](FakePhone& phone) { phone.deviceClass("iPod"); }},
        NoIPhone{"AnotherCase", [](FakePhone& phone) { phone.deviceClass("iphone"); }},
        NoIPhone{"EmptyClass", [](FakePhone& phone) { phone.deviceClass(""); }},
        NoIPhone{"NoClass", [](FakePhone& phone) { phone.withoutValue("DeviceClass"); }},
        NoIPhone{"ClassThatIsNoString",
                 [](FakePhone& phone) { phone.value("", "DeviceClass", kCFBooleanTrue); }}),
    [](const testing::TestParamInfo<NoIPhone>& row) { return row.param.name; });

// ---------------------------------------------------------------------------- information half
// read

TEST_F(PhoneArrival, WhatCountsIsTheClassWhateverElseIsMissing) {
    first.add();
    fake.phone().withoutValue("DeviceName").withoutValue("ProductVersion");
    fake.attach();
    EXPECT_THAT(told, ElementsAre("first connected"));
    EXPECT_EQ(KRTPhoneFirmwareVersion(phones().at(0)), 1014);
}

TEST_F(PhoneArrival, AnInformationThatStopsAfterTheClassLeavesAnIPhoneThatIsOpenOnceStill) {
    first.add();
    fake.failNth("AMDeviceStartSession", 2, kStatus); // the one for the information
    EXPECT_EQ(errorOutputOf([&] { fake.attach(); }), "");
    EXPECT_THAT(told, ElementsAre("first connected"));
    const KRTPhoneRef phone = phones().at(0);
    EXPECT_EQ(phone->openCount, 1);
    EXPECT_EQ(phone->fileServiceCount, 2);
    EXPECT_TRUE(fake.phone().isConnected());
}

TEST_F(PhoneArrival, APhonePulledOutBeforeItsClassIsReadIsNoIPhone) {
    first.add();
    fake.onCall([&](const std::string& line) {
        if (line == "AMDeviceCopyValue * DeviceName") {
            fake.pull(fake.phone());
        }
    });
    EXPECT_EQ(errorOutputOf([&] { fake.attach(); }), kNoIPhone);
    EXPECT_THAT(told, ElementsAre("first connected null"));
    EXPECT_EQ(fake.phone().references(), 0);
}

// ---------------------------------------------------------------------------- any failing call

TEST_F(PhoneArrival, WhateverCallFailsThePhoneIsEitherListedAndToldOrGone) {
    first.add();
    bool isFaultMet = true;
    int n = 1;
    for (; isFaultMet; ++n) {
        SCOPED_TRACE(n);
        told.clear();
        fake.failNthCall(n, kStatus);
        errorOutputOf([&] { fake.attach(); });
        isFaultMet = fake.faultsMet() > 0;
        fake.clearFaults();

        const int count = KRTGetConnectedPhoneCount();
        EXPECT_EQ(fake.phone().references(), count);
        if (count == 1) {
            EXPECT_THAT(told, ElementsAre("first connected"));
        } else {
            EXPECT_THAT(told, testing::AnyOf(IsEmpty(), ElementsAre("first connected null")));
        }
        fake.detach();
        EXPECT_EQ(KRTGetConnectedPhoneCount(), 0);
        EXPECT_EQ(fake.phone().references(), 0);
    }
    EXPECT_GT(n, 15);
}

} // namespace
