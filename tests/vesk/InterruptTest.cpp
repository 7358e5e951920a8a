// Syncs that Ctrl-C interrupts: what vesk says of the phone, and what is on it.
#include "tests/vesk/VeskTest.h"

#include <gmock/gmock.h>

#include <csignal>
#include <functional>
#include <regex>

namespace vesk::testing {
namespace {

using virtualphone::LogEntry;

bool isUpload(const LogEntry& entry) {
    return entry.request == "Write" && entry.size.value_or(0) > 0;
}

bool writesCatalogue(const LogEntry& entry) {
    constexpr uint64_t kOpenForWriting = 3;
    return entry.request == "Open" && entry.path == kCatalogue && entry.mode == kOpenForWriting;
}

/// A request that hold() is about.
bool isHeld(const LogEntry& entry) {
    return entry.fault == "delay";
}

class Interrupt : public VeskTest {
protected:
    void SetUp() override {
        options.name = "My Phone";
        plugIn();
        putRingtones({{"KDAQ.m4r", "Marimba", "1"}});
        oldCatalogue_ = contents(kCatalogue);
    }

    void makeFiles(int count, size_t bytes) {
        for (int i = 0; i < count; ++i) {
            local("tone" + std::to_string(i) + ".m4r", std::string(bytes, 'x'));
        }
    }

    /// The phone thinks about a request for so long that a signal comes first.
    void hold(const std::string& request) {
        phone().faults().add(virtualphone::parseFault("afc/" + request + "=delay:2000"));
    }

    /// Waits for a request, then sends the signal.
    void interruptAt(VeskProcess& process, const std::function<bool(const LogEntry&)>& moment) {
        ASSERT_TRUE(log().waitFor(moment));
        process.signal(SIGINT);
    }

    /// Files in the ringtone folder with so many bytes.
    size_t filesOfSize(size_t bytes) const {
        size_t count = 0;
        for (const std::string& name : ringtoneFolder()) {
            count += contents(std::string(kFolder) + "/" + name).size() == bytes ? 1U : 0U;
        }
        return count;
    }

    /// The number of uploads that vesk said.
    static size_t saidUploaded(const std::string& text) {
        std::smatch found;
        const std::regex uploaded("([0-9]+) of [0-9]+ ringtones? had been uploaded");
        return std::regex_search(text, found, uploaded) ? std::stoul(found[1]) : std::string::npos;
    }

    /// What was cancelled before the removals leaves this.
    void expectOldState(const VeskResult& result, const std::set<std::string>& names) {
        EXPECT_THAT(result, ExitsWith(ExitCode::Cancelled));
        EXPECT_THAT(result.err, AllOf(HasSubstr("cancelling after this step"),
                                      HasSubstr("the phone's catalogue is the old one")));
        EXPECT_EQ(contents(kCatalogue), oldCatalogue_);
        EXPECT_EQ(listedNames(), names);
        EXPECT_TRUE(phone().holdSyncLock()) << "the lock was not given back";
        phone().releaseSyncLock();
    }

    std::string oldCatalogue_;
};

/// Cancelled during the upload of this number.
class InterruptAtUpload : public Interrupt, public ::testing::WithParamInterface<int> {};

/// A phone on which uploads take seconds, so that there is time to cancel.
class SlowSync : public Interrupt {
protected:
    void SetUp() override {
        options.linkBytesPerSecond = 20'000;
        Interrupt::SetUp();
    }

    /// Ctrl-C within an upload, and again while the phone keeps vesk waiting.
    VeskResult interruptedTwice(const std::vector<std::string>& arguments) {
        VeskProcess sync(arguments);
        EXPECT_TRUE(log().waitFor(isUpload));
        phone().faults().goSilent();
        sync.signal(SIGINT);
        sync.waitForText("cancelling after this step");
        sync.signal(SIGINT);
        return sync.wait();
    }
};

} // namespace

TEST_F(Interrupt, WaitingForTheLockNothingHasChanged) {
    ASSERT_TRUE(phone().holdSyncLock());
    VeskProcess sync({"add", local("a.m4r")});
    interruptAt(sync, [](const LogEntry& entry) { return entry.request == "Lock"; });
    sync.waitForText("cancelling after this step");
    phone().releaseSyncLock();
    const VeskResult result = sync.wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::Cancelled));
    EXPECT_THAT(result.err, HasSubstr("nothing was changed on the phone"));
    EXPECT_EQ(ringtoneFolder(), std::set<std::string>{"KDAQ.m4r"});
    EXPECT_EQ(contents(kCatalogue), oldCatalogue_);
    EXPECT_TRUE(phone().holdSyncLock()) << "the lock was not given back";
}

