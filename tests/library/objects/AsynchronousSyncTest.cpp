// A sync on a thread of its own, answered from other threads, from within the message, early, late
// and twice.

#include "tests/library/objects/ObjectTest.h"
#include "tests/library/objects/SyncTest.h"

#include "library/objects/ConditionLock.h"

#include <atomic>
#include <thread>

namespace {

using namespace krl::test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class AsynchronousSync : public ObjectTest {
protected:
    void start(const std::vector<Entry>& entries = {}) {
        if (!entries.empty()) {
            putRingtones(fake.phone(), entries);
        }
        phone = makePhone();
        setUp(phone->ringtoneManager());
    }

    void setUp(const std::shared_ptr<KRTRingtoneManager>& manager) {
        tones = manager;
        tones->setAsyncMode(true);
        completion = std::make_unique<Completion>(tones);
        completion->onCompletion([this] { delegate->end(); });
        fake.clearCalls();
    }

    void addTones(int count) {
        for (int i = 0; i < count; ++i) {
            tones->addRingtone(record({"Tone " + std::to_string(i), source.path()}).get());
        }
    }

    /// A delegate that keeps, on the sync's thread, whether any step came before the report ahead
    /// of it was answered. The test counts its answers in `answers`, each before it is given.
    std::shared_ptr<RecordingDelegate> watchingDelegate() {
        return std::make_shared<RecordingDelegate>([this](const Step& step) {
            isOvertaken = isOvertaken || reports > answers;
            reports += step.isOfStore() ? 1 : 0;
        });
    }

    /// From this thread, answers each report of the store with the function.
    void answerEach(const std::function<void(const Step&)>& answer) {
        for (size_t i = 0; delegate->waitForStepsOrEnd(i + 1); ++i) {
            const Step step = delegate->steps()[i];
            if (step.isOfStore()) {
                ++answers;
                answer(step);
            }
        }
    }

    void TearDown() override {
        EXPECT_TRUE(completion->wait());
        completion.reset();
        tones.reset();
        phone.reset();
    }

    std::vector<std::string> onPhone() {
        return keys(static_cast<CFDictionaryRef>(
            CFDictionaryGetValue(tones->generateChangeLists().get(), CFSTR("unchanged"))));
    }

    const SourceFile source{"the bytes of a ringtone"};
    std::shared_ptr<KRTPhone> phone;
    std::shared_ptr<KRTRingtoneManager> tones;
    std::unique_ptr<Completion> completion;
    std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
    std::atomic<int> reports = 0;
    std::atomic<int> answers = 0;
    std::atomic<bool> isOvertaken = false;
};

TEST_F(AsynchronousSync, WithNothingChangedPostsTheCompletionBeforeItReturns) {
    start();
    tones->syncCurrentListToPhone(delegate);
    EXPECT_EQ(completion->count(), 1);
    EXPECT_EQ(completion->thread(), std::this_thread::get_id());
    EXPECT_THAT(delegate->steps(), IsEmpty());
}

TEST_F(AsynchronousSync, RunsOnAThreadOfItsOwnAndWaitsAtEachReportOfTheStore) {
    start({{"AAAA.m4r", "Bells"}});
    addTones(2);
    tones->removeRingtone(tones->ringtoneForName(CFSTR("Bells")).get());
    delegate = watchingDelegate();

    tones->syncCurrentListToPhone(delegate);
    answerEach([this](const Step&) { tones->continueSync(); });

    ASSERT_TRUE(completion->wait());
    EXPECT_FALSE(isOvertaken) << "a step came before the report ahead of it was answered";
    EXPECT_EQ(delegate->shortSteps(),
              "1/0 1/1 0/0 0/0 0/0 0/4 1/5 0/5 1/5 0/5 0/3 1/3 0/3 1/1 1/0 0/0 ");
    EXPECT_THAT(onPhone(), ElementsAre("Tone 0", "Tone 1"));
    EXPECT_NE(completion->thread(), std::this_thread::get_id());
    EXPECT_FALSE(tones->ringtonesUpdated());
}

TEST_F(AsynchronousSync, StaysAtAReportUntilItIsAnswered) {
    start();
    addTones(1);
    delegate = watchingDelegate();
    tones->syncCurrentListToPhone(delegate);
    ASSERT_TRUE(delegate->waitForSteps(3));

    // The sync has told of its third step, the store's first report, and does nothing more.
    const auto callsBefore = fake.calls().size();
    std::this_thread::yield();
    EXPECT_EQ(fake.calls().size(), callsBefore);
    EXPECT_EQ(delegate->steps().size(), 3U);
    EXPECT_EQ(completion->count(), 0);

    answerEach([this](const Step&) { tones->continueSync(); });
    ASSERT_TRUE(completion->wait());
    EXPECT_FALSE(isOvertaken);
}

TEST_F(AsynchronousSync, MayBeAnsweredFromWithinTheMessage) {
    start();
    addTones(3);
    delegate = std::make_shared<RecordingDelegate>([this](const Step&) { tones->continueSync(); });
    tones->syncCurrentListToPhone(delegate);
    ASSERT_TRUE(completion->wait());
    EXPECT_THAT(onPhone(), ElementsAre("Tone 0", "Tone 1", "Tone 2"));
}

TEST_F(AsynchronousSync, AnEarlyAnswerIsNotKeptForTheNextReport) {
    start();
    addTones(1);
    tones->continueSync();
    tones->continueSync();
    delegate = watchingDelegate();
    tones->syncCurrentListToPhone(delegate);
    answerEach([this](const Step&) { tones->continueSync(); });
    ASSERT_TRUE(completion->wait());
    EXPECT_FALSE(isOvertaken);
}

TEST_F(AsynchronousSync, ASecondAnswerIsNotKeptForTheNextReport) {
    start();
    addTones(2);
    // Both answers are given before the report is left, so that none can meet the next one.
    delegate = std::make_shared<RecordingDelegate>([this](const Step& step) {
        isOvertaken = isOvertaken || reports > answers;
        if (step.isOfStore() && ++reports % 2 == 1) {
            ++answers;
            tones->continueSync();
            tones->continueSync();
        }
    });
    tones->syncCurrentListToPhone(delegate);
    int seen = 0;
    for (size_t i = 0; delegate->waitForStepsOrEnd(i + 1); ++i) {
        if (delegate->steps()[i].isOfStore() && ++seen % 2 == 0) {
            ++answers;
            tones->continueSync();
        }
    }
    ASSERT_TRUE(completion->wait());
    EXPECT_FALSE(isOvertaken);
    EXPECT_THAT(onPhone(), ElementsAre("Tone 0", "Tone 1"));
}

TEST_F(AsynchronousSync, TheLastAnswerBeforeTheSyncGoesOnIsTheOneThatCounts) {
    start();
    addTones(2);
    delegate = std::make_shared<RecordingDelegate>([this](const Step& step) {
        tones->continueSync();
        if (step == Step{1, 5, 2, 0, "Tone 0"}) {
            tones->cancelSync();
        }
    });
    tones->syncCurrentListToPhone(delegate);
    ASSERT_TRUE(completion->wait());
    EXPECT_THAT(onPhone(), IsEmpty());
}

TEST_F(AsynchronousSync, ALateAnswerIsHarmless) {
    start();
    addTones(1);
    delegate = std::make_shared<RecordingDelegate>([this](const Step&) { tones->continueSync(); });
    tones->syncCurrentListToPhone(delegate);
    ASSERT_TRUE(completion->wait());
    std::thread([this] {
        tones->continueSync();
        tones->continueSync();
    }).join();
    addTones(1);
    tones->syncCurrentListToPhone(delegate);
    EXPECT_TRUE(completion->wait(2));
}

TEST_F(AsynchronousSync, CancelledFromAnotherThreadDuringTheFirstUploadGivesTheLockBack) {
    start({{"AAAA.m4r", "Bells"}});
    addTones(3);
    delegate = watchingDelegate();
    tones->syncCurrentListToPhone(delegate);
    answerEach([this](const Step& step) {
        if (step.mode == 5) {
            tones->cancelSync();
        } else {
            tones->continueSync();
        }
    });
    ASSERT_TRUE(completion->wait());
    EXPECT_EQ(delegate->shortSteps(), "1/0 1/1 0/0 0/0 0/0 0/0 0/0 0/4 1/5 1/1 1/0 0/0 ");
    EXPECT_THAT(delegate->errors(), IsEmpty());
    EXPECT_THAT(onPhone(), ElementsAre("Bells"));
    EXPECT_THAT(fake.phone().names("/iTunes_Control/Ringtones"), ElementsAre("AAAA.m4r"));
    EXPECT_THAT(fake.callsOf("AMDPostNotification"),
                Contains("AMDPostNotification com.apple.itunes-mobdev.syncDidFinish"));
    EXPECT_FALSE(fake.phone().isConnected());
}

TEST_F(AsynchronousSync, ManyThreadsMayAnswerAtOnce) {
    start();
    addTones(20);
    std::atomic<bool> isOver = false;
    completion->onCompletion([&] { isOver = true; });
    std::vector<std::thread> impatient;
    for (int i = 0; i < 3; ++i) {
        impatient.emplace_back([&] {
            while (!isOver) {
                tones->continueSync();
                std::this_thread::yield();
            }
        });
    }
    tones->syncCurrentListToPhone(delegate);
    EXPECT_TRUE(completion->wait());
    for (std::thread& thread : impatient) {
        thread.join();
    }
    EXPECT_EQ(onPhone().size(), 20U);
}

TEST_F(AsynchronousSync, TheFlagAndTheModeMayBeReadWhileItRuns) {
    start();
    addTones(5);
    delegate = std::make_shared<RecordingDelegate>([this](const Step&) { tones->continueSync(); });
    tones->syncCurrentListToPhone(delegate);
    bool isAsync = true;
    bool isUpdated = true;
    do {
        isAsync = tones->asyncMode();
        isUpdated = tones->ringtonesUpdated();
    } while (completion->count() == 0);
    EXPECT_TRUE(isAsync);
    EXPECT_FALSE(tones->ringtonesUpdated()) << "was " << isUpdated << " a moment before";
}

TEST_F(AsynchronousSync, SwitchedToSynchronousNoFurtherReportWaits) {
    start();
    addTones(3);
    delegate = std::make_shared<RecordingDelegate>([this](const Step& step) {
        if (step.isOfStore() && tones->asyncMode()) {
            tones->setAsyncMode(false);
            tones->continueSync();
        }
    });
    tones->syncCurrentListToPhone(delegate);
    ASSERT_TRUE(completion->wait());
    EXPECT_EQ(onPhone().size(), 3U);
}

TEST_F(AsynchronousSync, ASynchronousOneSwitchedToAsynchronousWaitsFromTheNextReportOn) {
    start();
    addTones(1);
    tones->setAsyncMode(false);
    delegate = std::make_shared<RecordingDelegate>([this](const Step& step) {
        isOvertaken = isOvertaken || reports > answers;
        if (!step.isOfStore()) {
            return;
        }
        if (tones->asyncMode()) {
            ++reports;
        }
        tones->setAsyncMode(true);
    });
    std::thread application([this] {
        int seen = 0;
        for (size_t i = 0; delegate->waitForStepsOrEnd(i + 1); ++i) {
            // The first report of the store found the mode still off, and did not wait.
            if (delegate->steps()[i].isOfStore() && ++seen > 1) {
                ++answers;
                tones->continueSync();
            }
        }
    });
    tones->syncCurrentListToPhone(delegate);
    application.join();
    EXPECT_FALSE(isOvertaken);
    EXPECT_EQ(completion->thread(), std::this_thread::get_id());
}

TEST_F(AsynchronousSync, KeepsTheManagerAndTheDelegateUntilItEnds) {
    start();
    addTones(1);
    const std::weak_ptr<KRTRingtoneManager> manager = tones;
    const std::weak_ptr<KRTRingtoneManagerDelegate> told = delegate;
    // The phone object is kept, so that all calls to the scripted phone come from the sync.
    KRTRingtoneManager* const lent = tones.get();
    auto ownDelegate =
        std::make_shared<RecordingDelegate>([lent](const Step&) { lent->continueSync(); });
    const std::weak_ptr<RecordingDelegate> ownWeak = ownDelegate;
    tones->syncCurrentListToPhone(std::move(ownDelegate));
    tones.reset();
    phone.reset();
    ASSERT_TRUE(completion->wait());
    while (!manager.expired() || !ownWeak.expired()) {
        std::this_thread::yield(); // the thread is about to end
    }
    EXPECT_EQ(fake.phone().references(), 0);
}

TEST_F(AsynchronousSync, AFailureIsReportedAndTheCompletionFollows) {
    start();
    addTones(1);
    fake.fail("AMDeviceConnect", 4711);
    tones->syncCurrentListToPhone(delegate);
    ASSERT_TRUE(completion->wait());
    EXPECT_THAT(delegate->errors(), ElementsAre("com.korvane.vesk 328 KRTRingtoneManager:328"));
    EXPECT_THAT(delegate->steps(), IsEmpty());
    EXPECT_TRUE(tones->ringtonesUpdated());
}

TEST_F(AsynchronousSync, ObserversAreToldOnItsThread) {
    start();
    addTones(1);
    std::thread::id thread;
    tones->addRingtonesUpdatedObserver(nullptr, [&] { thread = std::this_thread::get_id(); });
    delegate = std::make_shared<RecordingDelegate>([this](const Step&) { tones->continueSync(); });
    tones->syncCurrentListToPhone(delegate);
    ASSERT_TRUE(completion->wait());
    EXPECT_EQ(thread, completion->thread());
}

// ---------------------------------------------------------------------------- phones that go away

class NullDelegate : public KRTPhoneManagerDelegate {
public:
    void phoneConnected(const std::shared_ptr<KRTPhone>&) override {}

