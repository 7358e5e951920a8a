// A sync does what was planned or nothing: whatever the phone, or another program, does meanwhile.
#include "tests/vesk/VeskTest.h"

#include <gmock/gmock.h>

#include <thread>

using testing::IsSupersetOf;
using testing::Pair;

namespace vesk::testing {
namespace {

class HeldToPlan : public VeskTest {
protected:
    void SetUp() override {
        options.name = "My Phone";
        plugIn();
    }

    void putTwo() { putRingtones({{"KDAQ.m4r", "Marimba", "1"}, {"QJHE.m4r", "Harp", "2"}}); }

    void fault(const std::string& text) { phone().faults().add(virtualphone::parseFault(text)); }

    size_t faultsMet() {
        return log().entries([](const auto& entry) { return !entry.fault.empty(); }).size();
    }
};

} // namespace

TEST_F(HeldToPlan, AKeptFileWhoseSizeIsNotToldIsNeverDeleted) {
    const std::string file = local("a.m4r");
    size_t stopped = 0;
    for (int nth = 1;; ++nth) {
        SCOPED_TRACE("size query " + std::to_string(nth));
        ASSERT_LT(nth, 100) << "it never ended";
        std::filesystem::remove_all(onDisk(kFolder));
        putTwo();
        const auto before = everything();
        log().clear();
        fault("afc/FileInfo#" + std::to_string(nth) + "=status:10");
        const VeskResult result = vesk({"add", file});
        const bool met = faultsMet() > 0;
        phone().faults().clear();
        if (!met) {
            break;
        }
        EXPECT_EQ(contents(std::string(kFolder) + "/KDAQ.m4r"), "sound of Marimba");
        EXPECT_EQ(contents(std::string(kFolder) + "/QJHE.m4r"), "sound of Harp");
        EXPECT_THAT(listedNames(), IsSupersetOf({"Marimba", "Harp"}));
        if (result.err.find("was stopped") != std::string::npos) {
            ++stopped;
            EXPECT_THAT(result, ExitsWith(ExitCode::CannotBegin));
            EXPECT_THAT(result.err, AllOf(HasSubstr("the phone says"),
                                          HasSubstr("Nothing was changed on the phone")));
            EXPECT_EQ(everything(), before);
        }
    }
    // One for each of the two, in the sync itself.
    EXPECT_GE(stopped, 2U);
}

// The library takes a file whose size is not told for one that is not there: a ringtone that is to be
// replaced would be compared with nothing, and stay.
TEST_F(HeldToPlan, ASyncThatSucceedsHasReplacedWhateverSizeIsNotTold) {
    local("Harp.m4r", "quite another sound");
    local("Marimba.m4r", "sound of Marimba");
    size_t met = 0;
    for (int nth = 1;; ++nth) {
        SCOPED_TRACE("size query " + std::to_string(nth));
        ASSERT_LT(nth, 100) << "it never ended";
        std::filesystem::remove_all(onDisk(kFolder));
        putTwo();
        log().clear();
        fault("afc/FileInfo#" + std::to_string(nth) + "=status:10");
        const VeskResult result = vesk({"sync", localFolder()});
        const bool isMet = faultsMet() > 0;
        phone().faults().clear();
        if (isMet) {
            ++met;
        }
        if (result.exitCode == 0) {
            EXPECT_THAT(everything(), Contains(Pair(HasSubstr(kFolder), "quite another sound")));
        }
        if (!isMet) {
            break;
        }
    }
    EXPECT_GT(met, 5U);
}

TEST_F(HeldToPlan, ARingtoneWhoseSizeIsNotToldIsNotLeftOutOfAList) {
    putTwo();
    for (int nth = 1;; ++nth) {
        SCOPED_TRACE("size query " + std::to_string(nth));
        ASSERT_LT(nth, 100) << "it never ended";
        log().clear();
        fault("afc/FileInfo#" + std::to_string(nth) + "=status:10");
        const VeskResult result = vesk({"list", "--json"});
        const bool isMet = faultsMet() > 0;
        phone().faults().clear();
        if (result.exitCode == 0) {
            EXPECT_THAT(result.out, AllOf(HasSubstr("Marimba"), HasSubstr("Harp")));
        }
        if (!isMet) {
            EXPECT_THAT(result, ExitsWith(ExitCode::Success));
            break;
        }
    }
}

TEST_F(HeldToPlan, AnEntryWithoutAFileIsNothingToReadAgain) {
    putTwo();
    std::filesystem::remove(onDisk(std::string(kFolder) + "/QJHE.m4r"));
    const VeskResult result = vesk({"list"});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.out, AllOf(HasSubstr("Marimba"), Not(HasSubstr("Harp"))));
}

TEST_F(HeldToPlan, WhatAnotherProgramAddsBeforeTheLockIsHadStays) {
    putRingtones({{"KDAQ.m4r", "Marimba", "1"}});
    const std::string file = local("a.m4r");
    fault("afc/Lock#1=delay:1500");
    VeskProcess add({"add", file});
    ASSERT_TRUE(log().waitFor([](const auto& entry) { return entry.request == "Lock"; }));
    putTwo();
    const VeskResult result = add.wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.err,
                AllOf(HasSubstr("was changed by another program"), HasSubstr("looking again")));
    EXPECT_THAT(listedNames(), UnorderedElementsAre("Marimba", "Harp", "a"));
    EXPECT_EQ(contents(std::string(kFolder) + "/QJHE.m4r"), "sound of Harp");
}

