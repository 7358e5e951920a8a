#include "tests/corefoundation/Support.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <poll.h>
#include <thread>

namespace krl::cf::test {
namespace {

constexpr CFTimeInterval kGenerous = 30; // for what must happen; nothing waits as long as this

const CFRunLoopMode kOtherMode = CFSTR("other mode");

/// A source that calls a function.
class Source {
public:
    explicit Source(std::function<void()> perform, CFIndex order = 0)
        : perform_(std::move(perform)) {
        CFRunLoopSourceContext context{};
        context.info = this;
        context.schedule = [](void* info, CFRunLoopRef, CFRunLoopMode) {
            ++static_cast<Source*>(info)->scheduled;
        };
        context.cancel = [](void* info, CFRunLoopRef, CFRunLoopMode) {
            ++static_cast<Source*>(info)->cancelled;
        };
        context.perform = [](void* info) {
            auto* self = static_cast<Source*>(info);
            self->perform_();
            ++self->performed; // last: whoever waits for it may let go of this object then
        };
        ref_ = adopt(CFRunLoopSourceCreate(nullptr, order, &context));
    }

    Source() : Source([] {}) {}

    ~Source() { CFRunLoopSourceInvalidate(get()); }

    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    CFRunLoopSourceRef get() const { return ref_.get(); }

    void signal() const { CFRunLoopSourceSignal(get()); }

    void add(CFRunLoopMode mode = kCFRunLoopDefaultMode) const {
        CFRunLoopAddSource(CFRunLoopGetCurrent(), get(), mode);
    }

    void remove(CFRunLoopMode mode = kCFRunLoopDefaultMode) const {
        CFRunLoopRemoveSource(CFRunLoopGetCurrent(), get(), mode);
    }

    std::atomic<int> performed{0};
    std::atomic<int> scheduled{0};
    std::atomic<int> cancelled{0};

private:
    std::function<void()> perform_;
    CFRef<CFRunLoopSourceRef> ref_;
};

/// A timer that calls a function.
class Timer {
public:
    Timer(double delay, double interval, std::function<void()> fire) : fire_(std::move(fire)) {
        CFRunLoopTimerContext context{};
        context.info = this;
        ref_ = adopt(CFRunLoopTimerCreate(
            nullptr, CFAbsoluteTimeGetCurrent() + delay, interval, 0, 0,
            [](CFRunLoopTimerRef, void* info) {
                auto* self = static_cast<Timer*>(info);
                ++self->fired;
                self->fire_();
            },
            &context));
    }

    ~Timer() { CFRunLoopTimerInvalidate(get()); }

    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    CFRunLoopTimerRef get() const { return ref_.get(); }

    void add(CFRunLoopMode mode = kCFRunLoopDefaultMode) const {
        CFRunLoopAddTimer(CFRunLoopGetCurrent(), get(), mode);
    }

    int fired = 0;

private:
    std::function<void()> fire_;
    CFRef<CFRunLoopTimerRef> ref_;
};

CFRunLoopRunResult runReady(CFRunLoopMode mode = kCFRunLoopDefaultMode) {
    return CFRunLoopRunInMode(mode, 0, false);
}

void stopCurrent() {
    CFRunLoopStop(CFRunLoopGetCurrent());
}

bool isReadable(int descriptor, int timeoutMs = 0) {
    pollfd poller{descriptor, POLLIN, 0};
    return poll(&poller, 1, timeoutMs) == 1;
}

constexpr int kGenerousMs = 30000;

// ---------------------------------------------------------------------------- loops

TEST(RunLoop, IsOneForEachThread) {
    EXPECT_EQ(CFRunLoopGetCurrent(), CFRunLoopGetCurrent());
    EXPECT_EQ(CFRunLoopGetCurrent(), CFRunLoopGetMain());
    std::thread([] {
        EXPECT_NE(CFRunLoopGetCurrent(), CFRunLoopGetMain());
        EXPECT_EQ(CFRunLoopGetCurrent(), CFRunLoopGetCurrent());
    }).join();
}

TEST(RunLoop, WithoutSourcesWaitsTheFullTime) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.05, false), kCFRunLoopRunTimedOut);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
}

