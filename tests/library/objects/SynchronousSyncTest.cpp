// A sync on the caller's thread: what the phone sees, what the delegate is told, what is left.

#include "tests/library/objects/ObjectTest.h"
#include "tests/library/objects/SyncTest.h"

#include "library/phone/KRTPhoneInternal.h"
#include "library/system/Clock.h"

namespace {

using namespace krl::test;
using krl::cf::adopt;
using krl::cf::CFRef;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::UnorderedElementsAre;

class SynchronousSync : public ObjectTest {
protected:
    SynchronousSync() : sleepFunction(krl::system::setSleepFunction([](unsigned) {})) {}

    ~SynchronousSync() override { krl::system::setSleepFunction(sleepFunction); }

    void start(const std::vector<Entry>& entries = {}) {
        if (!entries.empty()) {
            putRingtones(fake.phone(), entries);
        }
        phone = makePhone();
        tones = phone->ringtoneManager();
        completion = std::make_unique<Completion>(tones);
        fake.clearCalls();
    }

    void sync() { tones->syncCurrentListToPhone(delegate); }

    std::vector<std::string> listNames(CFStringRef key) {
        const auto lists = tones->generateChangeLists();
        return keys(static_cast<CFDictionaryRef>(CFDictionaryGetValue(lists.get(), key)));
    }

    void TearDown() override {
        completion.reset();
        tones.reset();
        phone.reset();
        KRTErrorDomain = CFSTR("com.korvane.vesk");
    }