TEST_P(InterruptAtUpload, WhatHasArrivedIsSaidAndTheOldListStays) {
    constexpr size_t kBytes = 5000;
    makeFiles(4, kBytes);
    hold("Write#" + std::to_string(GetParam()));
    VeskProcess sync({"add", localFolder() + "/tone0.m4r", localFolder() + "/tone1.m4r",
                      localFolder() + "/tone2.m4r", localFolder() + "/tone3.m4r", "--no-backup"});
    interruptAt(sync, isHeld);
    const VeskResult result = sync.wait();
    expectOldState(result, {"Marimba"});
    EXPECT_THAT(result.err, HasSubstr("all 1 ringtone that it had are still there"));
    // The one under way is broken off: the phone has all of it by chance, and has not said so.
    EXPECT_EQ(saidUploaded(result.err), static_cast<size_t>(GetParam()) - 1);
    EXPECT_EQ(filesOfSize(kBytes), static_cast<size_t>(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(OfFour, InterruptAtUpload, ::testing::Values(1, 2, 4));

TEST_F(Interrupt, AtTheCloseOfAnUploadItIsCancelledToo) {
    constexpr size_t kBytes = 5000;
    makeFiles(2, kBytes);
    // Three closes are of the catalogue, as it is read.
    hold("Close#4");
    VeskProcess sync(
        {"add", localFolder() + "/tone0.m4r", localFolder() + "/tone1.m4r", "--no-backup"});
    interruptAt(sync, isHeld);
    const VeskResult result = sync.wait();
    expectOldState(result, {"Marimba"});
    EXPECT_EQ(saidUploaded(result.err), 1U);
    EXPECT_EQ(filesOfSize(kBytes), 1U);
}

TEST_F(Interrupt, WhileFilesMoveTheyMoveBack) {
    putRingtones({{"Longtone1.m4r", "Long", "1"}, {"KDAQ.m4r", "Marimba", "2"}});
    oldCatalogue_ = contents(kCatalogue);
    hold("Rename#1");
    VeskProcess sync({"remove", "Marimba"});
    interruptAt(sync, isHeld);
    const VeskResult result = sync.wait();
    expectOldState(result, {"Long", "Marimba"});
    EXPECT_THAT(result.err, HasSubstr("nothing had been removed"));
    EXPECT_THAT(ringtoneFolder(), UnorderedElementsAre("Longtone1.m4r", "KDAQ.m4r"));
}

TEST_F(Interrupt, AtTheRemovalsItIsTooLate) {
    makeFiles(1, 100);
    hold("RemovePath#1");
    VeskProcess sync({"sync", localFolder()});
    interruptAt(sync, [](const LogEntry& entry) { return entry.request == "RemovePath"; });
    const VeskResult result = sync.wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.err, AllOf(HasSubstr("too late to cancel, the sync is being completed"),
                                  HasSubstr("too late to cancel: the sync is complete")));
    EXPECT_THAT(listedNames(), ElementsAre("tone0"));
}

TEST_F(Interrupt, AtTheCatalogueItIsTooLate) {
    makeFiles(1, 100);
    // Two opens read the catalogue; then come those of the lock, the upload and the new catalogue.
    hold("Open#5");
    VeskProcess sync({"add", localFolder() + "/tone0.m4r"});
    interruptAt(sync, writesCatalogue);
    const VeskResult result = sync.wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.err, HasSubstr("too late to cancel: the sync is complete"));
    EXPECT_THAT(listedNames(), UnorderedElementsAre("Marimba", "tone0"));
}

TEST_F(Interrupt, TwiceAtTheCatalogueSaysThatItMayBeIncomplete) {
    makeFiles(1, 100);
    phone().faults().add(virtualphone::parseFault("afc/Open#6=delay:60000"));
    VeskProcess sync({"add", localFolder() + "/tone0.m4r", "--no-backup"});
    interruptAt(sync, writesCatalogue);
    sync.waitForText("too late to cancel");
    sync.signal(SIGINT);
    const VeskResult result = sync.wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::Cancelled));
    EXPECT_THAT(result.err, AllOf(HasSubstr("left at once"), HasSubstr("may be incomplete")));
    // The phone had emptied it already.
    EXPECT_EQ(contents(kCatalogue), "");
    EXPECT_EQ(ringtoneFolder().size(), 2U);
}

