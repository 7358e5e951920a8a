// The manager itself: beginning, end, and the lists that it gives out.

#include "tests/library/discovery/LinkedFunctions.h"
#include "tests/library/discovery/PhoneManagerTest.h"

#include <CoreFoundation/CFRef.h>

#include <cstddef>

namespace {

using krl::discovery::Manager;
using krl::discovery::Notification;
using krl::discovery::Search;

static_assert(offsetof(Manager, delegates) == 0);
static_assert(offsetof(Manager, phones) == sizeof(void*));
static_assert(offsetof(Manager, notification) == 2 * sizeof(void*));
static_assert(offsetof(__krt_manager_delegate, connected) == 0);
static_assert(offsetof(__krt_manager_delegate, removed) == sizeof(void*));
static_assert(offsetof(__krt_manager_delegate, context) == 2 * sizeof(void*));
static_assert(offsetof(Notification, phone) == 0);
static_assert(offsetof(Notification, device) == sizeof(void*));
static_assert(offsetof(Notification, kind) == 2 * sizeof(void*));
static_assert(sizeof(Notification::kind) == 4);
static_assert(offsetof(Search, found) == 0);
static_assert(offsetof(Search, wanted) == sizeof(void*));

using PhoneManagerLifetime = PhoneManagerTest;

TEST_F(PhoneManagerLifetime, WithoutAManagerTheCountIsMinusOne) {
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 0);
    KRTPhoneManagerShutdown();
    EXPECT_EQ(_gKRTPhoneSharedPhoneManager, nullptr);
    EXPECT_EQ(KRTGetConnectedPhoneCount(), -1);
}

TEST_F(PhoneManagerLifetime, InitGivesOneAndSubscribesToNothing) {
    KRTPhoneManagerShutdown();
    EXPECT_EQ(KRTPhoneManagerInit(), 1);
    ASSERT_NE(_gKRTPhoneSharedPhoneManager, nullptr);
    EXPECT_EQ(_gKRTPhoneSharedPhoneManager->notification, nullptr);
    EXPECT_THAT(fake.calls(), IsEmpty());
}

TEST_F(PhoneManagerLifetime, ASecondInitLeavesTheManagerItsPhonesAndDelegatesAlone) {
    first.add();
    fake.attach();
    const Manager before = *_gKRTPhoneSharedPhoneManager;
    const Manager* const manager = _gKRTPhoneSharedPhoneManager;

    EXPECT_EQ(KRTPhoneManagerInit(), 1);
    EXPECT_EQ(_gKRTPhoneSharedPhoneManager, manager);
    EXPECT_EQ(manager->delegates, before.delegates);
    EXPECT_EQ(manager->phones, before.phones);
    EXPECT_EQ(manager->notification, before.notification);
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 1);
    fake.detach();
    EXPECT_THAT(told, ElementsAre("first connected", "first removed"));
}

TEST_F(PhoneManagerLifetime, InitMakesThreeArraysOfPlainPointersAndNeverReleasesTheFirst) {
    KRTPhoneManagerShutdown();
    LinkedFunctions::takeCreatedArrays();
    KRTPhoneManagerInit();
    const auto arrays = LinkedFunctions::takeCreatedArrays();
    ASSERT_EQ(arrays.size(), 3U);
    for (const auto& made : arrays) {
        EXPECT_EQ(made.allocator, nullptr);
        EXPECT_EQ(made.capacity, 0);
        EXPECT_EQ(made.callBacks, nullptr);
    }
    EXPECT_EQ(_gKRTPhoneSharedPhoneManager->delegates, arrays[1].array);
    EXPECT_EQ(_gKRTPhoneSharedPhoneManager->phones, arrays[2].array);

    KRTPhoneManagerShutdown();
    EXPECT_EQ(CFGetRetainCount(arrays[0].array), 1);
}

TEST_F(PhoneManagerLifetime, InitWithoutMemoryGivesOneAndNoManager) {
    KRTPhoneManagerShutdown();
    LinkedFunctions::takeCreatedArrays();
    LinkedFunctions::failNextAllocation();
    EXPECT_EQ(KRTPhoneManagerInit(), 1);
    EXPECT_EQ(_gKRTPhoneSharedPhoneManager, nullptr);
    EXPECT_THAT(LinkedFunctions::takeCreatedArrays(), IsEmpty());
}

// ---------------------------------------------------------------------------- lists and searches

TEST_F(PhoneManagerLifetime, TheListOfPhonesIsASnapshotInOrderOfArrival) {
    first.add();
    FakePhone& other = fake.addPhone("other");
    fake.attach(other);
    const auto list = krl::cf::adopt(KRTPhoneManagerGetPhones());
    fake.attach();
    EXPECT_EQ(CFArrayGetCount(list.get()), 1);
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 2);

    const auto now = phones();
    ASSERT_EQ(now.size(), 2U);
    EXPECT_EQ(KRTPhoneRawDevice(now[0]), other.device());
    EXPECT_EQ(KRTPhoneRawDevice(now[1]), fake.phone().device());
    EXPECT_EQ(CFArrayGetValueAtIndex(list.get(), 0), now[0]);
}

