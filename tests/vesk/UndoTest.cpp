// What is kept of each job, and how it is put back.
#include "tests/vesk/VeskTest.h"

#include <gmock/gmock.h>

using testing::SizeIs;

namespace vesk::testing {
namespace {

namespace fs = std::filesystem;

class Undo : public VeskTest {
protected:
    void SetUp() override {
        options.name = "My Phone";
        plugIn();
        // As a sync leaves them, with a placeholder.
        local("Marimba.m4r", "marimba");
        local("Harp.mp3", "the harp");
        ASSERT_THAT(vesk({"sync", localFolder(), "--no-backup"}), ExitsWith(ExitCode::Success));
    }

    /// Everything but the file that every sync locks.
    std::map<std::string, std::string> everything() const {
        auto all = VeskTest::everything();
        all.erase(onDisk("/com.apple.itunes.lock_sync").string());
        return all;
    }

    void undoes(const std::vector<std::string>& job) {
        SCOPED_TRACE(::testing::PrintToString(job));
        const auto before = everything();
        ASSERT_THAT(vesk(job), ExitsWith(ExitCode::Success));
        ASSERT_NE(everything(), before);
        EXPECT_THAT(vesk({"undo"}), ExitsWith(ExitCode::Success));
        EXPECT_EQ(everything(), before);
    }

    std::string other(const std::string& name, const std::string& contents) {
        const fs::path folder = temporaryFolder() / "other";
        fs::create_directories(folder);
        std::ofstream(folder / name, std::ios::binary) << contents;
        return (folder / name).string();
    }