    const krl::system::SleepFunction sleepFunction; // the waits for the lock take no time
    const SourceFile source{"the bytes of a ringtone"};
    std::shared_ptr<KRTPhone> phone;
    std::shared_ptr<KRTRingtoneManager> tones;
    std::unique_ptr<Completion> completion;
    std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
};

// ---------------------------------------------------------------------------- a whole sync

TEST_F(SynchronousSync, WithNothingChangedOnlyPostsTheCompletion) {
    start({{"AAAA.m4r", "Bells"}});
    sync();
    EXPECT_EQ(completion->count(), 1);
    EXPECT_THAT(delegate->steps(), IsEmpty());
    EXPECT_THAT(delegate->errors(), IsEmpty());
    EXPECT_THAT(fake.calls(), IsEmpty());
}

TEST_F(SynchronousSync, TellsEachStepInOrder) {
    start({{"AAAA.m4r", "Bells"}});
    tones->addRingtone(record({"New", source.path()}).get());
    tones->removeRingtone(tones->ringtoneForName(CFSTR("Bells")).get());

    sync();

    EXPECT_THAT(delegate->steps(), ElementsAre(Step{1, 0, 0, 0, ""},    // the phone is open
                                               Step{1, 1, 0, 0, ""},    // the lock is held
                                               Step{0, 0, 0, 0, ""},    // before the renames
                                               Step{0, 0, 0, 0, ""},    // the one catalogue entry
                                               Step{0, 4, 0, 0, ""},    // before the uploads
                                               Step{1, 5, 1, 0, "New"}, // the upload begins
                                               Step{0, 5, 1, 1, ""},    // and ends
                                               Step{0, 3, 0, 0, ""},    // the removals
                                               Step{1, 3, 1, 0, ""},    //
                                               Step{0, 3, 0, 0, ""},    //
                                               Step{1, 1, 0, 0, ""},    // submitted
                                               Step{1, 0, 0, 0, ""},    // the lock is given back
                                               Step{0, 0, 0, 0, ""}));  // over
    EXPECT_THAT(delegate->errors(), IsEmpty());
    EXPECT_EQ(completion->count(), 1);
    EXPECT_EQ(completion->thread(), std::this_thread::get_id());
}

TEST_F(SynchronousSync, CarriesTheChangesToThePhoneAndReadsTheListAnew) {
    start({{"AAAA.m4r", "Bells"}});
    tones->addRingtone(record({"New", source.path()}).get());
    tones->removeRingtone(tones->ringtoneForName(CFSTR("Bells")).get());

    sync();

    EXPECT_THAT(fake.phone().names("/iTunes_Control/Ringtones"), ElementsAre("BQJH.m4r"));
    EXPECT_EQ(fake.phone().contents(kFolder + "BQJH.m4r"), "the bytes of a ringtone");
    EXPECT_THAT(listNames(CFSTR("unchanged")), ElementsAre("New"));
    EXPECT_THAT(listNames(CFSTR("added")), IsEmpty());
    EXPECT_THAT(listNames(CFSTR("removed")), IsEmpty());
    EXPECT_FALSE(tones->ringtonesUpdated());
    EXPECT_EQ(valueOf(tones->ringtoneForName(CFSTR("New")), KRTRemotePath), kFolder + "BQJH.m4r");
}

TEST_F(SynchronousSync, ReplacesARingtoneOfTheSameName) {
    start({{"AAAA.m4r", "Bells"}, {"BBBB.m4r", "Horn"}});
    tones->addRingtone(record({"Bells", source.path()}).get());
    sync();
    EXPECT_THAT(fake.phone().names("/iTunes_Control/Ringtones"),
                UnorderedElementsAre("BBBB.m4r", "BQJH.m4r"));
    EXPECT_THAT(listNames(CFSTR("unchanged")), UnorderedElementsAre("Bells", "Horn"));
}

TEST_F(SynchronousSync, TakesTheLockFirstAndGivesItBackLast) {
    start();
    tones->addRingtone(record({"New", source.path()}).get());
    sync();
    const auto posts = fake.callsOf("AMDPostNotification");
    EXPECT_THAT(posts, ElementsAre("AMDPostNotification com.apple.itunes-mobdev.syncWillStart",
                                   "AMDPostNotification com.apple.itunes-mobdev.syncLockRequest",
                                   "AMDPostNotification com.apple.itunes-mobdev.syncDidFinish"));
    EXPECT_EQ(fake.calls().front(), "AMDeviceConnect");
    EXPECT_EQ(fake.calls().back(), "AMDShutdownNotificationProxy proxy");
    EXPECT_FALSE(fake.phone().isConnected());
    EXPECT_EQ(fake.live().proxies, 0);
}

TEST_F(SynchronousSync, AnAnswerIsNotNeeded) {
    start();
    tones->addRingtone(record({"New", source.path()}).get());
    delegate = nullptr;
    sync();
    EXPECT_EQ(completion->count(), 1);
    EXPECT_THAT(fake.phone().names("/iTunes_Control/Ringtones"), ElementsAre("BQJH.m4r"));
}

TEST_F(SynchronousSync, GoesOnWithoutTheLock) {
    start();
    fake.phone().lockHeldElsewhere("/com.apple.itunes.lock_sync");
    tones->addRingtone(record({"New", source.path()}).get());
    sync();
    EXPECT_THAT(delegate->errors(), IsEmpty());
    EXPECT_THAT(listNames(CFSTR("unchanged")), ElementsAre("New"));
}

TEST_F(SynchronousSync, DoesNotLookWhetherBeginAndEndOfTheLockSucceed) {
    start();
    fake.fail("AMDPostNotification", 77);
    tones->addRingtone(record({"New", source.path()}).get());
    sync();
    EXPECT_THAT(delegate->errors(), IsEmpty());
    EXPECT_THAT(listNames(CFSTR("unchanged")), ElementsAre("New"));
    EXPECT_EQ(delegate->steps().back(), (Step{0, 0, 0, 0, ""}));
}

TEST_F(SynchronousSync, ForgetsTheDelegateBeforeTheCompletion) {
    start();
    tones->addRingtone(record({"New", source.path()}).get());
    size_t stepsAfter = 0;
    completion->onCompletion([&] {
        const size_t before = delegate->steps().size();
        tones->_internal_status_function(5, 1, 1, 0, "late");
        stepsAfter = delegate->steps().size() - before;
    });
    sync();
    EXPECT_EQ(stepsAfter, 0U);
}

TEST_F(SynchronousSync, AnotherOneMayBeStartedFromTheCompletion) {
    start();
    tones->addRingtone(record({"First", source.path()}).get());
    completion->onCompletion([&, done = false]() mutable {
        if (!std::exchange(done, true)) {
            tones->addRingtone(record({"Second", source.path()}).get());
            sync();
        }
    });
    sync();
    EXPECT_EQ(completion->count(), 2);
    EXPECT_THAT(listNames(CFSTR("unchanged")), UnorderedElementsAre("First", "Second"));
}

TEST_F(SynchronousSync, TheManagerMayBeLetGoOfDuringTheCompletion) {
    start();
    tones->addRingtone(record({"New", source.path()}).get());
    phone.reset(); // the manager is this test's alone now
    KRTRingtoneManager* const manager = tones.get();
    completion->onCompletion([this] { tones.reset(); });
    manager->syncCurrentListToPhone(delegate);
    EXPECT_EQ(completion->count(), 1);
    EXPECT_EQ(tones, nullptr);
}

// ---------------------------------------------------------------------------- failures

TEST_F(SynchronousSync, APhoneThatDoesNotOpenIsOneErrorAndTheCompletion) {
    start({{"AAAA.m4r", "Bells"}});
    tones->removeRingtone(tones->ringtoneForName(CFSTR("Bells")).get());
    fake.fail("AMDeviceConnect", 4711);

    sync();

    EXPECT_THAT(delegate->errors(), ElementsAre("com.korvane.vesk 328 KRTRingtoneManager:328"));
    EXPECT_THAT(delegate->steps(), IsEmpty());
    EXPECT_EQ(completion->count(), 1);
    EXPECT_TRUE(tones->ringtonesUpdated());
    EXPECT_THAT(listNames(CFSTR("removed")), ElementsAre("Bells"));
    EXPECT_EQ(KRTErrorGetCode(), 4711) << "the error record is not cleared";
    EXPECT_EQ(phone->_phoneRef()->openCount, 0);
}

TEST_F(SynchronousSync, AFailureOfTheStoreIsReportedAndTheRecordCleared) {
    start();
    tones->addRingtone(record({"New", "/no such file"}).get());

    sync();

    ASSERT_EQ(delegate->errors().size(), 1U);
    EXPECT_THAT(delegate->errors()[0], testing::StartsWith("com.korvane.vesk 2 " /* ENOENT */
                                                           "KRTRingtoneManagerInternal:"));
    EXPECT_FALSE(KRTError());
    EXPECT_EQ(KRTErrorGetFile(), nullptr);
    EXPECT_TRUE(tones->ringtonesUpdated());
    EXPECT_THAT(listNames(CFSTR("added")), ElementsAre("New"));
    const std::vector<Step> steps = delegate->steps();
    ASSERT_GE(steps.size(), 3U);
    EXPECT_EQ(steps[steps.size() - 3], (Step{1, 1, 0, 0, ""}));
    EXPECT_EQ(steps[steps.size() - 2], (Step{1, 0, 0, 0, ""}));
    EXPECT_EQ(steps[steps.size() - 1], (Step{0, 0, 0, 0, ""}));
    EXPECT_EQ(completion->count(), 1);
    EXPECT_THAT(fake.callsOf("AMDPostNotification"),
                Contains("AMDPostNotification com.apple.itunes-mobdev.syncDidFinish"));
}

TEST_F(SynchronousSync, AnEarlierErrorIsTheOneReported) {
    start();
    tones->addRingtone(record({"New", "/no such file"}).get());
    KRTErrorSet(12, "earlier", 34);
    sync();
    EXPECT_THAT(delegate->errors(), ElementsAre("com.korvane.vesk 34 earlier:12"));
}

TEST_F(SynchronousSync, ASuccessDoesNotClearTheRecord) {
    start({{"AAAA.m4r", "Bells"}});
    tones->removeRingtone(tones->ringtoneForName(CFSTR("Bells")).get());
    KRTErrorSet(12, "earlier", 34);
    sync();
    EXPECT_THAT(delegate->errors(), IsEmpty());
    EXPECT_FALSE(tones->ringtonesUpdated());
}

TEST_F(SynchronousSync, ErrorsCarryTheDomainThatTheVariableNames) {
    start();
    tones->addRingtone(record({"New", "/no such file"}).get());
    KRTErrorDomain = CFSTR("com.korvane.vesk.unzipFailed");
    sync();
    fake.fail("AMDeviceConnect", 4711);
    sync();
    ASSERT_EQ(delegate->errors().size(), 2U);
    EXPECT_THAT(delegate->errors()[0], testing::StartsWith("com.korvane.vesk.unzipFailed 2 "));
    EXPECT_EQ(delegate->errors()[1], "com.korvane.vesk.unzipFailed 328 KRTRingtoneManager:328");
}

TEST_F(SynchronousSync, AListThatCouldNotBeReadFailsWithItsFirstError) {
    fake.phone().file(kCataloguePath, "<plist><dict/></plist>");
    start();
    tones->addRingtone(record({"New", source.path()}).get());
    sync();
    ASSERT_EQ(delegate->errors().size(), 1U);
    EXPECT_THAT(delegate->errors()[0], testing::StartsWith("com.korvane.vesk 4 "));
    sync();
    ASSERT_EQ(delegate->errors().size(), 2U);
    EXPECT_THAT(delegate->errors()[1], testing::StartsWith("com.korvane.vesk 1 "))
        << "without an earlier error, the missing list is the reason";
}

TEST_F(SynchronousSync, ASubmitWithoutListsFails) {
    start();
    const auto error = tones->submitChanges(nullptr);
    ASSERT_TRUE(error);
    EXPECT_EQ(CFErrorGetCode(error.get()), 1);
}

TEST_F(SynchronousSync, APhoneThatIsPulledOutDuringTheSyncMakesItFail) {
    start();
    tones->addRingtone(record({"New", source.path()}).get());
    fake.onCall([this](const std::string& line) {
        if (line.rfind("AFCFileRefWrite", 0) == 0) {
            fake.pull(fake.phone());
        }
    });
    sync();
    EXPECT_EQ(delegate->errors().size(), 1U);
    EXPECT_EQ(delegate->steps().back(), (Step{0, 0, 0, 0, ""}));
    EXPECT_EQ(completion->count(), 1);
    EXPECT_TRUE(tones->ringtonesUpdated());
}

/// For each call to the phone, what happens when it fails: the sync always ends, with one report at
/// most, and the next one succeeds.
TEST_F(SynchronousSync, EndsOnceWhateverCallFails) {
    for (int n = 1;; ++n) {
        SCOPED_TRACE("call " + std::to_string(n));
        fake.phone().remove(kFolder + "BQJH.m4r");
        start({{"AAAA.m4r", "Bells"}});
        tones->addRingtone(record({"New", source.path()}).get());
        tones->removeRingtone(tones->ringtoneForName(CFSTR("Bells")).get());
        delegate = std::make_shared<RecordingDelegate>();
        KRTErrorClear();
        fake.failNthCall(n, 4711);

        sync();

        const int met = fake.faultsMet();
        fake.clearFaults();
        EXPECT_EQ(completion->count(), 1);
        EXPECT_LE(delegate->errors().size(), 1U);
        EXPECT_EQ(tones->ringtonesUpdated(), !delegate->errors().empty());
        KRTErrorClear();
        // What a failed load after a success left behind is mended by reading again.
        tones->compareList(listOf({record({"New", source.path()})}).get());
        sync();
        EXPECT_FALSE(tones->ringtonesUpdated());
        EXPECT_THAT(listNames(CFSTR("unchanged")), Contains("New"));
        if (met == 0 || HasFatalFailure()) {
            EXPECT_GT(n, 50);
            break;
        }
    }
}

// ---------------------------------------------------------------------------- cancelling

/// Cancels the sync from within the first step that is like this one.
std::shared_ptr<RecordingDelegate> cancellingAt(int32_t status, int32_t mode,
                                                std::shared_ptr<KRTRingtoneManager>& tones) {
    return std::make_shared<RecordingDelegate>([status, mode, &tones](const Step& step) {
        if (step.status == status && step.mode == mode) {
            tones->cancelSync();
        }
    });
}

TEST_F(SynchronousSync, CancelledAtTheFirstUploadUploadsNothingAndIsASuccess) {
    start({{"AAAA.m4r", "Bells"}});
    tones->addRingtone(record({"One", source.path()}).get());
    tones->addRingtone(record({"Two", source.path()}).get());
    tones->removeRingtone(tones->ringtoneForName(CFSTR("Bells")).get());
    delegate = cancellingAt(1, 5, tones);

    sync();

    EXPECT_EQ(delegate->shortSteps(), "1/0 1/1 0/0 0/0 0/0 0/4 1/5 1/1 1/0 0/0 ");
    EXPECT_THAT(delegate->errors(), IsEmpty());
    EXPECT_THAT(fake.phone().names("/iTunes_Control/Ringtones"), ElementsAre("AAAA.m4r"));
    EXPECT_THAT(listNames(CFSTR("unchanged")), ElementsAre("Bells")) << "read anew";
    EXPECT_THAT(listNames(CFSTR("added")), IsEmpty()) << "pending changes are dropped";
    EXPECT_THAT(listNames(CFSTR("removed")), IsEmpty());
    EXPECT_FALSE(tones->ringtonesUpdated());
    EXPECT_THAT(fake.callsOf("AMDPostNotification"),
                Contains("AMDPostNotification com.apple.itunes-mobdev.syncDidFinish"));
    EXPECT_EQ(completion->count(), 1);
}

TEST_F(SynchronousSync, CancelledItOpensThePhoneOnceAndClosesItOnce) {
    start();
    tones->addRingtone(record({"One", source.path()}).get());
    // Open often enough that no operation disconnects, so that every open and close shows.
    constexpr int kOpens = 20;
    for (int i = 0; i < kOpens; ++i) {
        ASSERT_EQ(phone->open(), nullptr);
    }
    std::vector<std::string> opens;
    delegate = std::make_shared<RecordingDelegate>([&](const Step& step) {
        opens.push_back(std::to_string(step.status) + "/" + std::to_string(step.mode) + " " +
                        std::to_string(phone->_phoneRef()->openCount - kOpens));
        if (step.mode == 5) {
            tones->cancelSync();
        }
    });

    sync();

    EXPECT_THAT(opens, ElementsAre("1/0 1",  // opened
                                   "1/1 0",  // the lock taken: its end of the file service closes
                                   "0/0 0",  // submitting: opened, the folder made, closed
                                   "0/0 0",  //
                                   "0/4 0",  //
                                   "1/5 0",  // cancelled here
                                   "1/1 -1", // the list read anew: one operation
                                   "1/0 -2", // the lock given back
                                   "0/0 -3"  // closed
                                   ));
}

TEST_F(SynchronousSync, ACancelLastsUntilContinueSync) {
    start();
    delegate = cancellingAt(1, 5, tones);
    tones->addRingtone(record({"New", source.path()}).get());
    sync();
    delegate = std::make_shared<RecordingDelegate>();
    tones->addRingtone(record({"New", source.path()}).get());
    sync();
    EXPECT_EQ(delegate->shortSteps(), "1/0 1/1 0/0 0/0 0/4 1/5 1/1 1/0 0/0 ")
        << "cancelled at once";

    tones->continueSync();
    delegate = std::make_shared<RecordingDelegate>();
    tones->addRingtone(record({"New", source.path()}).get());
    sync();

    EXPECT_THAT(listNames(CFSTR("unchanged")), ElementsAre("New"));
}

TEST_F(SynchronousSync, ARemovalCannotBeCancelled) {
    start({{"AAAA.m4r", "Bells"}, {"BBBB.m4r", "Horn"}});
    tones->removeAllRingtones();
    delegate = cancellingAt(1, 3, tones);
    sync();
    EXPECT_THAT(fake.phone().names("/iTunes_Control/Ringtones"), IsEmpty());
}

TEST_F(SynchronousSync, AnAnswerWithoutASyncOnlySetsWhetherToCancel) {
    start();
    EXPECT_TRUE(tones->_internal_status_function(0, 0, 0, 0, nullptr));
    tones->cancelSync();
    EXPECT_FALSE(tones->_internal_status_function(0, 0, 0, 0, nullptr));
    tones->continueSync();
    EXPECT_TRUE(tones->_internal_status_function(0, 0, 0, 0, nullptr));
    EXPECT_THAT(fake.calls(), IsEmpty());
    EXPECT_EQ(completion->count(), 0);
}

// ---------------------------------------------------------------------------- reports

TEST_F(SynchronousSync, MessagesAreUtf8) {
    start();
    const std::string name = "Gl\xC3\xB6"
                             "ckchen \xF0\x9F\x8E\xB5";
    tones->addRingtone(record({name, source.path()}).get());
    sync();
    EXPECT_THAT(delegate->steps(), Contains(Step{1, 5, 1, 0, name}));
}

TEST_F(SynchronousSync, AMessageThatIsNoTextIsNone) {
    start();
    tones->addRingtone(record({"New", source.path()}).get());
    delegate = std::make_shared<RecordingDelegate>([this, done = false](const Step&) mutable {
        if (!std::exchange(done, true)) {
            tones->_internal_status_function(9, 8, 7, 6, "\xFF");
        }
    });
    sync();
    EXPECT_THAT(delegate->steps(), Contains(Step{8, 9, 7, 6, ""}));
}

// ---------------------------------------------------------------------------- size

TEST_F(SynchronousSync, SizeIsWhatIsAddedLessWhatThisObjectRemoves) {
    putRingtones(fake.phone(), {{"AAAA.m4r", "Bells"}}, std::string(300, 'x'));
    start();
    tones->addRingtone(record({"One", "", "m4r", 1000}).get());
    tones->addRingtone(record({"Two", "", "m4r", 500}).get());
    tones->addRingtone(record({"Unknown size"}).get());
    tones->removeRingtone(tones->ringtoneForName(CFSTR("Bells")).get());
    EXPECT_EQ(tones->sizeOfChanges(tones->generateChangeLists().get()), 1200);
}

TEST_F(SynchronousSync, SizeLooksAtTheRemovedListOfTheObjectAndNotOfTheChanges) {
    putRingtones(fake.phone(), {{"AAAA.m4r", "Bells"}}, std::string(300, 'x'));
    start();
    const auto changes = dictionary();
    CFDictionarySetValue(changes.get(), CFSTR("added"),
                         listOf({record({"One", "", "m4r", 1000})}).get());
    CFDictionarySetValue(changes.get(), CFSTR("removed"),
                         listOf({record({"Other", "", "m4r", 600})}).get());
    EXPECT_EQ(tones->sizeOfChanges(changes.get()), 1000);
    tones->removeAllRingtones();
    EXPECT_EQ(tones->sizeOfChanges(changes.get()), 700);
    EXPECT_EQ(tones->sizeOfChanges(nullptr), -300) << "the result can be negative";
}

TEST_F(SynchronousSync, SizesAreSigned64BitNumbers) {
    start();
    const auto changes = dictionary();
    const Record big = record({"Big", "", "m4r", int64_t{1} << 40});
    const Record odd = record({"Odd"});
    CFDictionarySetValue(odd.get(), KRTFileSize, CFSTR("no number"));
    CFDictionarySetValue(changes.get(), CFSTR("added"), listOf({big, odd}).get());
    EXPECT_EQ(tones->sizeOfChanges(changes.get()), int64_t{1} << 40);
}

} // namespace
