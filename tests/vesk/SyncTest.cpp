// Syncs that do not go as planned: failing, pulled out, not what was wanted.
#include "tests/vesk/VeskTest.h"

#include <gmock/gmock.h>

#include <csignal>

using testing::AnyOf;
using testing::StartsWith;

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

    void makeFiles(int count, size_t bytes) {
        for (int i = 0; i < count; ++i) {
            local("tone" + std::to_string(i) + ".m4r", std::string(bytes, 'x'));
        }
    }

    std::string oldCatalogue_;
};

} // namespace

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

TEST_F(Sync, OverALostConnectionRingtonesDoNotSeemGone) {
    putRingtones({{"KDAQ.m4r", "Marimba", "1"}, {"QJHE.m4r", "Harp", "2"}});
    local("Marimba.m4r", "sound of Marimba");
    local("Harp.m4r", "sound of Harp");
    ASSERT_THAT(vesk({"sync", localFolder()}),
                ExitsWith(ExitCode::Success)); // nothing is left to do
    const auto before = everything();
    bool metAFault = true;
    for (int n = 1; metAFault; ++n) {
        SCOPED_TRACE("request " + std::to_string(n));
        ASSERT_LT(n, 200) << "it never ended";
        log().clear();
        fault("afc#" + std::to_string(n) + "=drop");
        const VeskResult result = vesk({"sync", localFolder(), "--force"});
        phone().faults().clear();
        metAFault = !log().entries([](const auto& entry) { return !entry.fault.empty(); }).empty();
        EXPECT_THAT(result, AnyOf(ExitsWith(ExitCode::Success), ExitsWith(ExitCode::CannotOpen)));
        EXPECT_EQ(everything(), before);
    }
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
    const VeskResult result = vesk({"add", local("a.m4r")});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.err, HasSubstr("another program holds the phone's sync lock"));
    const auto attempts =
        log().entries([](const auto& entry) { return entry.request == "Lock" && entry.mode == 6; });
    EXPECT_EQ(attempts.size(), 7U);
}

TEST_F(Sync, ACatalogueThatCouldNotBeWrittenIsNoticed) {
    local("a.m4r", "the sound");
    // The first write is the file, the second the catalogue.
    fault("afc/Write#2=status:18");
    const VeskResult result = vesk({"add", localFolder() + "/a.m4r", "--no-backup"});
    EXPECT_THAT(result, ExitsWith(ExitCode::NotAsWanted));
    EXPECT_THAT(result.err,
                AllOf(HasSubstr("does not hold what it should"), HasSubstr("missing: \"a\"")));
}

TEST_F(Sync, WhatIsAdvisedForAHalfWrittenCatalogueIsNotRefusedThen) {
    const std::string file = local("a.m4r", "the sound");
    fault("afc/Write#2=status:18");
    const VeskResult result = vesk({"add", file, "--no-backup"});
    ASSERT_THAT(result, ExitsWith(ExitCode::NotAsWanted));
    EXPECT_THAT(result.err, AllOf(HasSubstr("\"vesk info\""), Not(HasSubstr("\"vesk list\"")),
                                  HasSubstr("\"vesk sync FOLDER --force\"")));
    ASSERT_THAT(vesk({"add", file}), ExitsWith(ExitCode::CatalogueUnreadable));
    EXPECT_THAT(vesk({"info"}), ExitsWith(ExitCode::Success));
    EXPECT_THAT(vesk({"sync", localFolder(), "--force"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(listedNames(), std::set<std::string>{"a"});
}

TEST_F(Sync, AHalfWrittenCatalogueIsRebuiltAsIsAdvised) {
    fault("afc/Write#2=status:18");
    const VeskResult result = vesk({"add", local("a.m4r", "the sound"), "--no-backup"});
    ASSERT_THAT(result, ExitsWith(ExitCode::NotAsWanted));
    EXPECT_THAT(result.err, HasSubstr("\"vesk rebuild\" lists the ringtones again"));
    EXPECT_THAT(vesk({"rebuild"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(listedNames().size(), 2U);
    EXPECT_EQ(ringtoneFolder().size(), 2U);
}

TEST_F(Sync, WhatIsAdvisedForTheOldCatalogueIsNotRefusedThen) {
    const std::string file = local("a.m4r", "the sound");
    // Two openings read the catalogue, then the lock file, the catalogue once more under the lock, the
    // ringtone, the catalogue to write.
    phone().faults().failAfc("Open", 10, /*nth=*/6);
    const VeskResult result = vesk({"add", file, "--no-backup"});
    ASSERT_THAT(result, ExitsWith(ExitCode::NotAsWanted));
    EXPECT_THAT(result.err, AllOf(HasSubstr("missing: \"a\""), HasSubstr("\"vesk list\""),
                                  HasSubstr("add what is missing")));
    EXPECT_EQ(listedNames(), std::set<std::string>{"Marimba"});
    EXPECT_THAT(vesk({"add", file}), ExitsWith(ExitCode::Success));
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
    const auto isPost = [](const auto& entry) { return entry.request == "PostNotification"; };
    ASSERT_TRUE(log().waitFor(
        [&](const auto& entry) { return isPost(entry) && entry.name.ends_with("syncDidFinish"); }));
    // Posts are not answered, so that nothing orders them among the requests to the file service.
    std::vector<std::string> posts;
    for (const auto& entry : log().entries(isPost)) {
        posts.push_back(entry.name.substr(entry.name.rfind('.') + 1));
    }
    EXPECT_THAT(posts, ElementsAre("syncWillStart", "syncLockRequest", "syncDidFinish"));

    constexpr uint64_t kExclusive = 6;
    constexpr uint64_t kUnlock = 12;
    std::vector<std::string> steps;
    std::set<uint64_t> connections;
    for (const auto& entry : log().entries()) {
        if (entry.request == "Lock") {
            steps.emplace_back(entry.mode == kExclusive ? "lock"
                               : entry.mode == kUnlock  ? "unlock"
                                                        : "another lock");
            connections.insert(entry.connection);
        } else if (entry.request == "Write") {
            steps.emplace_back("write");
            connections.insert(entry.connection);
        }
    }
    EXPECT_THAT(steps, ElementsAre("lock", "write", "write", "unlock"));
    EXPECT_EQ(connections.size(), 1U) << "the lock goes with the connection";
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
        VeskProcess({"-c", "exec 3>&2; { " + std::string(KRL_VESK) + " sync --unchecked " +
                               localFolder() + " 2>&1; echo code $? >&3; } | true"},
                    shell)
            .wait();
    EXPECT_THAT(result.err, HasSubstr("code 0"));
    EXPECT_THAT(listedNames(), UnorderedElementsAre("tone0", "tone1"));
}

} // namespace vesk::testing
