#include "engine/phones/RemovalWatch.h"

#include "engine/phones/Discovery.h"

#include "tests/support/VirtualPhoneFixture.h"

#include <gtest/gtest.h>

#include <thread>

namespace krl::engine {
namespace {

class RemovalWatches : public virtualphone::testing::VirtualPhoneTest {
protected:
    Discovery discovery;

    /// The next that comes or goes, which the thread's run loop brings.
    Discovery::Event next() { return discovery.next(std::chrono::minutes{1}).value(); }

    static void awaitRemoval(const RemovalWatch& watch) {
        while (!watch.isGone()) {
            std::this_thread::yield();
        }
    }
};

} // namespace

TEST_F(RemovalWatches, HearOfTheRemovalWhileTheRunLoopStandsStill) {
    const Discovery::Event phone = next();
    const RemovalWatch watch(phone.device.get());
    EXPECT_FALSE(watch.isGone());
    bus().unplug(id());
    awaitRemoval(watch);
    EXPECT_FALSE(next().arrived) << "others hear of it as well";
}

TEST_F(RemovalWatches, HearOfOneDeviceAlone) {
    const Discovery::Event phone = next();
    const uint32_t otherId = bus().plug(makePhone("Another"));
    const Discovery::Event another = next();
    const RemovalWatch watch(phone.device.get());
    const RemovalWatch watchOfOther(another.device.get());
    bus().unplug(otherId);
    awaitRemoval(watchOfOther);
    EXPECT_FALSE(watch.isGone());
}

} // namespace krl::engine