TEST(RunLoop, WithoutTimeDoesWhatIsReadyAndReturns) {
    Source source;
    source.add();
    source.signal();
    EXPECT_EQ(runReady(), kCFRunLoopRunTimedOut);
    EXPECT_EQ(source.performed, 1);
    EXPECT_EQ(runReady(), kCFRunLoopRunTimedOut);
    EXPECT_EQ(source.performed, 1);
}

TEST(RunLoop, CannotRunTheCommonModes) {
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopCommonModes, kGenerous, false), kCFRunLoopRunFinished);
}

TEST(RunLoop, AStopBeforeTheRunEndsTheNextRunAtOnce) {
    Source source;
    source.add();
    source.signal();
    stopCurrent();
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kGenerous, false), kCFRunLoopRunStopped);
    EXPECT_EQ(source.performed, 0);
    EXPECT_EQ(runReady(), kCFRunLoopRunTimedOut);
    EXPECT_EQ(source.performed, 1);
}

TEST(RunLoop, AStopInACallbackEndsTheRun) {
    Source source(stopCurrent);
    source.add();
    source.signal();
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kGenerous, false), kCFRunLoopRunStopped);
}

TEST(RunLoop, RunGoesOnUntilStopped) {
    Source source(stopCurrent);
    source.add();
    Timer timer(0.01, 0, [&] { source.signal(); });
    timer.add();
    CFRunLoopRun();
    EXPECT_EQ(source.performed, 1);
}

TEST(RunLoop, IsStoppedFromAnotherThread) {
    CFRunLoopRef loop = CFRunLoopGetCurrent();
    std::thread other([loop] { CFRunLoopStop(loop); });
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kGenerous, false), kCFRunLoopRunStopped);
    other.join();
}

TEST(RunLoop, TellsThatItIsWaiting) {
    CFRunLoopRef loop = CFRunLoopGetCurrent();
    EXPECT_FALSE(CFRunLoopIsWaiting(loop));
    std::thread other([loop] {
        while (!CFRunLoopIsWaiting(loop)) {
            std::this_thread::yield();
        }
        CFRunLoopStop(loop);
    });
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kGenerous, false), kCFRunLoopRunStopped);
    EXPECT_FALSE(CFRunLoopIsWaiting(loop));
    other.join();
}

TEST(RunLoop, IsAsUsefulInsideARun) {
    Source inner;
    inner.add(kOtherMode);
    Source untouched;
    Source outer([&] {
        inner.signal();
        untouched.signal();
        EXPECT_EQ(CFRunLoopRunInMode(kOtherMode, kGenerous, true), kCFRunLoopRunHandledSource);
        EXPECT_EQ(untouched.performed, 0);
    });
    outer.add();
    untouched.add();
    outer.signal();
    // The nested run has taken the wake-up for the source that it left alone.
    Timer timer(kGenerous, 0, stopCurrent);
    timer.add();
    while (untouched.performed == 0) {
        ASSERT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kGenerous, true),
                  kCFRunLoopRunHandledSource);
    }
    EXPECT_EQ(inner.performed, 1);
    EXPECT_EQ(outer.performed, 1);
}

TEST(RunLoop, AStopInANestedRunEndsThatRunOnly) {
    Source outer([] {
        stopCurrent();
        EXPECT_EQ(CFRunLoopRunInMode(kOtherMode, kGenerous, false), kCFRunLoopRunStopped);
    });
    outer.add();
    outer.signal();
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kGenerous, true),
              kCFRunLoopRunHandledSource);
}

TEST(RunLoop, MayBeHeldLongerThanItsThreadLives) {
    CFRef<CFRunLoopRef> loop;
    Source source;
    std::thread([&] {
        loop = retain(CFRunLoopGetCurrent());
        source.add();
    }).join();
    EXPECT_EQ(CFGetRetainCount(loop.get()), 1);
    source.signal();
    CFRunLoopWakeUp(loop.get());
    CFRunLoopStop(loop.get());
    EXPECT_FALSE(CFRunLoopIsWaiting(loop.get()));
    EXPECT_TRUE(CFRunLoopContainsSource(loop.get(), source.get(), kCFRunLoopDefaultMode));
    CFRunLoopSourceInvalidate(source.get());
    EXPECT_EQ(source.cancelled, 1);
    EXPECT_EQ(source.performed, 0);
}

