#include "tests/library/phone/PhoneTest.h"

#include <cstddef>
#include <functional>
#include <type_traits>

namespace {

using PhoneRecord = PhoneTest;

static_assert(std::is_trivial_v<__KRTPhone>);

// The documented fields in their order, each where a compiler of C puts it.
struct DocumentedFields {
    void* device;
    void* information;
    int32_t openCount;
    int32_t fileServiceCount;
    void* fileService;
    void* fileConnection;
    void* notificationProxy;
    void* spareConnection;
    uint64_t lockFile;
    uint64_t spareValue;
    void* ringtoneManager;
};

#define KRL_SAME_PLACE(field)                                                                      \
    static_assert(offsetof(__KRTPhone, field) == offsetof(DocumentedFields, field) &&              \
                  sizeof(__KRTPhone::field) == sizeof(DocumentedFields::field))
KRL_SAME_PLACE(device);
KRL_SAME_PLACE(information);
KRL_SAME_PLACE(openCount);
KRL_SAME_PLACE(fileServiceCount);
KRL_SAME_PLACE(fileService);
KRL_SAME_PLACE(fileConnection);
KRL_SAME_PLACE(notificationProxy);
KRL_SAME_PLACE(spareConnection);
KRL_SAME_PLACE(lockFile);
KRL_SAME_PLACE(spareValue);
KRL_SAME_PLACE(ringtoneManager);
#undef KRL_SAME_PLACE
static_assert(offsetof(__KRTPhone, lifetime) >= sizeof(DocumentedFields));

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

/// A store record as the phone sees it: an address, and a function that lets go of it.
struct StoreStandIn {
    static std::function<void(KRTRingtoneManagerRef)> onRelease;

    static void release(KRTRingtoneManagerRef store) { onRelease(store); }

    KRTRingtoneManagerRef record() { return reinterpret_cast<KRTRingtoneManagerRef>(this); }
};

std::function<void(KRTRingtoneManagerRef)> StoreStandIn::onRelease;

TEST_F(PhoneRecord, ReleaseReleasesTheStoreRecordFirst) {
    KRTPhoneRef other = KRTPhoneWithDevice(fake.phone().device());
    KRTPhoneUpdateInformation(other);
    const auto information = krl::cf::retain(other->information);
    StoreStandIn store;
    other->ringtoneManager = store.record();
    other->lifetime.storeRelease = StoreStandIn::release;
    fake.clearCalls();

    int releases = 0;
    StoreStandIn::onRelease = [&](KRTRingtoneManagerRef released) {
        ++releases;
        EXPECT_EQ(released, store.record());
        EXPECT_EQ(CFGetRetainCount(information.get()), 2);
        EXPECT_THAT(fake.calls(), IsEmpty());
    };
    KRTPhoneRelease(other);
    StoreStandIn::onRelease = nullptr;

    EXPECT_EQ(releases, 1);
    EXPECT_EQ(CFGetRetainCount(information.get()), 1);
    EXPECT_THAT(fake.calls(), ElementsAre("AMDeviceRelease"));
}

TEST_F(PhoneRecord, ReleaseGivesTheInformationBackBeforeTheDevice) {
    KRTPhoneRef other = KRTPhoneWithDevice(fake.phone().device());
    KRTPhoneUpdateInformation(other);
    const auto information = krl::cf::retain(other->information);
    int releases = 0;
    fake.onCall([&](const std::string& line) {
        EXPECT_EQ(line, "AMDeviceRelease");
        EXPECT_EQ(CFGetRetainCount(information.get()), 1);
        ++releases;
    });
    KRTPhoneRelease(other);
    EXPECT_EQ(releases, 1);
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