TEST_F(HeldToPlan, AFileThatComesBeforeTheLockIsHadIsSeenToo) {
    putRingtones({{"KDAQ.m4r", "Marimba", "1"}});
    const std::string file = local("a.m4r");
    fault("afc/Lock#1=delay:1500");
    VeskProcess add({"add", file});
    ASSERT_TRUE(log().waitFor([](const auto& entry) { return entry.request == "Lock"; }));
    put(std::string(kFolder) + "/half-way.m4r", "somebody's upload");
    const VeskResult result = add.wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.err, AllOf(HasSubstr("looking again"), HasSubstr("half-way.m4r")))
        << "it is named before it is deleted";
}

TEST_F(HeldToPlan, AProgramThatIsAlwaysQuickerEndsItAfterFiveAttempts) {
    putRingtones({{"KDAQ.m4r", "Marimba", "1"}});
    const std::string file = local("a.m4r");
    fault("afc/Lock#1+=delay:700");
    VeskProcess add({"add", file});
    for (int attempt = 0; attempt < 5; ++attempt) {
        ASSERT_TRUE(log().waitFor(
            [](const auto& entry) { return entry.request == "Lock" && entry.mode == 6; }));
        log().clear();
        putRingtones({{"KDAQ.m4r", "Marimba " + std::to_string(attempt), "1"}});
    }
    const VeskResult result = add.wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::CannotBegin));
    EXPECT_THAT(result.err, AllOf(HasSubstr("was changed by another program"),
                                  HasSubstr("Close the other program")));
    EXPECT_THAT(listedNames(), UnorderedElementsAre("Marimba 4"));
}

TEST_F(HeldToPlan, NothingIsRefusedForWhatAnotherSyncLeavesHalfWay) {
    putRingtones({{"KDAQ.m4r", "Marimba", "1"}});
    const std::string catalogue = contents(kCatalogue);
    ASSERT_TRUE(phone().holdSyncLock());
    put(kCatalogue, "");
    VeskProcess add({"add", local("a.m4r")});
    ASSERT_TRUE(log().waitFor([](const auto& entry) { return entry.request == "Lock"; }));
    put(kCatalogue, catalogue);
    phone().releaseSyncLock();
    const VeskResult result = add.wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.err,
                AllOf(HasSubstr("another program is syncing"), HasSubstr("looking again")));
    EXPECT_THAT(listedNames(), UnorderedElementsAre("Marimba", "a"));
}

TEST_F(HeldToPlan, TwoAddsAtOnceBothArrive) {
    std::set<std::string> expected;
    for (int round = 0; round < 10; ++round) {
        const std::string one = "one " + std::to_string(round);
        const std::string other = "other " + std::to_string(round);
        VeskProcess first({"add", local(one + ".m4r")});
        VeskProcess second({"add", local(other + ".mp3")});
        EXPECT_THAT(first.wait(), ExitsWith(ExitCode::Success));
        EXPECT_THAT(second.wait(), ExitsWith(ExitCode::Success));
        expected.insert({one, other});
        ASSERT_EQ(listedNames(), expected);
    }
}

TEST_F(HeldToPlan, AMissingFolderForTheCatalogueIsMadeBeforeAnythingIsUploaded) {
    for (const char* missing : {"/iTunes_Control/iTunes", "/iTunes_Control"}) {
        std::filesystem::remove_all(onDisk(missing));
        const std::string file = local("a.m4r");
        const auto planned = vesk({"add", file, "--dry-run", "--json"}).json();
        log().clear();
        const VeskResult result = vesk({"add", file});
        EXPECT_THAT(result, ExitsWith(ExitCode::Success)) << result.err;
        const auto changes = changesInLog();
        EXPECT_EQ(changes, changesIn(planned.at("operations")));
        EXPECT_EQ(changes.front(), std::string("folder ") + missing);
        EXPECT_THAT(listedNames(), UnorderedElementsAre("a"));
    }
}

TEST_F(HeldToPlan, FilesThatThePhoneDoesNotDeleteInTheEndAreSaid) {
    putRingtones({{"KDAQ.m4r", "Marimba", "1"}});
    put(std::string(kFolder) + "/stray one", "1");
    put(std::string(kFolder) + "/stray two", "2");
    fault("afc/RemovePath#1=status:10");
    const VeskResult result = vesk({"add", local("a.m4r"), "--no-backup"});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.err, HasSubstr("1 file that no catalogue lists could not be deleted"));
    EXPECT_EQ(ringtoneFolder().size(), 3U);
}

TEST_F(HeldToPlan, WhatWasForcedToGoIsNoFailure) {
    putRingtones({{"KDAQ.m4r", "Twin", "1"}, {"QJHE.m4r", "Twin", "2"}});
    const VeskResult result = vesk({"add", local("a.m4r"), "--force"});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success)) << result.err;
    EXPECT_THAT(listedNames(), UnorderedElementsAre("Twin", "a"));
    EXPECT_EQ(ringtoneFolder().size(), 2U);
}

} // namespace vesk::testing