TEST(RunLoop, GoesWithItsThreadAndLeavesItsSourcesUsable) {
    Source source;
    std::thread([&] { source.add(); }).join();
    EXPECT_EQ(CFGetRetainCount(source.get()), 1);
    source.signal();
    source.add();
    runReady();
    EXPECT_EQ(source.performed, 1);
}

TEST(RunLoop, ServesTheLastCodeOfItsThread) {
    struct AtTheEnd {
        const Source* source = nullptr;

        ~AtTheEnd() {
            source->signal();
            runReady();
        }
    };

    Source source;
    std::thread([&] {
        thread_local AtTheEnd atTheEnd; // ends before what the thread began with
        atTheEnd.source = &source;
        source.add();
    }).join();
    EXPECT_EQ(source.performed, 1);
    EXPECT_EQ(CFGetRetainCount(source.get()), 1);
}

// ---------------------------------------------------------------------------- sources

TEST(RunLoopSource, SeveralSignalsCountAsOne) {
    Source source;
    source.add();
    source.signal();
    source.signal();
    runReady();
    EXPECT_EQ(source.performed, 1);
}

TEST(RunLoopSource, ReturnsAfterTheFirstThatWasHandled) {
    Source one;
    Source other;
    one.add();
    other.add();
    one.signal();
    other.signal();
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kGenerous, true),
              kCFRunLoopRunHandledSource);
    EXPECT_EQ(one.performed + other.performed, 1);
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kGenerous, true),
              kCFRunLoopRunHandledSource);
    EXPECT_EQ(one.performed + other.performed, 2);
}

TEST(RunLoopSource, AreHandledByRisingOrder) {
    std::string order;
    Source third([&] { order += '3'; }, 3);
    Source first([&] { order += '1'; }, -1);
    Source second([&] { order += '2'; }, 2);
    for (const Source* source : {&third, &first, &second}) {
        source->add();
        source->signal();
    }
    runReady();
    EXPECT_EQ(order, "123");
}

TEST(RunLoopSource, BelongsToItsModes) {
    Source here;
    Source there;
    Source everywhere;
    here.add();
    there.add(kOtherMode);
    everywhere.add(kCFRunLoopCommonModes);
    for (const Source* source : {&here, &there, &everywhere}) {
        source->signal();
    }
    runReady();
    EXPECT_EQ(here.performed, 1);
    EXPECT_EQ(there.performed, 0);
    EXPECT_EQ(everywhere.performed, 1);
    everywhere.signal();
    runReady(kOtherMode);
    EXPECT_EQ(there.performed, 1);
    EXPECT_EQ(everywhere.performed, 2);
}

TEST(RunLoopSource, IsAddedOnceForAMode) {
    Source source;
    source.add();
    source.add();
    EXPECT_EQ(source.scheduled, 1);
    source.remove();
    EXPECT_EQ(source.cancelled, 1);
    source.remove();
    EXPECT_EQ(source.cancelled, 1);
    EXPECT_FALSE(
        CFRunLoopContainsSource(CFRunLoopGetCurrent(), source.get(), kCFRunLoopDefaultMode));
    source.signal();
    runReady();
    EXPECT_EQ(source.performed, 0);
}

TEST(RunLoopSource, IsOutOfUseOnceInvalidated) {
    Source source;
    source.add();
    source.add(kOtherMode);
    source.signal();
    CFRunLoopSourceInvalidate(source.get());
    EXPECT_FALSE(CFRunLoopSourceIsValid(source.get()));
    EXPECT_EQ(source.cancelled, 2);
    EXPECT_EQ(CFGetRetainCount(source.get()), 1);
    source.signal();
    source.add();
    CFRunLoopSourceInvalidate(source.get());
    runReady();
    EXPECT_EQ(source.performed, 0);
    EXPECT_EQ(source.scheduled, 2);
}

