// Arrivals and removals.

#include "tests/mobiledevice/provider/ProviderFixture.h"

#include <sys/resource.h>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <optional>

namespace krl::provider::testing {
namespace {

using virtualphone::Bus;
using virtualphone::parseFault;
using virtualphone::testing::VirtualPhoneTest;

class Arrival : public ProviderTest {};

TEST_F(Arrival, ComesForAPhoneThatIsThereAlready) {
    Watcher<1> late;
    EXPECT_EQ(late.waitForArrival(), device);
    EXPECT_EQ(late.events.size(), 1u);
}

TEST_F(Arrival, NeverComesFromWithinSubscribing) {
    Watcher<1> late;
    EXPECT_TRUE(late.events.empty());
    ASSERT_TRUE(late.waitForEvents(1));
}

// ------------------------------------------------------------------ all that is attached

TEST_F(Arrival, OfAllThatIsAttachedCanBeWaitedFor) {
    watcher.end();
    bus().plug(makePhone("other"));
    Watcher<1> late;
    EXPECT_EQ(md.AMDeviceWaitForAttached(late.handle, 0), 0);
    EXPECT_TRUE(late.events.empty()); // never from within
    runOnce();
    EXPECT_EQ(late.events.size(), 2u);
}

TEST_F(Arrival, IsWaitedForUntilTheDaemonHasTold) {
    watcher.end();
    bus().faults().add(parseFault("usbmux/Listen=delay:300"));
    Watcher<1> late;
    EXPECT_EQ(md.AMDeviceWaitForAttached(late.handle, 0), 0);
    runOnce();
    EXPECT_EQ(late.events.size(), 1u);
}

TEST_F(Arrival, IsNotWaitedForWhenNothingIsAttached) {
    bus().unplug(id());
    EXPECT_EQ(md.AMDeviceWaitForAttached(watcher.handle, 0), 0);
}

TEST_F(Arrival, IsWaitedForNoLongerThanIsSaid) {
    bus().faults().add(parseFault("usbmux/ListDevices=silent"));
    EXPECT_EQ(md.AMDeviceWaitForAttached(watcher.handle, 50), kAMDTimedOut);
    watcher.end();
    bus().faults().add(parseFault("usbmux/Listen=silent")); // lists, but tells nothing
    Watcher<1> late;
    EXPECT_EQ(md.AMDeviceWaitForAttached(late.handle, 50), kAMDTimedOut);
}

TEST_F(Arrival, IsNoMoreWaitedForOnceAllCallsAreCancelled) {
    bus().faults().add(parseFault("usbmux/ListDevices=silent"));
    std::thread canceller([this] {
        log().waitFor([](const auto& entry) { return entry.request == "ListDevices"; });
        md.AMDeviceCancelCalls(nullptr);
    });
    EXPECT_EQ(md.AMDeviceWaitForAttached(watcher.handle, 0), kAMDCancelled);
    canceller.join();
}

TEST_F(Arrival, CannotBeWaitedForWithoutADaemon) {
    const std::string usual = std::getenv("USBMUXD_SOCKET_ADDRESS");
    ::setenv("USBMUXD_SOCKET_ADDRESS", "UNIX:/nowhere/usbmuxd", 1);
    EXPECT_EQ(md.AMDeviceWaitForAttached(watcher.handle, 0), kAMDNoMuxDaemon);
    ::setenv("USBMUXD_SOCKET_ADDRESS", usual.c_str(), 1);
}

TEST_F(Arrival, CannotBeWaitedForOnAStaleSubscription) {
    am_device_notification* handle = watcher.handle;
    watcher.end();
    EXPECT_EQ(md.AMDeviceWaitForAttached(handle, 0), kAMDInvalidHandle);
    EXPECT_EQ(md.AMDeviceWaitForAttached(nullptr, 0), kAMDInvalidHandle);
}

// ------------------------------------------------------------------ threads

TEST_F(Arrival, ComesOnTheSubscribingThread) {
    bus().unplug(id());
    ASSERT_TRUE(watcher.waitForEvents(2));
    for (const std::thread::id thread : watcher.threads) {
        EXPECT_EQ(thread, std::this_thread::get_id());
    }
    std::thread other([this] {
        Watcher<1> elsewhere;
        bus().plug(makePhone("other"));
        EXPECT_TRUE(elsewhere.waitForEvents(1));
        EXPECT_EQ(elsewhere.threads.at(0), std::this_thread::get_id());
    });
    other.join();
}

TEST_F(Arrival, AndRemovalAreToldOnceEach) {
    bus().unplug(id());
    ASSERT_TRUE(watcher.waitForEvents(2));
    runOnce();
    EXPECT_EQ(watcher.events, (std::vector<DeviceEvent>{{device, kAMDeviceMessageConnected},
                                                        {device, kAMDeviceMessageDisconnected}}));
}

TEST_F(Arrival, OfAReplugBringsAnotherDevice) {
    md.AMDeviceRetain(device);
    replug();
    ASSERT_TRUE(watcher.waitForEvents(3));
    EXPECT_EQ(watcher.events[1], (DeviceEvent{device, kAMDeviceMessageDisconnected}));
    EXPECT_EQ(watcher.events[2].message, kAMDeviceMessageConnected);
    EXPECT_NE(watcher.events[2].device, device);
    EXPECT_EQ(md.AMDeviceConnect(watcher.events[2].device), 0);
    // The old one is of no more use, and no harm.
    EXPECT_EQ(md.AMDeviceConnect(device), kAMDNotConnected);
    md.AMDeviceRelease(device);
    EXPECT_EQ(md.AMDeviceConnect(device), kAMDInvalidHandle);
}

TEST_F(Arrival, OfTwoPhonesBringsTwoDevices) {
    const uint32_t other = bus().plug(makePhone("other"));
    ASSERT_TRUE(watcher.waitForEvents(2));
    EXPECT_NE(watcher.events[1].device, device);
    bus().unplug(other);
    ASSERT_TRUE(watcher.waitForEvents(3));
    EXPECT_EQ(watcher.events[2],
              (DeviceEvent{watcher.events[1].device, kAMDeviceMessageDisconnected}));
}

TEST_F(Arrival, IsToldToEverySubscriptionWithTheSameDevice) {
    Watcher<1> second;
    Watcher<2> third;
    replug();
    ASSERT_TRUE(watcher.waitForEvents(3));
    ASSERT_TRUE(second.waitForEvents(3));
    ASSERT_TRUE(third.waitForEvents(3));
    EXPECT_EQ(second.events, watcher.events);
    EXPECT_EQ(third.events, watcher.events);
}

TEST_F(Arrival, IsNotToldToASubscriptionThatHasEnded) {
    Watcher<1> ended;
    ASSERT_TRUE(ended.waitForEvents(1));
    EXPECT_EQ(ended.end(), 0);
    replug();
    ASSERT_TRUE(watcher.waitForEvents(3));
    runOnce();
    EXPECT_EQ(ended.events.size(), 1u);
}

TEST_F(Arrival, ThatWaitsIsNotToldOnceTheSubscriptionHasEnded) {
    Watcher<1> unheard; // its arrival waits for the run loop
    EXPECT_EQ(unheard.end(), 0);
    runOnce();
    EXPECT_TRUE(unheard.events.empty());
}

TEST_F(Arrival, MayEndTheSubscriptionThatTellsIt) {
    const uint32_t other = bus().plug(makePhone("other"));
    ASSERT_TRUE(watcher.waitForEvents(2));
    Watcher<1> second;
    second.onEvent = [&](const am_device_notification_info& info) {
        EXPECT_EQ(second.end(), 0);
        EXPECT_EQ(md.AMDeviceConnect(info.device), 0); // lent until the callback returns
    };
    ASSERT_TRUE(second.waitForEvents(1));
    bus().unplug(other);
    ASSERT_TRUE(watcher.waitForEvents(3));
    runOnce();
    EXPECT_EQ(second.events.size(), 1u); // the second phone's waited in the queue
}

TEST_F(Arrival, MayEndTheLastSubscription) {
    watcher.onEvent = [&](const am_device_notification_info&) { EXPECT_EQ(watcher.end(), 0); };
    bus().unplug(id());
    ASSERT_TRUE(watcher.waitForEvents(2));
    EXPECT_EQ(md.AMDeviceConnect(device), kAMDInvalidHandle);
}

TEST_F(Arrival, MaySubscribeAnew) {
    std::optional<Watcher<1>> inner;
    watcher.onEvent = [&](const am_device_notification_info&) { inner.emplace(); };
    bus().plug(makePhone("other"));
    ASSERT_TRUE(watcher.waitForEvents(2));
    ASSERT_TRUE(inner.has_value());
    EXPECT_TRUE(inner->waitForEvents(2));
}

TEST_F(Arrival, IsToldInOrderAlsoWhenTheCallbackRunsTheLoop) {
    bool nested = false;
    watcher.onEvent = [&](const am_device_notification_info&) {
        if (!std::exchange(nested, true)) {
            EXPECT_TRUE(watcher.waitForEvents(3));
        }
    };
    replug();
    ASSERT_TRUE(watcher.waitForEvents(3));
    EXPECT_EQ(watcher.events[1].message, uint32_t{kAMDeviceMessageDisconnected});
    EXPECT_EQ(watcher.events[2].message, uint32_t{kAMDeviceMessageConnected});
}

TEST_F(Arrival, OfAHeldDeviceIsTheSameWhenSubscribedAnew) {
    md.AMDeviceRetain(device);
    EXPECT_EQ(watcher.end(), 0);
    Watcher<1> second;
    EXPECT_EQ(second.waitForArrival(), device);
    md.AMDeviceRelease(device);
    EXPECT_EQ(md.AMDeviceConnect(device), 0); // held by the subscription
}

TEST_F(Arrival, KeepsAConnectionWhenTheSubscriptionEndsAndTheDeviceIsHeld) {
    md.AMDeviceRetain(device);
    afc_connection* files = openFiles();
    EXPECT_EQ(watcher.end(), 0);
    EXPECT_EQ(md.AFCDirectoryCreate(files, "/made"), 0);
    md.AMDeviceRelease(device);
    EXPECT_EQ(md.AFCDirectoryCreate(files, "/more"), kAFCNotConnected);
}

TEST_F(Arrival, LendsTheDeviceForTheLengthOfTheSubscription) {
    EXPECT_EQ(md.AMDeviceConnect(device), 0);
    EXPECT_EQ(watcher.end(), 0);
    EXPECT_EQ(md.AMDeviceConnect(device), kAMDInvalidHandle);
    EXPECT_EQ(md.AMDeviceRetain(device), nullptr);
}

TEST_F(Arrival, RemovalLendsTheDeviceForTheLengthOfTheCallback) {
    bool checked = false;
    watcher.onEvent = [&](const am_device_notification_info& info) {
        EXPECT_EQ(md.AMDeviceConnect(info.device), kAMDNotConnected);
        EXPECT_EQ(md.AMDeviceRetain(info.device), info.device);
        md.AMDeviceRelease(info.device);
        checked = true;
    };
    bus().unplug(id());
    ASSERT_TRUE(watcher.waitForEvents(2));
    EXPECT_TRUE(checked);
    EXPECT_EQ(md.AMDeviceConnect(device), kAMDInvalidHandle);
}

TEST_F(Arrival, EndingFromAnotherThreadWaitsForACallbackThatRuns) {
    std::mutex mutex;
    std::condition_variable changed;
    bool inside = false;
    bool returned = false;
    watcher.onEvent = [&](const am_device_notification_info&) {
        {
            const std::lock_guard lock(mutex);
            inside = true;
        }
        changed.notify_all();
        // Time for the other thread to be wrong; it cannot make it right.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        const std::lock_guard lock(mutex);
        returned = true;
    };
    std::thread ender([&] {
        {
            std::unique_lock lock(mutex);
            changed.wait(lock, [&] { return inside; });
        }
        EXPECT_EQ(watcher.end(), 0);
        const std::lock_guard lock(mutex);
        EXPECT_TRUE(returned);
    });
    bus().unplug(id());
    ASSERT_TRUE(watcher.waitForEvents(2));
    ender.join();
}

TEST_F(Arrival, ASubscriptionEndsOnce) {
    am_device_notification* handle = watcher.handle;
    EXPECT_EQ(watcher.end(), 0);
    EXPECT_EQ(md.AMDShutdownNotificationProxy(handle), kAMDInvalidHandle);
    EXPECT_EQ(watcher.end(), kAMDInvalidHandle);
}

TEST_F(Arrival, SubscribingNeedsACallbackAndAPlace) {
    am_device_notification* handle = nullptr;
    EXPECT_EQ(md.AMDeviceNotificationSubscribe(nullptr, 0, 0, nullptr, &handle), kAMDInvalidHandle);
    EXPECT_EQ(handle, nullptr);
    const auto ignore = [](am_device_notification_info*) {};
    EXPECT_EQ(md.AMDeviceNotificationSubscribe(ignore, 0, 0, nullptr, nullptr), kAMDInvalidHandle);
}

TEST_F(Arrival, SubscribingWithoutADescriptorFailsAndLeavesNothing) {
    EXPECT_EQ(watcher.end(), 0);
    ASSERT_TRUE(bus().waitForConnections(0));
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{0, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    const auto unheard = [](am_device_notification_info*) { ADD_FAILURE(); };
    am_device_notification* handle = nullptr;
    EXPECT_EQ(md.AMDeviceNotificationSubscribe(unheard, 0, 0, nullptr, &handle), kAMDNoResources);
    EXPECT_EQ(handle, nullptr);
    ::setrlimit(RLIMIT_NOFILE, &before);
    Watcher<1> second;
    EXPECT_NE(second.waitForArrival(), nullptr);
}

TEST_F(Arrival, SubscriptionsComeAndGoOnManyThreads) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([this] {
            for (int j = 0; j < 20; ++j) {
                am_device_notification* handle = nullptr;
                const auto ignore = [](am_device_notification_info*) {};
                EXPECT_EQ(md.AMDeviceNotificationSubscribe(ignore, 0, 0, nullptr, &handle), 0);
                runOnce();
                EXPECT_EQ(md.AMDShutdownNotificationProxy(handle), 0);
            }
        });
    }
    for (int i = 0; i < 5; ++i) {
        replug();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_TRUE(watcher.waitForEvents(11));
    EXPECT_EQ(md.AMDeviceConnect(watcher.events.back().device), 0);
}

TEST_F(Arrival, ListeningBeginsAndEndsManyTimes) {
    watcher.end();
    ASSERT_TRUE(bus().waitForConnections(0));
    const size_t before = openDescriptors();
    for (int i = 0; i < 200; ++i) {
        Watcher<1> again;
        EXPECT_NE(again.waitForArrival(), nullptr);
    }
    ASSERT_TRUE(bus().waitForConnections(0));
    EXPECT_TRUE(descriptorsFallTo(before));
}

// ------------------------------------------------------------------ the mux daemon

class MuxDaemon : public ::testing::Test {
protected:
    MuxDaemon() { bus.emplace(folder.path() / "socket"); }