TEST_F(PhoneManagerLifetime, TheListOfPhonesIsReleasedAndItsPhonesAreNot) {
    first.add();
    fake.attach();
    const CFArrayRef list = KRTPhoneManagerGetPhones();
    CFRetain(list);
    KRTPhoneManagerReleasePhoneList(list);
    EXPECT_EQ(CFGetRetainCount(list), 1);
    CFRelease(list);
    EXPECT_EQ(fake.phone().references(), 1);
}

TEST_F(PhoneManagerLifetime, APhoneIsFoundByItsDevice) {
    first.add();
    FakePhone& other = fake.addPhone("other");
    FakePhone& absent = fake.addPhone("absent");
    fake.attach();
    fake.attach(other);
    EXPECT_EQ(KRTPhoneManagerPhoneForDevice(fake.phone().device()), phones().at(0));
    EXPECT_EQ(KRTPhoneManagerPhoneForDevice(other.device()), phones().at(1));
    EXPECT_EQ(KRTPhoneManagerPhoneForDevice(absent.device()), nullptr);
    EXPECT_EQ(KRTPhoneManagerPhoneForDevice(nullptr), nullptr);
}

TEST_F(PhoneManagerLifetime, OfTwoPhonesWithOneDeviceTheLatestIsFound) {
    first.add();
    fake.attach();
    fake.attach();
    ASSERT_EQ(phones().size(), 2U);
    EXPECT_EQ(KRTPhoneManagerPhoneForDevice(fake.phone().device()), phones()[1]);
}

TEST_F(PhoneManagerLifetime, NoInformationFindsAPhone) {
    first.add();
    fake.attach();
    const auto information = krl::cf::adopt(KRTPhoneGetPhoneInformation(phones().at(0)));
    const auto empty = krl::cf::adopt(CFDictionaryCreateMutable(nullptr, 0, nullptr, nullptr));
    EXPECT_EQ(KRTPhoneManagerPhoneForInfo(information.get()), nullptr);
    EXPECT_EQ(KRTPhoneManagerPhoneForInfo(empty.get()), nullptr);
    EXPECT_EQ(KRTPhoneManagerPhoneForInfo(nullptr), nullptr);
}

TEST_F(PhoneManagerLifetime, TheSearchLooksAtOnePhoneAtATime) {
    first.add();
    fake.attach();
    Search search{nullptr, nullptr};
    _phoneSearchEnumerator(phones().at(0), &search);
    EXPECT_EQ(search.found, nullptr);
    search.wanted = fake.phone().device();
    _phoneSearchEnumerator(phones().at(0), &search);
    EXPECT_EQ(search.found, phones().at(0));
}

// ---------------------------------------------------------------------------- the end

TEST_F(PhoneManagerLifetime, ShutdownReleasesDelegatesAndPhonesAndTellsNobody) {
    first.add();
    second.add();
    FakePhone& other = fake.addPhone("other");
    fake.attach();
    fake.attach(other);
    told.clear();
    fake.clearCalls();

    KRTPhoneManagerShutdown();
    EXPECT_EQ(_gKRTPhoneSharedPhoneManager, nullptr);
    EXPECT_THAT(told, IsEmpty());
    EXPECT_THAT(fake.calls(), ElementsAre("AMDeviceRelease", "AMDeviceRelease [other]"));
    EXPECT_EQ(fake.phone().references(), 0);
    EXPECT_EQ(other.references(), 0);
}

TEST_F(PhoneManagerLifetime, ShutdownDoesNotEndTheSubscription) {
    first.add();
    KRTPhoneManagerShutdown();
    EXPECT_EQ(fake.countOf("AMDShutdownNotificationProxy"), 0);
    EXPECT_EQ(fake.live().subscriptions, 1);
}

TEST_F(PhoneManagerLifetime, EventsAfterTheShutdownFindNoManager) {
    first.add();
    fake.attach();
    KRTPhoneManagerShutdown();
    told.clear();
    fake.clearCalls();

    fake.detach();
    fake.attach();
    KRTPhoneManagerPhoneConnectedNotification(fake.phone().device());
    KRTPhoneManagerPhoneDisconnectedNotification(fake.phone().device());
    EXPECT_THAT(told, IsEmpty());
    EXPECT_THAT(fake.calls(), IsEmpty());
    EXPECT_EQ(KRTGetConnectedPhoneCount(), -1);
    EXPECT_FALSE(KRTError());
}

TEST_F(PhoneManagerLifetime, ASecondShutdownDoesNothing) {
    KRTPhoneManagerShutdown();
    KRTPhoneManagerShutdown();
    EXPECT_THAT(fake.calls(), IsEmpty());
}

TEST_F(PhoneManagerLifetime, AnotherManagerBeginsEmpty) {
    first.add();
    fake.attach();
    KRTPhoneManagerShutdown();
    KRTPhoneManagerInit();
    EXPECT_EQ(KRTGetConnectedPhoneCount(), 0);
    told.clear();
    second.add();
    EXPECT_EQ(fake.countOf("AMDeviceNotificationSubscribe"), 2);
    KRTPhoneManagerPhoneConnectedNotification(fake.phone().device());
    EXPECT_THAT(told, ElementsAre("second connected"));
}

} // namespace