TEST(RunLoopSource, MayAddRemoveAndInvalidateInsideACallback) {
    Source added;
    Source removed([] {}, 1);
    Source invalidated([] {}, 1);
    Source itself([&] { CFRunLoopSourceInvalidate(itself.get()); }, 2);
    Source changer([&] {
        added.add();
        added.signal();
        removed.remove();
        CFRunLoopSourceInvalidate(invalidated.get());
    });
    for (const Source* source : {&removed, &invalidated, &itself, &changer}) {
        source->add();
        source->signal();
    }
    runReady();
    EXPECT_EQ(removed.performed, 0);
    EXPECT_EQ(invalidated.performed, 0);
    EXPECT_EQ(itself.performed, 1);
    runReady();
    EXPECT_EQ(added.performed, 1);
}

TEST(RunLoopSource, KeepsItsInfoWhileItIsUsed) {
    struct Counted {
        int references = 0;
        CFRunLoopSourceRef source = nullptr;
        int referencesAfterInvalidating = -1;
    };

    Counted counted;
    CFRunLoopSourceContext context{};
    context.info = &counted;
    context.retain = [](const void* info) {
        ++static_cast<Counted*>(const_cast<void*>(info))->references;
        return info;
    };
    context.release = [](const void* info) {
        --static_cast<Counted*>(const_cast<void*>(info))->references;
    };
    context.perform = [](void* info) {
        auto* self = static_cast<Counted*>(info);
        CFRunLoopSourceInvalidate(self->source);
        self->referencesAfterInvalidating = self->references;
    };
    auto source = adopt(CFRunLoopSourceCreate(nullptr, 0, &context));
    EXPECT_EQ(counted.references, 1);
    counted.source = source.get();
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source.get(), kCFRunLoopDefaultMode);
    CFRunLoopSourceSignal(source.get());
    runReady();
    EXPECT_EQ(counted.referencesAfterInvalidating, 1);
    EXPECT_EQ(counted.references, 0);
}

TEST(RunLoopSource, WithAnotherVersionIsNull) {
    CFRunLoopSourceContext context{};
    context.version = 1;
    EXPECT_EQ(CFRunLoopSourceCreate(nullptr, 0, &context), nullptr);
}

TEST(RunLoopSource, NeedsNoFunctions) {
    CFRunLoopSourceContext context{};
    auto source = adopt(CFRunLoopSourceCreate(nullptr, 0, &context));
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source.get(), kCFRunLoopDefaultMode);
    CFRunLoopSourceSignal(source.get());
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kGenerous, true),
              kCFRunLoopRunHandledSource);
    CFRunLoopSourceInvalidate(source.get());
}

TEST(RunLoopSource, ServesSeveralLoops) {
    Source source;
    source.add();
    std::thread([&] {
        source.add();
        source.signal();
        runReady();
    }).join();
    EXPECT_EQ(source.performed, 1);
    source.signal();
    runReady();
    EXPECT_EQ(source.performed, 2);
}

TEST(RunLoopSource, IsSignalledFromOtherThreads) {
    constexpr int kRounds = 200;
    Source source;
    source.add();
    std::thread other([&] {
        for (int i = 0; i < kRounds; ++i) {
            source.signal();
            while (source.performed <= i) {
                std::this_thread::yield();
            }
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        ASSERT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kGenerous, true),
                  kCFRunLoopRunHandledSource);
    }
    other.join();
    EXPECT_EQ(source.performed, kRounds);
}

TEST(RunLoopSource, IsAddedAndInvalidatedByOtherThreadsWhileTheLoopRuns) {
    CFRunLoopRef loop = CFRunLoopGetCurrent();
    std::atomic<int> performed{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int i = 0; i < 100; ++i) {
                Source source([&] { ++performed; });
                CFRunLoopAddSource(loop, source.get(), kCFRunLoopDefaultMode);
                const int before = performed;
                source.signal();
                while (source.performed == 0) {
                    std::this_thread::yield();
                }
                EXPECT_GT(performed, before);
                CFRunLoopRemoveSource(loop, source.get(), kCFRunLoopDefaultMode);
            }
        });
    }
    std::thread stopper([&] {
        for (std::thread& thread : threads) {
            thread.join();
        }
        CFRunLoopStop(loop);
    });
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kGenerous * 4, false),
              kCFRunLoopRunStopped);
    stopper.join();
    EXPECT_EQ(performed, 400);
}