    std::shared_ptr<virtualphone::Phone> makePhone() const {
        return std::make_shared<virtualphone::Phone>(
            virtualphone::PhoneOptions{.root = folder.path() / "phone"});
    }

    const MobileDeviceTable& md = provider();
    virtualphone::testing::TemporaryFolder folder;
    std::optional<Bus> bus;
    std::optional<virtualphone::testing::SocketEnvironment> environment;
};

TEST_F(MuxDaemon, ThatGoesAwayTakesItsPhonesAndBringsThemBack) {
    environment.emplace(*bus);
    bus->plug(makePhone());
    Watcher<0> watcher;
    am_device* device = watcher.waitForArrival();
    md.AMDeviceRetain(device);
    bus.reset();
    ASSERT_TRUE(watcher.waitForEvents(2));
    EXPECT_EQ(watcher.events[1], (DeviceEvent{device, kAMDeviceMessageDisconnected}));
    EXPECT_NE(md.AMDeviceConnect(device), 0);

    bus.emplace(folder.path() / "socket");
    bus->plug(makePhone());
    ASSERT_TRUE(watcher.waitForEvents(3));
    EXPECT_EQ(watcher.events[2].message, uint32_t{kAMDeviceMessageConnected});
    EXPECT_NE(watcher.events[2].device, device);
    EXPECT_EQ(md.AMDeviceConnect(watcher.events[2].device), 0);
    md.AMDeviceRelease(device);
}

TEST_F(MuxDaemon, MayComeAfterTheSubscription) {
    environment.emplace(*bus);
    bus.reset();
    Watcher<0> watcher;
    runOnce();
    EXPECT_TRUE(watcher.events.empty());
    bus.emplace(folder.path() / "socket");
    bus->plug(makePhone());
    EXPECT_NE(watcher.waitForArrival(), nullptr);
}

TEST_F(MuxDaemon, ThatBeganAnewUnheardDoesNotMixUpPhones) {
    environment.emplace(*bus);
    bus->plug(makePhone());
    std::optional<Watcher<0>> watcher(std::in_place);
    am_device* device = watcher->waitForArrival();
    md.AMDeviceRetain(device);
    watcher.reset();
    bus.reset();
    // Another phone under the number that the first one had.
    bus.emplace(folder.path() / "socket");
    bus->plug(std::make_shared<virtualphone::Phone>(
        virtualphone::PhoneOptions{.root = folder.path() / "other"}));
    Watcher<1> anew;
    am_device* other = anew.waitForArrival();
    EXPECT_NE(other, device);
    EXPECT_EQ(md.AMDeviceConnect(device), kAMDNotConnected);
    EXPECT_EQ(md.AMDeviceConnect(other), 0);
    md.AMDeviceRelease(device);
}

using MuxDaemonDeathTest = MuxDaemon;

TEST_F(MuxDaemonDeathTest, IsListenedToUntilTheProcessEnds) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            environment.emplace(*bus);
            bus->plug(makePhone());
            am_device_notification* handle = nullptr;
            static bool arrived = false;
            provider().AMDeviceNotificationSubscribe(
                [](am_device_notification_info*) { arrived = true; }, 0, 0, nullptr, &handle);
            std::exit(runUntil([] { return arrived; }) ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

} // namespace
} // namespace krl::provider::testing