TEST_F(Interrupt, WhileARepairIsWorkedOutNothingHasChanged) {
    put(std::string(kFolder) + "/ABCD.m4r", "a sound that nothing lists");
    const auto before = everything();
    // Two opens read the catalogue; then what the phone holds is taken into the safe.
    hold("Open#4");
    VeskProcess rebuild({"rebuild"});
    interruptAt(rebuild, isHeld);
    const VeskResult result = rebuild.wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::Cancelled));
    EXPECT_THAT(result.err, AllOf(HasSubstr("cancelling after this step"),
                                  HasSubstr("nothing was changed on the phone")));
    EXPECT_EQ(everything(), before);
}

TEST_F(Interrupt, WhileAPhoneIsPutRightItIsPutBack) {
    put(std::string(kFolder) + "/ABCD.m4r", "a sound that nothing lists");
    hold("Write#1");
    VeskProcess rebuild({"rebuild"});
    interruptAt(rebuild, isHeld);
    const VeskResult result = rebuild.wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::Cancelled));
    EXPECT_THAT(result.err, AllOf(HasSubstr("cancelling after this step"),
                                  HasSubstr("has been put back as it was before")));
    EXPECT_EQ(contents(kCatalogue), oldCatalogue_);
    EXPECT_THAT(ringtoneFolder(), UnorderedElementsAre("ABCD.m4r", "KDAQ.m4r"));
    EXPECT_TRUE(phone().holdSyncLock()) << "the lock was not given back";
}

TEST_F(SlowSync, CtrlCBreaksAFileOff) {
    constexpr size_t kBytes = 2'000'000; // a minute and a half on this link
    makeFiles(1, kBytes);
    VeskProcess sync({"add", localFolder() + "/tone0.m4r"});
    ASSERT_TRUE(log().waitFor([](const LogEntry& entry) { return entry.request == "Write"; }));
    sync.signal(SIGINT);
    const VeskResult result = sync.wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::Cancelled));
    EXPECT_THAT(result.err, AllOf(HasSubstr("0 of 1 ringtone had been uploaded"),
                                  HasSubstr("catalogue is the old one"),
                                  HasSubstr("all 1 ringtone that it had are still there")));
    EXPECT_EQ(contents(kCatalogue), oldCatalogue_);
    EXPECT_EQ(filesOfSize(kBytes), 0U) << "the rest of the file was waited for";
    EXPECT_TRUE(phone().holdSyncLock()) << "the lock was not given back";
}

TEST_F(SlowSync, CtrlCCancelsAtTheNextStepAndSaysWhatThePhoneHolds) {
    makeFiles(5, 20'000);
    VeskProcess sync({"add", localFolder() + "/tone0.m4r", localFolder() + "/tone1.m4r",
                      localFolder() + "/tone2.m4r", localFolder() + "/tone3.m4r"});
    ASSERT_TRUE(log().waitFor(isUpload));
    sync.signal(SIGINT);
    const VeskResult result = sync.wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::Cancelled));
    EXPECT_THAT(result.err, AllOf(HasSubstr("cancelling after this step"), HasSubstr("cancelled"),
                                  HasSubstr("of 4 ringtones had been uploaded"),
                                  HasSubstr("catalogue is the old one"),
                                  HasSubstr("all 1 ringtone that it had are still there")));
    EXPECT_EQ(contents(kCatalogue), oldCatalogue_);
    EXPECT_THAT(listedNames(), ElementsAre("Marimba"));
    EXPECT_LT(ringtoneFolder().size(), 5U);
}

