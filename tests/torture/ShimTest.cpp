#include "torture/disk/Shim.h"

#include "tests/support/TemporaryFolder.h"
#include "torture/PhoneContents.h"
#include "torture/Program.h"

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

using testing::Contains;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

namespace torture::testing {
namespace {

namespace fs = std::filesystem;

class DiskShim : public ::testing::Test {
protected:
    /// Runs the probe from the beginning.
    Ended replaceFile(const std::string& calls, const std::string& action, int call) {
        putFiles(folder(), {{"document", "old document"}, {"other", "other"}});
        fs::remove_all(folder().string() + ".kept");
        Program program({KRL_REPLACE_FILE_PROBE, folder(), calls},
                        {{"LD_PRELOAD", KRL_TORTURE_DISK},
                         {kDiskFolder, folder()},
                         {kDiskReport, report()},
                         {kDiskAction, action},
                         {kDiskCall, std::to_string(call)}});
        return program.wait();
    }

    /// What the document may hold after a misfortune at any call. "none" is no document.
    std::set<std::string> outcomes(const std::string& calls, const std::string& action) {
        std::set<std::string> outcomes;
        for (int call = 1; replaceFile(calls, action, call).signal == SIGKILL; ++call) {
            const Files files = filesOf(folder());
            const auto document = files.find("document");
            outcomes.insert(document == files.end() ? "none" : document->second);
        }
        return outcomes;
    }

    fs::path folder() const { return temporary_.path() / "folder"; }

    fs::path report() const { return temporary_.path() / "report"; }

private:
    virtualphone::testing::TemporaryFolder temporary_;
};

} // namespace

TEST_F(DiskShim, CountsTheCallsThatChangeTheFolder) {
    EXPECT_EQ(replaceFile("bn", "", 0).code, 0);
    std::ifstream file(report());
    unsigned calls = 0;
    EXPECT_TRUE(file >> calls);
    // Opened, written twice, synced, renamed, its folder synced, the other one removed.
    EXPECT_EQ(calls, 7U);
    EXPECT_EQ(filesOf(folder()), (Files{{"document", "new document"}}));
}

TEST_F(DiskShim, WhatIsSyncedInOrderIsOldOrNewAfterAPowerCut) {
    for (const char* action : {kKilled, kPowerCut, kPowerCutBytes}) {
        SCOPED_TRACE(action);
        EXPECT_THAT(outcomes("bn", action), UnorderedElementsAre("old document", "new document"));
    }
}

TEST_F(DiskShim, BytesThatAreNotSyncedAreLostUnderTheirNewName) {
    EXPECT_THAT(outcomes("n", kPowerCutBytes), Contains(""));
    EXPECT_THAT(outcomes("n", kPowerCut), Contains(""));
    EXPECT_THAT(outcomes("n", kKilled), UnorderedElementsAre("old document", "new document"));
}

TEST_F(DiskShim, NamesThatAreNotSyncedAreTheOldOnes) {
    EXPECT_THAT(outcomes("b", kPowerCut), ElementsAre("old document"));
}

TEST_F(DiskShim, ANameThatWasTakenAwayIsBackAfterAPowerCut) {
    EXPECT_EQ(replaceFile("bn", kPowerCut, 7).signal, SIGKILL);
    EXPECT_EQ(filesOf(folder()).at("other"), "other");
}

TEST_F(DiskShim, AFullDiskRefusesWhatNeedsRoom) {
    EXPECT_EQ(replaceFile("bn", kFull, 2).code, 1);
    EXPECT_EQ(filesOf(folder()).at("document"), "old document");
    EXPECT_EQ(filesOf(folder()).at("document.new"), "");
    EXPECT_EQ(replaceFile("bn", kFull, 4).code, 0) << "nothing needs room any more";
    EXPECT_EQ(replaceFile("bn", kFailing, 4).code, 1);
}

} // namespace torture::testing
