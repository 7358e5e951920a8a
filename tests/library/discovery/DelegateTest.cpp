// Delegates and the subscription that they keep alive.

#include "tests/library/discovery/LinkedFunctions.h"
#include "tests/library/discovery/PhoneManagerTest.h"

namespace {

using krl::discovery::Notification;
using PhoneManagerDelegates = PhoneManagerTest;

TEST_F(PhoneManagerDelegates, TheRecordHasTheCallbacksFirstAndTheContextLast) {
    static int context = 0;
    const KRTPhoneManagerCallback connected = [](void* given, KRTPhoneRef) {
        ++*static_cast<int*>(given);
    };
    const KRTPhoneManagerCallback removed = [](void* given, KRTPhoneRef) {
        --*static_cast<int*>(given);
    };
    const KRTPhoneManagerDelegateRef delegate =
        KRTPhoneManagerAddDelegate(&context, connected, removed);
    ASSERT_NE(delegate, nullptr);
    EXPECT_EQ(delegate->connected, connected);
    EXPECT_EQ(delegate->removed, removed);
    EXPECT_EQ(delegate->context, &context);
    fake.attach();
    EXPECT_EQ(context, 1);
    fake.detach();
    EXPECT_EQ(context, 0);
}

TEST_F(PhoneManagerDelegates, TheSubscriptionIsAskedForWithZerosAndThePlaceOfTheHandle) {
    static struct {
        am_device_notification_callback callback;
        uint32_t first;
        uint32_t second;
        void* cookie;
        am_device_notification** place;
    } given;

    const auto watch = [](am_device_notification_callback callback, uint32_t one, uint32_t two,
                          void* cookie, am_device_notification** place) -> int32_t {
        given = {callback, one, two, cookie, place};
        return kStatus;
    };
    AMDeviceNotificationSubscribe = watch;
    for (const bool byDelegate : {true, false}) {
        given = {nullptr, 1, 1, this, nullptr};
        if (byDelegate) {
            first.add();
            EXPECT_NE(first.handle, nullptr); // a failure is not looked at
        } else {
            EXPECT_EQ(KRTPhoneManagerBeginSearch(), kStatus);
        }
        EXPECT_EQ(given.callback, &_amd_callback);
        EXPECT_EQ(given.first, 0U);
        EXPECT_EQ(given.second, 0U);
        EXPECT_EQ(given.cookie, nullptr);
        EXPECT_EQ(given.place, &_gKRTPhoneSharedPhoneManager->notification);
    }
}

TEST_F(PhoneManagerDelegates, TheFirstSubscribesAndTheLastEndsTheSubscription) {
    first.add();
    second.add();
    EXPECT_THAT(fake.calls(), ElementsAre("AMDeviceNotificationSubscribe"));
    EXPECT_NE(_gKRTPhoneSharedPhoneManager->notification, nullptr);
    fake.clearCalls();

    first.remove();
    EXPECT_THAT(fake.calls(), IsEmpty());
    EXPECT_EQ(fake.live().subscriptions, 1);

    second.remove();
    EXPECT_THAT(fake.calls(), ElementsAre("AMDShutdownNotificationProxy subscription"));
    EXPECT_EQ(_gKRTPhoneSharedPhoneManager->notification, nullptr);
    EXPECT_EQ(fake.live().subscriptions, 0);
}

TEST_F(PhoneManagerDelegates, AfterTheLastTheNextOneSubscribesAgain) {
    first.add();
    first.remove();
    second.add();
    EXPECT_EQ(fake.live().subscriptions, 1);
    fake.attach();
    EXPECT_THAT(told, ElementsAre("second connected"));
}

TEST_F(PhoneManagerDelegates, PhonesThatWereThereBeforeAreAnnounced) {
    fake.attach();
    first.add();
    EXPECT_THAT(told, IsEmpty());
    fake.deliverArrivals();
    EXPECT_THAT(told, ElementsAre("first connected"));
}

TEST_F(PhoneManagerDelegates, WithoutMemoryNoneIsAdded) {
    LinkedFunctions::failNextAllocation();
    first.add();
    EXPECT_EQ(first.handle, nullptr);
    EXPECT_THAT(fake.calls(), IsEmpty());
    EXPECT_EQ(CFArrayGetCount(_gKRTPhoneSharedPhoneManager->delegates), 0);
    EXPECT_FALSE(KRTError());
}

TEST_F(PhoneManagerDelegates, OneThatIsNotRegisteredIsNotRemoved) {
    __krt_manager_delegate stranger{};
    first.add();
    fake.clearCalls();
    KRTPhoneManagerRemoveDelegate(&stranger);
    KRTPhoneManagerRemoveDelegate(nullptr);
    EXPECT_THAT(fake.calls(), IsEmpty());
    fake.attach();
    EXPECT_THAT(told, ElementsAre("first connected"));

    first.remove();
    fake.clearCalls();
    KRTPhoneManagerRemoveDelegate(&stranger);
    EXPECT_THAT(fake.calls(), IsEmpty());
}

TEST_F(PhoneManagerDelegates, OneMayBeRegisteredTwice) {
    first.add();
    const KRTPhoneManagerDelegateRef earlier = first.handle;
    first.add();
    EXPECT_NE(earlier, first.handle);
    fake.attach();
    EXPECT_THAT(told, ElementsAre("first connected", "first connected"));
    KRTPhoneManagerRemoveDelegate(earlier);
    fake.detach();
    EXPECT_THAT(told, ElementsAre("first connected", "first connected", "first removed"));
}

// ---------------------------------------------------------------------------- searching by hand

TEST_F(PhoneManagerDelegates, ASearchNeedsNoDelegate) {
    EXPECT_EQ(KRTPhoneManagerBeginSearch(), 0);
    EXPECT_NE(_gKRTPhoneSharedPhoneManager->notification, nullptr);
    fake.attach();
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 1);
    fake.clearCalls();

