#include "tests/library/phone/PhoneTest.h"

#include <CoreFoundation/CFRef.h>

namespace {

using krl::cf::adopt;
using krl::cf::cast;
using krl::cf::CFRef;

class Information : public PhoneTest {
protected:
    void update() {
        KRTPhoneUpdateInformation(phone);
        information = adopt(KRTPhoneGetPhoneInformation(phone));
        ASSERT_TRUE(information);
    }

    bool has(CFStringRef key) const { return CFDictionaryContainsKey(information.get(), key); }

    CFIndex count() const { return CFDictionaryGetCount(information.get()); }

    bool isText(CFStringRef key, CFStringRef expected) const {
        const CFTypeRef value = CFDictionaryGetValue(information.get(), key);
        return value != nullptr && CFEqual(value, expected);
    }

    /// The free space; nothing when it is missing or no number of 64 bits.
    std::optional<int64_t> freeSpace() const {
        const auto number =
            cast<CFNumberRef>(CFDictionaryGetValue(information.get(), KRTPhoneFreeSpaceKey));
        int64_t bytes = 0;
        if (number == nullptr || CFNumberGetType(number) != kCFNumberSInt64Type ||
            !CFNumberGetValue(number, kCFNumberSInt64Type, &bytes)) {
            return std::nullopt;
        }
        return bytes;
    }