    std::string otherFolder() const { return (temporaryFolder() / "other").string(); }
};

} // namespace

TEST_F(Undo, PutsBackByteForByteWhatEachKindOfJobChanged) {
    undoes({"add", other("New.m4r", "new sound")});
    undoes({"remove", "Harp"});
    other("Harp.mp3", "another harp");
    undoes({"sync", otherFolder()});
    put(std::string(kFolder) + "/STRAY.m4r", "no catalogue's");
    undoes({"remove", "Marimba"});
    put(kCatalogue, "no catalogue at all");
    undoes({"sync", otherFolder(), "--force"});
}

TEST_F(Undo, OnceMoreGoesBackFurther) {
    const auto first = everything();
    ASSERT_THAT(vesk({"add", other("A.m4r", "sound a")}), ExitsWith(ExitCode::Success));
    const auto second = everything();
    ASSERT_THAT(vesk({"remove", "Marimba"}), ExitsWith(ExitCode::Success));
    EXPECT_THAT(vesk({"undo"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(everything(), second);
    const VeskResult again = vesk({"undo"});
    EXPECT_THAT(again, ExitsWith(ExitCode::Success));
    EXPECT_THAT(again.out, AllOf(HasSubstr("vesk add"), HasSubstr("1 removed (\"A\")")));
    EXPECT_EQ(everything(), first);
    EXPECT_THAT(vesk({"undo"}), ExitsWith(ExitCode::NothingKept));
    EXPECT_EQ(everything(), first);
}

TEST_F(Undo, WorksOnAPhoneThatWasWipedSince) {
    const auto before = everything();
    ASSERT_THAT(vesk({"remove", "Marimba"}), ExitsWith(ExitCode::Success));
    fs::remove_all(onDisk("/iTunes_Control"));
    fs::create_directories(onDisk("/iTunes_Control"));
    EXPECT_THAT(vesk({"undo"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(everything(), before);
}

TEST_F(Undo, PutsNothingOverWhatOthersDid) {
    ASSERT_THAT(vesk({"remove", "Marimba"}), ExitsWith(ExitCode::Success));
    putRingtones({{"ABCD.m4r", "Theirs", "3"}});
    const auto theirs = everything();
    EXPECT_THAT(vesk({"undo"}), ExitsWith(ExitCode::ChangedByOthers));
    EXPECT_EQ(everything(), theirs);
}

TEST_F(Undo, IsToldByTheHistory) {
    ASSERT_THAT(vesk({"add", other("A.m4r", "sound a")}), ExitsWith(ExitCode::Success));
    ASSERT_THAT(vesk({"remove", "Marimba"}), ExitsWith(ExitCode::Success));
    ASSERT_THAT(vesk({"undo"}), ExitsWith(ExitCode::Success));
    const nlohmann::json jobs = vesk({"history", "--json"}).json().at("jobs");
    ASSERT_THAT(jobs, SizeIs(2));
    EXPECT_EQ(jobs[0].at("command"), "remove");
    EXPECT_EQ(jobs[0].at("undone"), true);
    EXPECT_EQ(jobs[0].at("changes").at("removed"), nlohmann::json({"Marimba"}));
    EXPECT_EQ(jobs[1].at("command"), "add");
    EXPECT_EQ(jobs[1].at("undone"), false);
    EXPECT_EQ(jobs[1].at("changes").at("added"), nlohmann::json({"A"}));
    bus().unplug(id());
    EXPECT_THAT(vesk({"history", "--udid", phone().udid()}).out, HasSubstr("Marimba"));
}

TEST_F(Undo, TheHistoryOfAnUnknownPhoneIsEmptyAndMakesNothing) {
    const VeskResult history = vesk({"history", "--udid", std::string(40, '7'), "--json"});
    EXPECT_THAT(history, ExitsWith(ExitCode::Success));
    EXPECT_THAT(history.json().at("jobs"), IsEmpty());
    for (const auto& entry : fs::recursive_directory_iterator(temporaryFolder() / "state")) {
        EXPECT_THAT(entry.path().string(), Not(HasSubstr("7777")));
    }
}

TEST_F(Undo, AJobThatWasBrokenOffIsSaidByWhoeverOnlyLooks) {
    EXPECT_THAT(vesk({"list"}).err, Not(HasSubstr("broken off")));
    phone().faults().add(virtualphone::parseFault("afc/Write#1=unplug"));
    ASSERT_THAT(vesk({"add", other("A.m4r", "sound a")}), ExitsWith(ExitCode::PhoneGone));
    replug();
    for (const char* command : {"list", "info"}) {
        const VeskResult looked = vesk({command});
        EXPECT_THAT(looked, ExitsWith(ExitCode::Success));
        EXPECT_THAT(looked.err, AllOf(HasSubstr("vesk add"), HasSubstr("broken off"),
                                      HasSubstr("the next command that writes")));
    }
    for (const auto& command : std::vector<std::vector<std::string>>{
             {"remove", "Harp", "-n"}, {"add", other("A.m4r", "sound a"), "-n"}}) {
        EXPECT_THAT(vesk(command).err,
                    AllOf(HasSubstr("broken off"), HasSubstr("for the phone as it is now")));
    }
    EXPECT_THAT(vesk({"remove", "Harp"}).err, HasSubstr("broken off"));
    EXPECT_THAT(vesk({"list"}).err, Not(HasSubstr("broken off")));
}

TEST_F(Undo, NoBackupKeepsNothing) {
    ASSERT_THAT(vesk({"remove", "Marimba", "--no-backup"}), ExitsWith(ExitCode::Success));
    EXPECT_THAT(vesk({"undo"}), ExitsWith(ExitCode::NothingKept));
}

TEST_F(Undo, ASafeThatCannotBeUsedIsSaidBeforeAnythingIsWritten) {
    const auto before = everything();
    log().clear();
    VeskProcess::Options nowhere;
    nowhere.environment = {{"XDG_STATE_HOME", "/proc"}};
    const VeskResult result = VeskProcess({"remove", "Marimba"}, nowhere).wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::CannotKeep));
    EXPECT_THAT(result.err, HasSubstr("--no-backup"));
    EXPECT_EQ(everything(), before);
    EXPECT_THAT(changesInLog(), IsEmpty());
}

TEST_F(Undo, ACatalogueThatCouldNotBeWrittenIsWrittenAgain) {
    // The first write is the file, the second the catalogue.
    phone().faults().add(virtualphone::parseFault("afc/Write#2=status:18"));
    const VeskResult result = vesk({"add", other("A.m4r", "sound a")});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.err, HasSubstr("put right"));
    EXPECT_EQ(listedNames(), (std::set<std::string>{"A", "Harp", "Marimba"}));
}

TEST_F(Undo, WhatIsPutRightIsWrittenUnderTheSyncLock) {
    phone().faults().add(virtualphone::parseFault("afc/Write#2=status:18"));
    log().clear();
    ASSERT_THAT(vesk({"add", other("A.m4r", "sound a")}), ExitsWith(ExitCode::Success));
    bool isLocked = false;
    size_t locks = 0;
    for (const auto& entry : log().entries()) {
        constexpr uint64_t kExclusive = 6;
        if (entry.request == "Lock") {
            isLocked = entry.mode == kExclusive;
            locks += isLocked ? 1 : 0;
        } else if (entry.request == "Write" || entry.request == "Rename") {
            EXPECT_TRUE(isLocked) << entry.toJson();
        }
    }
    EXPECT_EQ(locks, 2U) << "the sync's and that of putting right";
}

TEST_F(Undo, WhatAnotherProgramHasLockedIsPutRightByTheNextJob) {
    const auto before = everything();
    phone().faults().add(virtualphone::parseFault("afc/Write#1=status:18"));
    phone().faults().add(virtualphone::parseFault("afc/Lock#3+=status:19"));
    const VeskResult result = vesk({"add", other("A.m4r", "sound a")});
    EXPECT_THAT(result, ExitsWith(ExitCode::SyncFailed));
    EXPECT_THAT(result.err, AllOf(HasSubstr("could not be put in order yet"),
                                  HasSubstr("is put in order first")));
    ASSERT_NE(everything(), before) << "the empty file";
    phone().faults().clear();
    EXPECT_THAT(vesk({"undo"}), ExitsWith(ExitCode::NothingKept));
    EXPECT_EQ(everything(), before);
}

TEST_F(Undo, AFailedJobSaysThatThePhoneHoldsWhatItHeldBefore) {
    const auto before = everything();
    phone().faults().add(virtualphone::parseFault("afc/Write#1=status:18"));
    const VeskResult result = vesk({"add", other("A.m4r", "sound a")});
    EXPECT_THAT(result, ExitsWith(ExitCode::SyncFailed));
    EXPECT_THAT(result.err,
                AllOf(HasSubstr("it holds what it held before"), Not(HasSubstr("deleted"))));
    EXPECT_EQ(everything(), before);
}

TEST_F(Undo, APulledOutPhoneIsNotAdvisedToBeCopiedByHand) {
    // The mp3 takes a placeholder: on this firmware something moves when it is removed.
    phone().faults().add(virtualphone::parseFault("afc/Write#1=unplug"));
    const VeskResult result = vesk({"add", other("A.m4r", "sound a")});
    EXPECT_THAT(result, ExitsWith(ExitCode::PhoneGone));
    EXPECT_THAT(result.err,
                AllOf(HasSubstr("is put in order first"), Not(HasSubstr("keep a copy"))));
}

TEST_F(Undo, APhonePulledOutInTheMiddleIsPutRightByTheNextJob) {
    const auto before = everything();
    phone().faults().add(virtualphone::parseFault("afc/Write#1=unplug"));
    ASSERT_THAT(vesk({"add", other("A.m4r", "sound a")}), ExitsWith(ExitCode::PhoneGone));
    replug();
    const VeskResult next = vesk({"remove", "Harp"});
    EXPECT_THAT(next, ExitsWith(ExitCode::Success));
    EXPECT_THAT(next.err, HasSubstr("broken off"));
    EXPECT_EQ(listedNames(), std::set<std::string>{"Marimba"});
    EXPECT_THAT(vesk({"undo"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(everything(), before);
}

} // namespace vesk::testing