TEST_F(SlowSync, TheSameCommandAfterACancelPutsItRight) {
    makeFiles(3, 20'000);
    const std::vector<std::string> arguments{"add", localFolder() + "/tone0.m4r",
                                             localFolder() + "/tone1.m4r"};
    VeskProcess sync(arguments);
    ASSERT_TRUE(log().waitFor(isUpload));
    sync.signal(SIGTERM);
    EXPECT_THAT(sync.wait(), ExitsWith(ExitCode::Cancelled));
    EXPECT_THAT(vesk(arguments), ExitsWith(ExitCode::Success));
    EXPECT_THAT(listedNames(), UnorderedElementsAre("Marimba", "tone0", "tone1"));
    EXPECT_EQ(ringtoneFolder().size(), 3U);
}

TEST_F(SlowSync, ACancelledReplacementSaysWhatItHasOverwritten) {
    // The only name that is free is that of the file to be replaced: it is drawn anew.
    putRingtones({{"BQJH.m4r", "Same", "1"}, {"KDAQ.m4r", "Marimba", "2"}});
    local("Same.m4r", std::string(20'000, 'x'));
    local("Zebra.m4r", std::string(20'000, 'x'));
    local("Marimba.m4r", "sound of Marimba");
    VeskProcess sync({"sync", localFolder()});
    ASSERT_TRUE(log().waitFor(isUpload));
    sync.signal(SIGINT);
    const VeskResult result = sync.wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::Cancelled));
    EXPECT_THAT(result.err, AllOf(HasSubstr("\"Same\", which was to go, has been overwritten"),
                                  Not(HasSubstr("\"Marimba\""))));
}

TEST_F(SlowSync, ASecondCtrlCLeavesAtOnce) {
    makeFiles(1, 200'000);
    const VeskResult result = interruptedTwice({"add", localFolder() + "/tone0.m4r"});
    EXPECT_THAT(result, ExitsWith(ExitCode::Cancelled));
    EXPECT_THAT(result.err,
                AllOf(HasSubstr("left at once"), HasSubstr("catalogue is the old one")));
    EXPECT_EQ(contents(kCatalogue), oldCatalogue_);
}

TEST_F(SlowSync, ASecondCtrlCSaysThatAnUnreadableCatalogueIsGone) {
    put(kCatalogue, "<plist><dict/></plist>");
    makeFiles(1, 200'000);
    const VeskResult result = interruptedTwice({"add", localFolder() + "/tone0.m4r", "--force"});
    EXPECT_THAT(result, ExitsWith(ExitCode::Cancelled));
    EXPECT_THAT(result.err,
                AllOf(HasSubstr("left at once"), HasSubstr("unreadable catalogue is gone"),
                      Not(HasSubstr("catalogue is the old one"))));
    EXPECT_FALSE(exists(kCatalogue));
}

TEST_F(SlowSync, CtrlCBeforeAnythingIsWrittenLeavesAtOnce) {
    phone().faults().goSilent();
    VeskProcess list({"list"});
    ASSERT_TRUE(log().waitFor([](const auto& entry) { return entry.service == "lockdown"; }));
    list.signal(SIGINT);
    const VeskResult result = list.wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::Cancelled));
    EXPECT_THAT(result.err, HasSubstr("nothing was changed"));
}

TEST_F(SlowSync, ACancelledSyncMovesRenamedFilesBack) {
    // "Longtone1.m4r" is too long a name for the firmware and moves before the uploads.
    putRingtones({{"Longtone1.m4r", "Long", "1"}, {"KDAQ.m4r", "Marimba", "2"}});
    oldCatalogue_ = contents(kCatalogue);
    makeFiles(2, 20'000);
    VeskProcess sync({"add", localFolder() + "/tone0.m4r", localFolder() + "/tone1.m4r"});
    ASSERT_TRUE(log().waitFor([](const auto& entry) { return entry.request == "Rename"; }));
    ASSERT_TRUE(log().waitFor(isUpload));
    sync.signal(SIGINT);
    EXPECT_THAT(sync.wait(), ExitsWith(ExitCode::Cancelled));
    EXPECT_THAT(ringtoneFolder(), Contains("Longtone1.m4r"));
    EXPECT_EQ(contents(kCatalogue), oldCatalogue_);
    EXPECT_THAT(listedNames(), UnorderedElementsAre("Long", "Marimba"));
}

} // namespace vesk::testing
