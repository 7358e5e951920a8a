// News that come while others are being told, because a callback runs the run loop.

#include "tests/library/discovery/PhoneManagerTest.h"

namespace {

class NestedNews : public PhoneManagerTest {
protected:
    /// From now on the listener has the phone pulled out in its callback of this kind, once.
    void detachWithin(Listener& listener, const std::string& kind) {
        listener.then = [this, &listener, kind](const std::string& what, KRTPhoneRef) {
            if (what == kind) {
                listener.then = nullptr;
                fake.detach();
            }
        };
    }

    void addThree() {
        first.add();
        second.add();
        third.add();
    }
};

TEST_F(NestedNews, ARemovalDuringTheArrivalIsToldWhenAllHaveHeardOfTheArrival) {
    addThree();
    detachWithin(second, "connected");
    fake.attach();
    EXPECT_THAT(told, ElementsAre("first connected", "second connected", "third connected",
                                  "first removed", "second removed", "third removed"));
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 0);
    EXPECT_EQ(fake.phone().references(), 0);
}

TEST_F(NestedNews, NobodyIsHandedAPhoneThatWasFreed) {
    first.add();
    second.add();
    detachWithin(first, "connected");
    second.then = [&](const std::string&, KRTPhoneRef phone) {
        EXPECT_EQ(KRTPhoneRawDevice(phone), fake.phone().device());
        EXPECT_THAT(phones(), ElementsAre(phone));
        EXPECT_EQ(KRTPhoneOpen(phone), 0) << "it is gone, and says so";
    };
    fake.attach();
    EXPECT_THAT(told, ElementsAre("first connected", "second connected", "first removed",
                                  "second removed"));
}

TEST_F(NestedNews, ThePhoneOfARunningCallbackStaysWithoutADevice) {
    first.add();
    first.then = [&](const std::string& what, KRTPhoneRef phone) {
        if (what == "connected") {
            fake.detach();
            EXPECT_EQ(KRTPhoneRawDevice(phone), nullptr);
            EXPECT_EQ(KRTPhoneOpen(phone), 0);
            // No other phone has got its address meanwhile.
            first.then = nullptr;
            fake.attach();
            EXPECT_THAT(phones(), testing::Not(testing::Contains(phone)));
        }
    };
    fake.attach();
    EXPECT_THAT(told, ElementsAre("first connected", "first removed", "first connected"));
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 1);
}

TEST_F(NestedNews, TheRemovalIsToldOnceHoweverDeepItCameWithinTheArrival) {
    addThree();
    detachWithin(first, "connected");
    // The arrival is told to the end within the first removal; another one comes there.
    detachWithin(second, "connected");
    fake.attach();
    EXPECT_THAT(told, ElementsAre("first connected", "second connected", "third connected",
                                  "first removed", "second removed", "third removed"));
    EXPECT_EQ(fake.countOf("AMDeviceRelease"), 1);
}

TEST_F(NestedNews, ARemovalWithinTheRemovalIsToldAfterIt) {
    first.add();
    second.add();
    fake.attach();
    detachWithin(first, "removed");
    told.clear();
    fake.detach();
    EXPECT_THAT(told,
                ElementsAre("first removed", "second removed", "first removed", "second removed"));
    EXPECT_EQ(fake.countOf("AMDeviceRelease"), 1);
}

TEST_F(NestedNews, APhoneThatComesBackWithinItsRemovalStays) {
    first.add();
    fake.attach();
    first.then = [&](const std::string&, KRTPhoneRef) {
        first.then = nullptr;
        fake.detach();
        fake.attach();
    };
    fake.detach();
    EXPECT_THAT(
        told, ElementsAre("first connected", "first removed", "first removed", "first connected"));
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 1);
    EXPECT_EQ(fake.phone().references(), 1);
}

TEST_F(NestedNews, OfAnotherPhoneComeAtOnce) {
    FakePhone& other = fake.addPhone("other");
    first.add();
    second.add();
    first.then = [&](const std::string&, KRTPhoneRef) {
        first.then = nullptr;
        fake.attach(other);
        fake.detach(other);
    };
    fake.attach();
    EXPECT_THAT(told, ElementsAre("first connected", "first connected", "second connected",
                                  "first removed", "second removed", "second connected"));
    EXPECT_THAT(phones(), ElementsAre(first.phones.at(0)));
}

TEST_F(NestedNews, OneWhoWasPassedOverIsNotToldOfTheArrivalLater) {
    addThree();
    first.then = [&](const std::string&, KRTPhoneRef) {
        first.remove();
        fake.detach();
    };
    fake.attach();
    EXPECT_THAT(
        told, ElementsAre("first connected", "third connected", "second removed", "third removed"));
}

TEST_F(NestedNews, AShutdownWithinThemEndsThemAll) {
    for (const bool isReplaced : {false, true}) {
        told.clear();
        KRTPhoneManagerInit();
        addThree();
        detachWithin(first, "connected");
        second.then = [&](const std::string&, KRTPhoneRef) {
            KRTPhoneManagerShutdown();
            if (isReplaced) {
                KRTPhoneManagerInit();
                third.add();
            }
        };
        fake.attach();
        EXPECT_THAT(told, ElementsAre("first connected", "second connected"));
        EXPECT_EQ(KRTGetConnectedPhoneCount(), isReplaced ? 0 : -1);
        EXPECT_EQ(fake.phone().references(), 0);
        second.then = nullptr;
        KRTPhoneManagerShutdown();
    }
}

} // namespace