    void phoneRemoved(const std::shared_ptr<KRTPhone>&) override { ++removals; }

    int removals = 0;
};

TEST_F(AsynchronousSync, APhoneUnpluggedWhileItRunsMakesItFailAndIsInertAfterwards) {
    const auto manager = KRTPhoneManager::sharedManager();
    const auto removals = std::make_shared<NullDelegate>();
    manager->addDelegate(removals);
    fake.attach();
    ASSERT_EQ(manager->phones().size(), 1U);
    setUp(manager->phones()[0]->ringtoneManager());
    addTones(2);
    delegate = watchingDelegate();
    tones->syncCurrentListToPhone(delegate);
    bool isUnplugged = false;
    answerEach([&](const Step& step) {
        if (step.mode == 5 && !isUnplugged) {
            // The sync waits meanwhile.
            isUnplugged = true;
            fake.detach();
            EXPECT_EQ(removals->removals, 1);
            EXPECT_EQ(fake.phone().references(), 1) << "the sync still works with the device";
            manager->phoneForInfo(nullptr);
        }
        tones->continueSync();
    });

    ASSERT_TRUE(completion->wait());
    EXPECT_TRUE(isUnplugged);
    EXPECT_EQ(delegate->errors().size(), 1U);
    EXPECT_EQ(delegate->steps().back(), (Step{0, 0, 0, 0, ""}));
    EXPECT_EQ(fake.phone().references(), 0);
    const auto gone = manager->phones()[0];
    EXPECT_EQ(gone->_rawDevice(), nullptr);
    KRTErrorClear();
    const auto error = gone->open();
    ASSERT_TRUE(error);
    EXPECT_EQ(CFErrorGetCode(error.get()), 0);
    manager->shutdown();
}

TEST_F(AsynchronousSync, TheManagerMayBeShutDownWhileItRuns) {
    const auto manager = KRTPhoneManager::sharedManager();
    manager->addDelegate(std::make_shared<NullDelegate>());
    fake.attach();
    setUp(manager->phones()[0]->ringtoneManager());
    addTones(2);
    delegate = watchingDelegate();
    tones->syncCurrentListToPhone(delegate);
    bool isDown = false;
    answerEach([&](const Step&) {
        if (!std::exchange(isDown, true)) {
            manager->shutdown();
        }
        tones->continueSync();
    });
    ASSERT_TRUE(completion->wait());
    EXPECT_THAT(delegate->errors(), IsEmpty());
    EXPECT_EQ(onPhone().size(), 2U) << "the phone is still plugged in, and the sync has finished";
    EXPECT_EQ(fake.phone().references(), 0);
}

// ---------------------------------------------------------------------------- the lock

TEST_F(AsynchronousSync, TheNoticeLockWaitsForTheAnswer) {
    start();
    std::atomic<bool> isAnswered = false;
    std::atomic<bool> wasAnswered = false;
    tones->_startContinueNoticeLock();
    std::thread waiting([&] {
        tones->_waitForContinueNotice();
        wasAnswered = isAnswered.load();
    });
    isAnswered = true;
    tones->continueSync();
    waiting.join();
    EXPECT_TRUE(wasAnswered);
    tones->_waitForContinueNotice(); // nothing to wait for any more
    tones->syncCurrentListToPhone(delegate);
}

TEST_F(AsynchronousSync, WithoutTheModeThereIsNoLock) {
    start();
    tones->setAsyncMode(false);
    tones->_startContinueNoticeLock();
    tones->_waitForContinueNotice();
    tones->syncCurrentListToPhone(delegate);
}

TEST(ConditionLock, IsTakenWhenItIsFreeAndHasTheNumber) {
    krl::ringtones::ConditionLock lock(1);
    lock.lock();
    std::atomic<bool> isReleased = false;
    std::atomic<bool> wasReleased = false;
    std::thread other([&] {
        lock.lockWhenCondition(2);
        wasReleased = isReleased.load();
        lock.unlock();
    });
    isReleased = true;
    lock.unlockWithCondition(2);
    other.join();
    EXPECT_TRUE(wasReleased);
}

TEST(ConditionLock, ReleasedWhenNobodyHoldsItKeepsItsNumber) {
    krl::ringtones::ConditionLock lock(1);
    lock.unlockWithCondition(2);
    lock.unlock();
    lock.lockWhenCondition(1);
    lock.unlockWithCondition(2);
    lock.unlockWithCondition(3);
    lock.lockWhenCondition(2);
}

} // namespace
