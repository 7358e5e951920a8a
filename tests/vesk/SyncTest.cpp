// Syncs that do not go as planned: cancelled, failing, pulled out, not what was wanted.
#include "VeskTest.h"

#include <gmock/gmock.h>

#include <csignal>

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAre;

namespace vesk::testing {
namespace {

bool isUpload(const virtualphone::LogEntry& entry) {
    return entry.request == "Write" && entry.size.value_or(0) > 0;
}

class Sync : public VeskTest {
protected:
    void SetUp() override {
        options.name = "My Phone";
        plugIn();
        putRingtones({{"KDAQ.m4r", "Marimba", "1"}});
        oldCatalogue_ = contents(kCatalogue);
    }

    std::string fault(const std::string& text) {
        phone().faults().add(virtualphone::parseFault(text));
        return text;
    }

    void makeFiles(int count, std::size_t bytes) {
        for (int i = 0; i < count; ++i) {
            local("tone" + std::to_string(i) + ".m4r", std::string(bytes, 'x'));
        }
    }

    std::string oldCatalogue_;
};

/** A phone on which uploads take seconds, so that there is time to cancel. */
class SlowSync : public Sync {
protected:
    void SetUp() override {
        options.linkBytesPerSecond = 20'000;
        Sync::SetUp();
    }
};

} // namespace

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
    VeskProcess sync({"add", localFolder() + "/tone0.m4r"});
    ASSERT_TRUE(log().waitFor(isUpload));
    sync.signal(SIGINT);
    sync.waitForText("cancelling after this step");
    sync.signal(SIGINT);
    const VeskResult result = sync.wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::Cancelled));
    EXPECT_THAT(result.err, HasSubstr("left at once"));
    EXPECT_EQ(contents(kCatalogue), oldCatalogue_);
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

TEST_F(Sync, AFailedUploadStopsAndLeavesTheOldCatalogue) {
    makeFiles(3, 100);
    fault("afc/Write#2=status:18");
    const VeskResult result =
        vesk({"add", localFolder() + "/tone0.m4r", localFolder() + "/tone1.m4r"});
    EXPECT_THAT(result, ExitsWith(ExitCode::SyncFailed));
    EXPECT_THAT(result.err, AllOf(HasSubstr("no space left on the phone"), HasSubstr("tone"),
                                  HasSubstr("1 of 2 ringtones had been uploaded"),
                                  HasSubstr("catalogue is the old one")));
    EXPECT_EQ(contents(kCatalogue), oldCatalogue_);
    EXPECT_THAT(listedNames(), ElementsAre("Marimba"));
}

TEST_F(Sync, APhonePulledOutDuringAnUploadIsSaid) {
    makeFiles(3, 100);
    fault("afc/Write#2=unplug");
    const VeskResult result =
        vesk({"add", localFolder() + "/tone0.m4r", localFolder() + "/tone1.m4r"});
    EXPECT_THAT(result, ExitsWith(ExitCode::PhoneGone));
    EXPECT_THAT(result.err,
                AllOf(HasSubstr("pulled out during the sync"), HasSubstr("1 of 2 ringtones"),
                      HasSubstr("catalogue is the old one"), HasSubstr("Plug it in again")));
    EXPECT_EQ(contents(kCatalogue), oldCatalogue_);
}

TEST_F(Sync, APhonePulledOutAtTheCatalogueIsSaid) {
    // The removal is the last change before the catalogue.
    local("a.m4r");
    fault("afc/RemovePath#1=unplug");
    const VeskResult result = vesk({"remove", "Marimba"});
    EXPECT_THAT(result, ExitsWith(ExitCode::PhoneGone));
    EXPECT_THAT(result.err, HasSubstr("whether the new catalogue was written is not known"));
}

TEST_F(Sync, APhonePulledOutBeforeTheSyncIsUnchanged) {
    fault("afc/ReadDirectory#1=unplug");
    const auto before = everything();
    const VeskResult result = vesk({"add", local("a.m4r")});
    EXPECT_THAT(result, ExitsWith(ExitCode::PhoneGone));
    EXPECT_THAT(result.err, AllOf(HasSubstr("pulled out"), HasSubstr("Nothing was changed")));
    EXPECT_EQ(everything(), before);
}

TEST_F(Sync, ARefusedBeginWritesNothing) {
    phone().faults().failAfc("Open", 10, /*nth=*/3); // two read the catalogue, then the lock file
    const auto before = everything();
    const VeskResult result = vesk({"add", local("a.m4r")});
    EXPECT_THAT(result, ExitsWith(ExitCode::CannotBegin));
    EXPECT_THAT(result.err, AllOf(HasSubstr("could not begin"), HasSubstr("permission denied")));
    EXPECT_EQ(everything(), before);
}