TEST(RunLoopSource, IsInvalidatedWhileItsLoopComesToItsEnd) {
    for (int i = 0; i < 200; ++i) {
        Source source;
        std::promise<void> added;
        std::thread owner([&] {
            source.add();
            added.set_value();
        });
        added.get_future().wait();
        source.signal();
        CFRunLoopSourceInvalidate(source.get());
        owner.join();
        EXPECT_LE(source.cancelled, 1);
    }
}

// ---------------------------------------------------------------------------- timers

TEST(RunLoopTimer, FiresOnceAndIsThenInvalid) {
    Timer timer(0, 0, [] {});
    timer.add();
    EXPECT_TRUE(CFRunLoopTimerIsValid(timer.get()));
    runReady();
    runReady();
    EXPECT_EQ(timer.fired, 1);
    EXPECT_FALSE(CFRunLoopTimerIsValid(timer.get()));
    EXPECT_EQ(CFGetRetainCount(timer.get()), 1);
}

TEST(RunLoopTimer, DoesNotFireEarly) {
    const auto start = std::chrono::steady_clock::now();
    Timer timer(0.03, 0, stopCurrent);
    timer.add();
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kGenerous, false), kCFRunLoopRunStopped);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(29));
}

TEST(RunLoopTimer, Repeats) {
    Timer timer(0, 0.001, [&] {
        if (timer.fired == 5) {
            stopCurrent();
        }
    });
    timer.add();
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kGenerous, false), kCFRunLoopRunStopped);
    EXPECT_EQ(timer.fired, 5);
    EXPECT_TRUE(CFRunLoopTimerIsValid(timer.get()));
}

TEST(RunLoopTimer, LeavesOutFiringsThatItMissed) {
    Timer timer(-10000, 3600, [] {});
    timer.add();
    runReady();
    runReady();
    EXPECT_EQ(timer.fired, 1);
}

TEST(RunLoopTimer, FireInTheOrderOfTheirTimes) {
    std::string order;
    Timer later(-1, 0, [&] { order += '2'; });
    Timer earlier(-2, 0, [&] { order += '1'; });
    later.add();
    earlier.add();
    runReady();
    EXPECT_EQ(order, "12");
}

TEST(RunLoopTimer, IsNoSource) {
    Timer timer(0, 0, [] {});
    timer.add();
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.01, true), kCFRunLoopRunTimedOut);
    EXPECT_EQ(timer.fired, 1);
}

TEST(RunLoopTimer, DoesNotFireInsideItself) {
    Timer timer(0, 0.001, [&] {
        if (timer.fired == 1) {
            EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.02, false),
                      kCFRunLoopRunTimedOut);
            EXPECT_EQ(timer.fired, 1);
        }
        stopCurrent();
    });
    timer.add();
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kGenerous, false), kCFRunLoopRunStopped);
}

TEST(RunLoopTimer, BelongsToOneLoopAndItsModes) {
    Timer timer(0, 3600, [] {});
    timer.add(kOtherMode);
    timer.add(kOtherMode);
    std::thread([&] {
        timer.add();
        runReady();
    }).join();
    EXPECT_EQ(timer.fired, 0);
    runReady();
    EXPECT_EQ(timer.fired, 0);
    runReady(kOtherMode);
    EXPECT_EQ(timer.fired, 1);
    EXPECT_EQ(CFGetRetainCount(timer.get()), 2);
    CFRunLoopRemoveTimer(CFRunLoopGetCurrent(), timer.get(), kOtherMode);
    EXPECT_EQ(CFGetRetainCount(timer.get()), 1);
}

TEST(RunLoopTimer, MayBeInvalidatedInsideACallback) {
    Timer victim(0, 0, [] {});
    Timer killer(-1, 1, [&] {
        CFRunLoopTimerInvalidate(victim.get());
        CFRunLoopTimerInvalidate(killer.get());
    });
    killer.add();
    victim.add();
    runReady();
    EXPECT_EQ(killer.fired, 1);
    EXPECT_EQ(victim.fired, 0);
}