    CFRef<CFDictionaryRef> information;
};

TEST_F(Information, UpdateReadsNamesBeforeTheSessionDomainsInsideItAndSpaceAfterIt) {
    fake.phone().deviceInfo({{"Model", "M68AP"}, {"FSFreeBytes", "1000"}});
    update();
    EXPECT_THAT(fake.calls(),
                ElementsAreArray(
                    inTurn({kOpenCalls,
                            {"AMDeviceCopyValue * DeviceName", "AMDeviceCopyValue * DeviceClass",
                             "AMDeviceStartSession", "AMDeviceCopyValue * *",
                             "AMDeviceCopyValue com.apple.mobile.iTunes *", "AMDeviceStopSession",
                             "AFCDeviceInfoOpen", "AFCKeyValueRead", "AFCKeyValueRead",
                             "AFCKeyValueRead", "AMDeviceDisconnect"}})));
    EXPECT_EQ(counts(), (Counts{0, 1}));
    EXPECT_EQ(reportedCode(), std::nullopt);
}

TEST_F(Information, UpdateNeverClosesThePairsOfTheDeviceInformation) {
    update();
    EXPECT_EQ(fake.countOf("AFCKeyValueClose"), 0);
    EXPECT_EQ(fake.live().keyValues, 1);
}

TEST_F(Information, HasFiveKeys) {
    fake.phone().name("Anna's iPhone").deviceClass("iPhone").firmware("1.0.2").freeSpace(123456789);
    update();
    EXPECT_EQ(count(), 5);
    EXPECT_TRUE(isText(KRTPhoneNameKey, CFSTR("Anna's iPhone")));
    EXPECT_TRUE(isText(KRTPhoneClassKey, CFSTR("iPhone")));
    EXPECT_EQ(freeSpace(), 123456789);

    const auto versions =
        cast<CFDictionaryRef>(CFDictionaryGetValue(information.get(), CFSTR("PhoneVersions")));
    ASSERT_NE(versions, nullptr);
    EXPECT_TRUE(CFEqual(CFDictionaryGetValue(versions, CFSTR("ProductVersion")), CFSTR("1.0.2")));
    EXPECT_TRUE(CFDictionaryContainsKey(versions, CFSTR("UniqueDeviceID")));

    const auto library =
        cast<CFDictionaryRef>(CFDictionaryGetValue(information.get(), CFSTR("iTunesVersions")));
    ASSERT_NE(library, nullptr);
    EXPECT_TRUE(CFEqual(CFDictionaryGetValue(library, CFSTR("iTunesVersion")), CFSTR("7.4")));
}

TEST_F(Information, IsACopyThatCannotBeReachedThroughTheRecord) {
    update();
    EXPECT_NE(static_cast<const void*>(information.get()),
              static_cast<const void*>(phone->information));
    CFDictionaryRemoveAllValues(phone->information);
    EXPECT_EQ(count(), 5);
    EXPECT_EQ(CFGetRetainCount(information.get()), 1);
}

TEST_F(Information, UpdateReplacesTheDictionary) {
    fake.phone().name("Before");
    update();
    const auto before = krl::cf::retain(phone->information);
    fake.phone().withoutValue("DeviceName").deviceClass("iPod");
    update();
    EXPECT_FALSE(has(KRTPhoneNameKey));
    EXPECT_TRUE(isText(KRTPhoneClassKey, CFSTR("iPod")));
    EXPECT_EQ(CFGetRetainCount(before.get()), 1);
}

TEST_F(Information, ReleasesTheValuesThatItCopies) {
    const auto name =
        adopt(CFStringCreateWithCString(nullptr, "A longer name", kCFStringEncodingUTF8));
    fake.phone().value("", "DeviceName", name.get());
    const CFIndex before = CFGetRetainCount(name.get());
    KRTPhoneUpdateInformation(phone);
    // "PhoneName", and the same value among the phone's own.
    EXPECT_EQ(CFGetRetainCount(name.get()), before + 2);
    fake.phone().value("DeviceName", "Another");
    KRTPhoneUpdateInformation(phone);
    EXPECT_EQ(CFGetRetainCount(name.get()), 1);
}

TEST_F(Information, LeavesOutWhatThePhoneDoesNotTell) {
    fake.phone().withoutValue("DeviceName").withoutDomain("com.apple.mobile.iTunes");
    fake.phone().deviceInfo({{"Model", "M68AP"}});
    update();
    EXPECT_EQ(count(), 2);
    EXPECT_TRUE(has(KRTPhoneClassKey));
    EXPECT_TRUE(has(CFSTR("PhoneVersions")));
}

TEST_F(Information, LeavesOutValuesOfAnotherType) {
    const int number = 5;
    const auto object = adopt(CFNumberCreate(nullptr, kCFNumberIntType, &number));
    fake.phone().value("", "DeviceName", object.get()).value("", "DeviceClass", object.get());
    update();
    EXPECT_FALSE(has(KRTPhoneNameKey));
    EXPECT_FALSE(has(KRTPhoneClassKey));
    EXPECT_TRUE(has(CFSTR("PhoneVersions")));
}

TEST_F(Information, IsEmptyWhenThePhoneDoesNotOpen) {
    update();
    fake.fail("AMDeviceConnect", kStatus);
    update();
    EXPECT_EQ(count(), 0);
    EXPECT_EQ(reportedCode(), kStatus);
    EXPECT_EQ(fake.calls().back(), "AMDeviceDisconnect");
}

TEST_F(Information, IsEmptyAndThePhoneIsClosedOnceWhenTheServiceDoesNotStart) {
    openPhoneWithLeftover(3);
    fake.fail("AMDeviceStartSession", kStatus);
    update();
    EXPECT_EQ(count(), 0);
    EXPECT_EQ(reportedCode(), kStatus);
    EXPECT_EQ(counts(), (Counts{2, 0}));
    EXPECT_EQ(fake.countOf("AMDeviceCopyValue"), 0);
}

TEST_F(Information, WithoutASessionStopsUnreportedAndLeavesThePhoneOpenAndTheServiceStarted) {
    fake.failNth("AMDeviceStartSession", 2, kStatus);
    update();
    EXPECT_EQ(count(), 2);
    EXPECT_TRUE(has(KRTPhoneNameKey));
    EXPECT_TRUE(has(KRTPhoneClassKey));
    EXPECT_EQ(reportedCode(), std::nullopt);
    EXPECT_EQ(counts(), (Counts{1, 2}));
    EXPECT_EQ(fake.calls().back(), "AMDeviceStartSession");
}

TEST_F(Information, WithoutDeviceInformationReportsAndLeavesThePhoneOpenAndTheServiceStarted) {
    fake.fail("AFCDeviceInfoOpen", kStatus);
    update();
    EXPECT_EQ(count(), 4);
    EXPECT_FALSE(has(KRTPhoneFreeSpaceKey));
    EXPECT_EQ(reportedCode(), kStatus);
    EXPECT_EQ(counts(), (Counts{1, 2}));
    EXPECT_EQ(fake.calls().back(), "AFCDeviceInfoOpen");
}

TEST_F(Information, IgnoresAFailureToStopTheSession) {
    fake.failNth("AMDeviceStopSession", 2, kStatus);
    update();
    EXPECT_EQ(count(), 5);
    EXPECT_EQ(reportedCode(), std::nullopt);
    EXPECT_EQ(counts(), (Counts{0, 1}));
}

TEST_F(Information, UpdateOfAPhoneOpenedTwiceLeavesItOpenOnce) {
    openPhone(2);
    update();
    EXPECT_EQ(counts(), (Counts{1, 1}));
    EXPECT_EQ(fake.countOf("AMDeviceConnect"), 0);
}

// ---------------------------------------------------------------------------- free space

TEST_F(Information, FirstFreeSpaceCountsAndReadingGoesOn) {
    fake.phone().deviceInfo({{"FSFreeBytes", "1"}, {"FSFreeBytes", "2"}, {"FSTotalBytes", "3"}});
    update();
    EXPECT_EQ(freeSpace(), 1);
    EXPECT_EQ(fake.countOf("AFCKeyValueRead"), 4);
}

TEST_F(Information, FreeSpaceAboveTheLargestSignedNumberWraps) {
    fake.phone().freeSpace(uint64_t{1} << 63);
    update();
    EXPECT_EQ(freeSpace(), INT64_MIN);
    fake.phone().freeSpace(UINT64_MAX);
    update();
    EXPECT_EQ(freeSpace(), -1);
}

TEST_F(Information, FreeSpaceUpToTheLargestSignedNumberIsKept) {
    fake.phone().freeSpace(INT64_MAX);
    update();
    EXPECT_EQ(freeSpace(), INT64_MAX);
}

TEST_F(Information, FreeSpaceIsReadAsADecimalNumber) {
    fake.phone().deviceInfo({{"FSFreeBytes", "010"}});
    update();
    EXPECT_EQ(freeSpace(), 10);
}

TEST_F(Information, FreeSpaceThatIsNoNumberIsLeftOut) {
    fake.phone().deviceInfo({{"FSFreeBytes", "plenty"}});
    update();
    EXPECT_EQ(freeSpace(), std::nullopt);
    EXPECT_EQ(count(), 4);
}

struct BrokenOff {
    const char* name;
    krl::test::InfoPairs pairs;
};

class DeviceInformation : public ::testing::TestWithParam<BrokenOff>, protected WithPhone {};

TEST_P(DeviceInformation, EndsAtANullKeyOrValueWithoutAnError) {
    fake.phone().deviceInfo(GetParam().pairs);
    KRTPhoneUpdateInformation(phone);
    EXPECT_FALSE(CFDictionaryContainsKey(phone->information, KRTPhoneFreeSpaceKey));
    EXPECT_EQ(reportedCode(), std::nullopt);
    EXPECT_EQ(counts(), (Counts{0, 1}));
}

const BrokenOff kBrokenOff[] = {
    {"NullValue", {{"Model", std::nullopt}, {"FSFreeBytes", "1"}}},
    {"NullKey", {{std::nullopt, "M68AP"}, {"FSFreeBytes", "1"}}},
    {"NullFreeSpace", {{"FSFreeBytes", std::nullopt}, {"FSFreeBytes", "1"}}},
    {"Nothing", {}},
};

INSTANTIATE_TEST_SUITE_P(Each, DeviceInformation, ::testing::ValuesIn(kBrokenOff),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(Information, DeviceInformationThatBreaksOffIsNoError) {
    fake.phone().deviceInfo({{"Model", "M68AP"}, {"FSFreeBytes", "1"}});
    fake.failNth("AFCKeyValueRead", 2, kStatus);
    update();
    EXPECT_EQ(freeSpace(), std::nullopt);
    EXPECT_EQ(reportedCode(), std::nullopt);
    EXPECT_EQ(counts(), (Counts{0, 1}));
}

// ---------------------------------------------------------------------------- sweep

TEST(InformationSweep, AlwaysLeavesADictionaryAndReportsOnlyWhatIsReported) {
    for (const bool onwards : {false, true}) {
        for (int n = 1;; ++n) {
            SCOPED_TRACE((onwards ? "from call " : "call ") + std::to_string(n));
            KRTErrorClear();
            FakeMobileDevice fake;
            KRTPhoneRef phone = KRTPhoneWithDevice(fake.phone().device());
            onwards ? fake.failFromCall(n, kStatus) : fake.failNthCall(n, kStatus);
            KRTPhoneUpdateInformation(phone);
            const bool met = fake.faultsMet() > 0;
            EXPECT_NE(phone->information, nullptr);
            EXPECT_EQ(fake.countOf("AFCKeyValueClose"), 0);
            if (KRTError()) {
                EXPECT_TRUE(reportedCode() == kStatus || reportedCode() == 0);
            }
            KRTPhoneRelease(phone);
            EXPECT_EQ(fake.phone().references(), 0);
            if (!met) {
                EXPECT_FALSE(KRTError());
                break;
            }
        }
    }
    KRTErrorClear();
}

} // namespace