TEST_F(Sync, ALockHeldElsewhereIsWaitedForAndIsNoFailure) {
    ASSERT_TRUE(phone().holdSyncLock());
    EXPECT_THAT(vesk({"add", local("a.m4r")}), ExitsWith(ExitCode::Success));
    const auto attempts =
        log().entries([](const auto& entry) { return entry.request == "Lock" && entry.mode == 6; });
    EXPECT_EQ(attempts.size(), 7U);
}

TEST_F(Sync, ACatalogueThatCouldNotBeWrittenIsNoticed) {
    local("a.m4r", "the sound");
    // The first write is the file, the second the catalogue.
    fault("afc/Write#2=status:18");
    const VeskResult result = vesk({"add", localFolder() + "/a.m4r"});
    EXPECT_THAT(result, ExitsWith(ExitCode::NotAsWanted));
    EXPECT_THAT(result.err,
                AllOf(HasSubstr("does not hold what it should"), HasSubstr("missing: \"a\"")));
}

TEST_F(Sync, ASourceFileThatVanishesIsNamed) {
    options.linkBytesPerSecond = 0;
    const std::string first = local("a.m4r", std::string(1000, 'x'));
    const std::string second = local("b.m4r", std::string(1000, 'x'));
    phone().faults().add(virtualphone::parseFault("afc/Write#1=delay:2000"));
    VeskProcess add({"add", first, second});
    ASSERT_TRUE(log().waitFor(isUpload));
    std::filesystem::remove(first);
    std::filesystem::remove(second);
    const VeskResult result = add.wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::SyncFailed));
    EXPECT_THAT(result.err, AllOf(HasSubstr("cannot be read"), HasSubstr(".m4r")));
    EXPECT_EQ(contents(kCatalogue), oldCatalogue_);
}

TEST_F(Sync, TheLockIsTakenBeforeAndGivenBackAfterTheChanges) {
    ASSERT_THAT(vesk({"add", local("a.m4r")}), ExitsWith(ExitCode::Success));
    // Two connections: what is posted has no answer, so nothing says when the phone reads it.
    std::vector<std::string> posts;
    std::vector<std::string> steps;
    for (const auto& entry : log().entries()) {
        if (entry.service == "notification_proxy" && entry.request == "PostNotification") {
            posts.push_back(entry.name.substr(entry.name.rfind('.') + 1));
        } else if (entry.request == "Lock" && entry.mode == 6) {
            steps.emplace_back("lock");
        } else if (entry.request == "Write") {
            steps.emplace_back("write");
        }
    }
    EXPECT_THAT(posts, ElementsAre("syncWillStart", "syncLockRequest", "syncDidFinish"));
    EXPECT_THAT(steps, ElementsAre("lock", "write", "write"));
}

TEST_F(Sync, ReadingManyRingtonesDoesNotReconnectForEach) {
    std::vector<Listed> entries;
    for (int i = 0; i < 40; ++i) {
        const std::string number = std::to_string(i);
        entries.push_back({"T" + number + ".mp3", "Tone " + number, "G" + number});
    }
    putRingtones(entries);
    log().clear();
    const nlohmann::json list = vesk({"list", "--json"}).json();
    EXPECT_EQ(list.at("ringtones").size(), 40U);
    const auto connections =
        log().entries([](const auto& entry) { return entry.request == "StartService"; });
    EXPECT_LT(connections.size(), 10U);
}

TEST_F(Sync, PipesGetPlainLinesAndQuietGetsNone) {
    makeFiles(2, 100);
    const VeskResult plain = vesk({"sync", localFolder()});
    EXPECT_THAT(plain, ExitsWith(ExitCode::Success));
    EXPECT_THAT(plain.err, AllOf(HasSubstr("vesk: uploading 1/2: tone"),
                                 HasSubstr("vesk: uploading 2/2: tone"), Not(HasSubstr("\r")),
                                 Not(HasSubstr("\x1b"))));
    EXPECT_THAT(plain.out, AllOf(StartsWith("\"My Phone\" (firmware 1.1.1): 2 added, 1 removed"),
                                 Not(HasSubstr("\x1b"))));
    local("more.m4r");
    const VeskResult quiet = vesk({"sync", localFolder(), "--quiet"});
    EXPECT_THAT(quiet, ExitsWith(ExitCode::Success));
    EXPECT_THAT(quiet.out + quiet.err, IsEmpty());
}

TEST_F(Sync, AReaderThatGoesAwayDoesNotStopIt) {
    makeFiles(2, 100);
    VeskProcess::Options shell;
    shell.program = "/bin/sh";
    const VeskResult result =
        VeskProcess({"-c", "exec 3>&2; { " + std::string(KRL_VESK) + " sync " + localFolder() +
                               " 2>&1; echo code $? >&3; } | true"},
                    shell)
            .wait();
    EXPECT_THAT(result.err, HasSubstr("code 0"));
    EXPECT_THAT(listedNames(), UnorderedElementsAre("tone0", "tone1"));
}

} // namespace vesk::testing
