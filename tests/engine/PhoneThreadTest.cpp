#include "engine/phones/PhoneThread.h"

#include "engine/errors/Failure.h"
#include "engine/state/OpenPhone.h"

#include "tests/support/VirtualPhoneFixture.h"

#include <gmock/gmock.h>

#include <poll.h>

#include <future>
#include <string>

using testing::IsEmpty;

namespace krl::engine {
namespace {

bool isReadable(int descriptor, std::chrono::milliseconds wait) {
    pollfd readable{descriptor, POLLIN, 0};
    return poll(&readable, 1, static_cast<int>(wait.count())) == 1;
}

class PhoneThreads : public virtualphone::testing::VirtualPhoneTest {
protected:
    /// The next news, of which there is one.
    static DeviceNews::Item next(PhoneThread& thread) {
        if (!isReadable(thread.descriptor(), std::chrono::minutes{1})) {
            throw std::runtime_error("no news");
        }
        const auto news = thread.take();
        EXPECT_EQ(news.size(), 1U);
        return news.at(0);
    }

    bool aDeviceIsBeingAsked() {
        return log()
            .waitFor([](const auto& entry) { return entry.service == "lockdown"; })
            .has_value();
    }
};

} // namespace

TEST_F(PhoneThreads, HandOverWhatComesAndGoes) {
    PhoneThread thread;
    const DeviceNews::Item here = next(thread);
    EXPECT_TRUE(here.arrived);
    EXPECT_EQ(here.device.description.name, "Virtual Phone");
    EXPECT_THAT(thread.take(), IsEmpty());
    EXPECT_FALSE(isReadable(thread.descriptor(), {}));
    bus().unplug(id());
    const DeviceNews::Item gone = next(thread);
    EXPECT_FALSE(gone.arrived);
    EXPECT_EQ(gone.device.device, here.device.device);
    EXPECT_EQ(gone.device.description.name, "Virtual Phone");
}

TEST_F(PhoneThreads, HandOverWhatHasComeDuringWork) {
    PhoneThread thread;
    next(thread);
    const auto other = makePhone("Another");
    thread.post([&] {
        Discovery discovery;
        bus().plug(other);
        for (size_t arrived = 0; arrived < 2;) {
            arrived += discovery.next(std::chrono::minutes{1}).has_value() ? 1U : 0U;
        }
    });
    EXPECT_EQ(next(thread).device.description.udid, other->udid());
}

TEST_F(PhoneThreads, LetTheCallerGoOnWhileADeviceIsSilent) {
    phone().faults().goSilent();
    PhoneThread thread;
    ASSERT_TRUE(aDeviceIsBeingAsked());
    for (int i = 0; i < 1000; ++i) {
        ASSERT_FALSE(isReadable(thread.descriptor(), {}));
        ASSERT_THAT(thread.take(), IsEmpty());
    }
    // Had one of these waited for the device, its call would be over.
    phone().faults().endSilence();
    EXPECT_TRUE(next(thread).device.description.reachable);
}

TEST_F(PhoneThreads, EndWithoutWaitingForSilentDevices) {
    AMDeviceSetCallTimeout(3'600'000); // waited for, they would outlast the test
    phone().faults().goSilent();
    const auto other = makePhone("Another");
    other->faults().goSilent();
    bus().plug(other);
    {
        PhoneThread thread;
        ASSERT_TRUE(aDeviceIsBeingAsked());
    }
    AMDeviceSetCallTimeout(10'000);
}

TEST_F(PhoneThreads, BeginAnewAfterOneHasEnded) {
    for (int i = 0; i < 3; ++i) {
        PhoneThread thread;
        EXPECT_TRUE(next(thread).arrived);
    }
}

TEST_F(PhoneThreads, DoWhatIsPostedInOrder) {
    PhoneThread thread;
    std::promise<std::string> done;
    std::string order;
    thread.post([&] {
        order += "a";
        thread.post([&] { done.set_value(order + "c"); });
        order += "b";
    });
    EXPECT_EQ(done.get_future().get(), "abc");
}

TEST_F(PhoneThreads, WorkOnAPhoneAndStillTellWhatComesAndGoes) {
    PhoneThread thread;
    const DeviceNews::Item here = next(thread);
    std::promise<std::string> name;
    std::promise<void> mayEnd;
    thread.post([&] {
        OpenPhone phone({.udid = here.device.description.udid});
        name.set_value(phone.facts().name);
        mayEnd.get_future().wait();
    });
    EXPECT_EQ(name.get_future().get(), "Virtual Phone");
    bus().plug(makePhone("Another"));
    mayEnd.set_value();
    EXPECT_EQ(next(thread).device.description.name, "Another");
    bus().unplug(id());
    const DeviceNews::Item gone = next(thread);
    EXPECT_FALSE(gone.arrived);
    EXPECT_EQ(gone.device.device, here.device.device);
}

TEST_F(PhoneThreads, EndWhatWorkWaitsForAndNothingElse) {
    PhoneThread thread;
    const std::string udid = next(thread).device.description.udid;
    AMDeviceSetCallTimeout(3'600'000); // waited for, they would outlast the test
    phone().faults().goSilent();
    std::promise<void> ended;
    thread.post([&] {
        EXPECT_THROW(OpenPhone({.udid = udid}), Failure);
        ended.set_value();
    });
    const auto end = ended.get_future();
    do {
        thread.endWaits();
    } while (end.wait_for(std::chrono::milliseconds{5}) != std::future_status::ready);
    phone().faults().endSilence();
    AMDeviceSetCallTimeout(10'000);
    std::promise<std::string> name;
    thread.post([&] { name.set_value(OpenPhone({.udid = udid}).facts().name); });
    EXPECT_EQ(name.get_future().get(), "Virtual Phone");
}

TEST_F(PhoneThreads, StopNoRunLoopThatIsStillToBegin) {
    PhoneThread thread;
    next(thread);
    std::promise<void> begun;
    std::promise<void> mayEnd;
    std::promise<bool> heard;
    thread.post([&] {
        begun.set_value();
        mayEnd.get_future().wait();
    });
    thread.post([&] { heard.set_value(Discovery().next(std::chrono::minutes{1}).has_value()); });
    begun.get_future().wait();
    thread.endWaits();
    mayEnd.set_value();
    EXPECT_TRUE(heard.get_future().get());
}

TEST_F(PhoneThreads, SayWhenThereIsNoDeviceLayer) {
    const auto subscribe = std::exchange(AMDeviceNotificationSubscribe, nullptr);
    EXPECT_THROW(PhoneThread(), Failure);
    AMDeviceNotificationSubscribe = subscribe;
}

} // namespace krl::engine