    KRTPhoneManagerEndSearch();
    EXPECT_THAT(fake.calls(), ElementsAre("AMDShutdownNotificationProxy subscription"));
    EXPECT_EQ(_gKRTPhoneSharedPhoneManager->notification, nullptr);
}

TEST_F(PhoneManagerDelegates, SubscribingAgainForgetsTheEarlierHandle) {
    KRTPhoneManagerBeginSearch();
    const am_device_notification* const earlier = _gKRTPhoneSharedPhoneManager->notification;
    first.add();
    EXPECT_NE(_gKRTPhoneSharedPhoneManager->notification, earlier);
    EXPECT_EQ(fake.live().subscriptions, 2);
    first.remove();
    EXPECT_EQ(fake.live().subscriptions, 1);
}

// ---------------------------------------------------------------------------- what they are told

TEST_F(PhoneManagerDelegates, AreToldInOrderOfRegistration) {
    second.add();
    first.add();
    third.add();
    fake.attach();
    fake.detach();
    EXPECT_THAT(told, ElementsAre("second connected", "first connected", "third connected",
                                  "second removed", "first removed", "third removed"));
}

TEST_F(PhoneManagerDelegates, OtherKindsOfNotificationsReachNobody) {
    first.add();
    Notification notification{nullptr, nullptr, 0};
    for (const int32_t kind : {0, 3, 4, -1}) {
        notification.kind = kind;
        _phone_connection_loop(first.handle, &notification);
    }
    EXPECT_THAT(told, IsEmpty());
    notification.kind = 1;
    _phone_connection_loop(first.handle, &notification);
    notification.kind = 2;
    _phone_connection_loop(first.handle, &notification);
    EXPECT_THAT(told, ElementsAre("first connected null", "first removed null"));
}

TEST_F(PhoneManagerDelegates, OtherMessagesOfTheDeviceLayerAreIgnored) {
    first.add();
    fake.attach();
    told.clear();
    fake.clearCalls();
    for (const uint32_t message : {0U, 3U, 4U, 0xFFFFFFFFU}) {
        fake.notify(fake.phone(), message);
    }
    EXPECT_THAT(told, IsEmpty());
    EXPECT_THAT(fake.calls(), IsEmpty());
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 1);
}

// ---------------------------------------------------------------------------- changes during a
// walk

TEST_F(PhoneManagerDelegates, OneAddedDuringAWalkIsToldFromTheNextWalkOn) {
    first.then = [&](const std::string&, KRTPhoneRef) {
        second.add();
        first.then = nullptr;
    };
    first.add();
    fake.attach();
    EXPECT_THAT(told, ElementsAre("first connected"));
    fake.detach();
    EXPECT_THAT(told, ElementsAre("first connected", "first removed", "second removed"));
}

TEST_F(PhoneManagerDelegates, WhoeverFollowsOneThatRemovesItselfIsPassedOver) {
    first.then = [&](const std::string&, KRTPhoneRef) { first.remove(); };
    first.add();
    second.add();
    third.add();
    fake.attach();
    EXPECT_THAT(told, ElementsAre("first connected", "third connected"));
    fake.detach();
    EXPECT_THAT(
        told, ElementsAre("first connected", "third connected", "second removed", "third removed"));
}

TEST_F(PhoneManagerDelegates, OneRemovedBeforeItsTurnIsNotTold) {
    first.then = [&](const std::string&, KRTPhoneRef) { third.remove(); };
    first.add();
    second.add();
    third.add();
    fake.attach();
    EXPECT_THAT(told, ElementsAre("first connected", "second connected"));
}

TEST_F(PhoneManagerDelegates, TheLastMayRemoveItselfDuringAWalk) {
    first.then = [&](const std::string&, KRTPhoneRef) { first.remove(); };
    first.add();
    fake.attach();
    EXPECT_THAT(told, ElementsAre("first connected"));
    EXPECT_EQ(fake.live().subscriptions, 0);
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 1);
}

TEST_F(PhoneManagerDelegates, AllMayBeRemovedDuringARemoval) {
    first.add();
    second.add();
    fake.attach();
    first.then = [&](const std::string&, KRTPhoneRef) {
        second.remove();
        first.remove();
    };
    fake.detach();
    EXPECT_THAT(told, ElementsAre("first connected", "second connected", "first removed"));
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 0);
    EXPECT_EQ(fake.phone().references(), 0);
}

TEST_F(PhoneManagerDelegates, TheManagerMayBeShutDownDuringAWalk) {
    for (const std::string end : {"connected", "removed"}) {
        told.clear();
        KRTPhoneManagerInit();
        first.then = [end](const std::string& what, KRTPhoneRef) {
            if (what == end) {
                KRTPhoneManagerShutdown();
            }
        };
        first.add();
        second.add();
        fake.attach();
        fake.detach();
        EXPECT_EQ(told.back(), "first " + end);
        EXPECT_EQ(KRTGetConnectedPhoneCount(), -1);
        EXPECT_EQ(fake.phone().references(), 0);
    }
}

TEST_F(PhoneManagerDelegates, TheManagerMayBeReplacedDuringARemoval) {
    first.add();
    fake.attach();
    first.then = [&](const std::string&, KRTPhoneRef) {
        KRTPhoneManagerShutdown();
        KRTPhoneManagerInit();
        second.add();
    };
    KRTPhoneManagerPhoneDisconnectedNotification(fake.phone().device());
    EXPECT_THAT(told, ElementsAre("first connected", "first removed"));
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 0);
    EXPECT_EQ(fake.phone().references(), 0);
}

} // namespace
