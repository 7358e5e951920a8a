#include "tests/library/phone/PhoneTest.h"
#include "tests/library/phone/StoreStandIn.h"

#include <type_traits>

namespace {

using PhoneRecord = PhoneTest;

static_assert(std::is_trivial_v<__KRTPhone>);

TEST_F(PhoneRecord, StartsClosedWithEverythingEmpty) {
    EXPECT_EQ(phone->device, fake.phone().device());
    EXPECT_EQ(phone->information, nullptr);
    EXPECT_EQ(counts(), (Counts{0, 0}));
    EXPECT_EQ(phone->fileService, nullptr);
    EXPECT_EQ(phone->fileConnection, nullptr);
    EXPECT_EQ(phone->notificationProxy, nullptr);
    EXPECT_EQ(phone->spareConnection, nullptr);
    EXPECT_EQ(phone->lockFile, 0u);
    EXPECT_EQ(phone->spareValue, 0u);
    EXPECT_EQ(phone->ringtoneManager, nullptr);
}

TEST_F(PhoneRecord, RetainsTheDeviceAndReleaseGivesItBack) {
    KRTPhoneRef other = KRTPhoneWithDevice(fake.phone().device());
    EXPECT_THAT(fake.calls(), ElementsAre("AMDeviceRetain"));
    EXPECT_EQ(fake.phone().references(), 2);
    KRTPhoneRelease(other);
    EXPECT_THAT(fake.calls(), ElementsAre("AMDeviceRetain", "AMDeviceRelease"));
    EXPECT_EQ(fake.phone().references(), 1);
}

TEST_F(PhoneRecord, LendsTheDevice) {
    EXPECT_EQ(KRTPhoneRawDevice(phone), fake.phone().device());
    EXPECT_THAT(fake.calls(), IsEmpty());
}

TEST_F(PhoneRecord, ReleaseOfNullDoesNothing) {
    KRTPhoneRelease(nullptr);
    EXPECT_THAT(fake.calls(), IsEmpty());
}

TEST_F(PhoneRecord, ReleaseOfAnOpenPhoneNeitherClosesNorDisconnects) {
    KRTPhoneRef other = KRTPhoneWithDevice(fake.phone().device());
    ASSERT_EQ(KRTPhoneOpen(other), 1);
    fake.clearCalls();
    KRTPhoneRelease(other);
    EXPECT_THAT(fake.calls(), ElementsAre("AMDeviceRelease"));
    EXPECT_TRUE(fake.phone().isConnected());
    EXPECT_EQ(fake.live().fileConnections, 1);
}

TEST_F(PhoneRecord, MakesItsStoreRecordOnceAndKeepsIt) {
    StoreStandIn::reset();
    KRTRingtoneManagerRef manager = KRTPhoneGetRingtoneManager(phone);
    EXPECT_NE(manager, nullptr);
    EXPECT_EQ(phone->ringtoneManager, manager);
    EXPECT_EQ(KRTPhoneGetRingtoneManager(phone), manager);
    EXPECT_EQ(StoreStandIn::made, 1);
}

TEST_F(PhoneRecord, ReleaseReleasesTheStoreRecordFirst) {
    StoreStandIn::reset();
    KRTPhoneRef other = KRTPhoneWithDevice(fake.phone().device());
    KRTPhoneUpdateInformation(other);
    const auto information = krl::cf::retain(other->information);
    KRTPhoneGetRingtoneManager(other);
    fake.clearCalls();

    int releases = 0;
    StoreStandIn::onRelease = [&](KRTPhoneRef released) {
        ++releases;
        EXPECT_EQ(released, other);
        EXPECT_EQ(CFGetRetainCount(information.get()), 2);
        EXPECT_THAT(fake.calls(), IsEmpty());
    };
    KRTPhoneRelease(other);
    StoreStandIn::reset();

    EXPECT_EQ(releases, 1);
    EXPECT_EQ(CFGetRetainCount(information.get()), 1);
    EXPECT_THAT(fake.calls(), ElementsAre("AMDeviceRelease"));
}

TEST_F(PhoneRecord, HasNoInformationBeforeTheFirstUpdate) {
    EXPECT_EQ(KRTPhoneGetPhoneInformation(phone), nullptr);
}

TEST(PhoneConstants, HaveTheirTexts) {
    EXPECT_TRUE(CFEqual(KRTPhoneNameKey, CFSTR("PhoneName")));
    EXPECT_TRUE(CFEqual(KRTPhoneClassKey, CFSTR("PhoneClass")));
    EXPECT_TRUE(CFEqual(KRTPhoneFreeSpaceKey, CFSTR("PhoneFreeSpace")));
    EXPECT_TRUE(CFEqual(KRTPhoneNumberKey, CFSTR("PhoneNumber")));
    EXPECT_TRUE(CFEqual(KRTPhoneSizeKey, CFSTR("PhoneSize")));
}

TEST(PhoneConstants, SupportedFormatsAreNullAtFirst) {
    EXPECT_EQ(KRTPhoneSupportedFormats, nullptr);
}

} // namespace