TEST(RunLoopTimer, OutlivesItsLoop) {
    Timer timer(0, 0, [] {});
    std::thread([&] { timer.add(); }).join();
    EXPECT_EQ(timer.fired, 0);
    timer.add();
    runReady();
    EXPECT_EQ(timer.fired, 1);
}

TEST(RunLoopTimer, AddedByAnotherThreadWakesTheLoop) {
    CFRunLoopRef loop = CFRunLoopGetCurrent();
    Timer timer(0, 0, stopCurrent);
    std::thread other([&] { CFRunLoopAddTimer(loop, timer.get(), kCFRunLoopDefaultMode); });
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kGenerous, false), kCFRunLoopRunStopped);
    other.join();
}

// ---------------------------------------------------------------------------- poll descriptors

/// What a host's main loop does until there is nothing left.
void serve(int descriptor) {
    while (isReadable(descriptor)) {
        runReady();
    }
}

TEST(PollDescriptor, IsReadableWhileThereIsWork) {
    const int descriptor = CFRunLoopGetPollDescriptor(CFRunLoopGetCurrent());
    EXPECT_EQ(CFRunLoopGetPollDescriptor(CFRunLoopGetCurrent()), descriptor);
    Source source;
    source.add();
    serve(descriptor);
    EXPECT_FALSE(isReadable(descriptor));
    source.signal();
    EXPECT_TRUE(isReadable(descriptor));
    serve(descriptor);
    EXPECT_EQ(source.performed, 1);
}

TEST(PollDescriptor, BecomesReadableFromAnotherThread) {
    const int descriptor = CFRunLoopGetPollDescriptor(CFRunLoopGetCurrent());
    Source source;
    source.add();
    serve(descriptor);
    std::thread other([&] { source.signal(); });
    EXPECT_TRUE(isReadable(descriptor, kGenerousMs));
    other.join();
    serve(descriptor);
    EXPECT_EQ(source.performed, 1);
}

TEST(PollDescriptor, BecomesReadableWhenATimerIsDue) {
    const int descriptor = CFRunLoopGetPollDescriptor(CFRunLoopGetCurrent());
    Timer timer(0.02, 0, [] {});
    timer.add();
    serve(descriptor);
    EXPECT_EQ(timer.fired, 0);
    EXPECT_TRUE(isReadable(descriptor, kGenerousMs));
    serve(descriptor);
    EXPECT_EQ(timer.fired, 1);
    EXPECT_FALSE(isReadable(descriptor));
}

TEST(PollDescriptor, StaysReadableForWorkThatIsLeft) {
    const int descriptor = CFRunLoopGetPollDescriptor(CFRunLoopGetCurrent());
    Source one;
    Source other;
    one.add();
    other.add();
    serve(descriptor);
    one.signal();
    other.signal();
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, true);
    EXPECT_TRUE(isReadable(descriptor));
    // A run in another mode leaves the work where it is.
    runReady(kOtherMode);
    EXPECT_TRUE(isReadable(descriptor));
    serve(descriptor);
    EXPECT_EQ(one.performed + other.performed, 2);
}

TEST(PollDescriptor, BecomesReadableForAStop) {
    const int descriptor = CFRunLoopGetPollDescriptor(CFRunLoopGetCurrent());
    serve(descriptor);
    stopCurrent();
    EXPECT_TRUE(isReadable(descriptor));
    EXPECT_EQ(runReady(), kCFRunLoopRunStopped);
    EXPECT_FALSE(isReadable(descriptor));
}

TEST(PollDescriptor, IsClosedWithItsLoop) {
    int descriptor = -1;
    std::thread([&] { descriptor = CFRunLoopGetPollDescriptor(CFRunLoopGetCurrent()); }).join();
    pollfd poller{descriptor, POLLIN, 0};
    ASSERT_EQ(poll(&poller, 1, 0), 1);
    EXPECT_EQ(poller.revents, POLLNVAL);
}

} // namespace
} // namespace krl::cf::test
