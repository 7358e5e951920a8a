// How a phone goes.

#include "tests/library/discovery/PhoneManagerTest.h"

namespace {

using PhoneRemoval = PhoneManagerTest;

TEST_F(PhoneRemoval, DelegatesAreToldWhileThePhoneIsStillListedAndValid) {
    first.add();
    second.add();
    fake.attach();
    const KRTPhoneRef phone = phones().at(0);
    const auto check = [&](const std::string&, KRTPhoneRef removed) {
        EXPECT_EQ(removed, phone);
        EXPECT_EQ(KRTPhoneRawDevice(removed), fake.phone().device());
        EXPECT_THAT(phones(), ElementsAre(phone));
        EXPECT_EQ(fake.phone().references(), 1);
        EXPECT_EQ(fake.countOf("AMDeviceRelease"), 0);
    };
    first.then = check;
    second.then = check;
    told.clear();

    fake.detach();
    EXPECT_THAT(told, ElementsAre("first removed", "second removed"));
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 0);
    EXPECT_EQ(fake.phone().references(), 0);
}

TEST_F(PhoneRemoval, MakesNoCallButTheRelease) {
    first.add();
    fake.attach();
    fake.clearCalls();
    fake.detach();
    EXPECT_THAT(fake.calls(), ElementsAre("AMDeviceRelease"));
}

TEST_F(PhoneRemoval, OfADeviceThatIsNotListedIsToldToNobody) {
    first.add();
    fake.attach();
    told.clear();
    fake.clearCalls();
    FakePhone& stranger = fake.addPhone("stranger");
    fake.detach(stranger);
    EXPECT_THAT(told, IsEmpty());
    EXPECT_THAT(fake.calls(), IsEmpty());
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 1);
}

TEST_F(PhoneRemoval, OfADeviceThatIsNoIPhoneIsToldToNobody) {
    first.add();
    fake.phone().deviceClass("iPod");
    errorOutputOf([&] { fake.attach(); });
    told.clear();
    fake.detach();
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(PhoneRemoval, TakesTheOtherPhonesNothing) {
    first.add();
    FakePhone& other = fake.addPhone("other");
    fake.attach();
    fake.attach(other);
    const KRTPhoneRef otherPhone = phones().at(1);
    fake.detach();
    EXPECT_THAT(phones(), ElementsAre(otherPhone));
    EXPECT_EQ(other.references(), 1);
}

TEST_F(PhoneRemoval, OfADeviceThatArrivedTwiceTakesTheLatestPhoneFirst) {
    first.add();
    fake.attach();
    fake.attach();
    const auto both = phones();
    first.phones.clear();

    fake.detach();
    EXPECT_THAT(first.phones, ElementsAre(both[1]));
    EXPECT_THAT(phones(), ElementsAre(both[0]));
    fake.detach();
    EXPECT_THAT(first.phones, ElementsAre(both[1], both[0]));
    EXPECT_THAT(phones(), IsEmpty());
    EXPECT_EQ(fake.phone().references(), 0);
}

TEST_F(PhoneRemoval, ReportedOnceMoreFromACallbackReleasesThePhoneOnce) {
    first.add();
    fake.attach();
    first.then = [&](const std::string&, KRTPhoneRef) {
        first.then = nullptr;
        KRTPhoneManagerPhoneDisconnectedNotification(fake.phone().device());
    };
    told.clear();
    fake.detach();
    EXPECT_THAT(told, ElementsAre("first removed", "first removed"));
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 0);
    EXPECT_EQ(fake.countOf("AMDeviceRelease"), 1);
}

TEST_F(PhoneRemoval, APhoneComesBackAsAnother) {
    first.add();
    fake.attach();
    fake.detach();
    fake.attach();
    EXPECT_THAT(told, ElementsAre("first connected", "first removed", "first connected"));
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 1);
    EXPECT_FALSE(KRTError());
}

} // namespace
