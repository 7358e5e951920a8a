// Programs that do what vesk must not: each shows in its column.
#include "torture/Trial.h"

#include "tests/support/TemporaryFolder.h"
#include "torture/disk/Shim.h"

#include <gmock/gmock.h>

#include <fstream>
#include <string>
#include <vector>

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace torture::testing {
namespace {

namespace fs = std::filesystem;

class Judged : public ::testing::Test {
protected:
    /// Judges a shell script in the place of vesk, in which $RINGTONES is the phone's folder.
    Counts judge(const std::string& script, const std::string& action = kFullOnce) {
        const fs::path program = temporary_.path() / "vesk";
        std::ofstream(program) << "#!/bin/sh\n"
                               << "RINGTONES=" << temporary_.path() << "/phone/iTunes_Control\n"
                               << script << "\n";
        fs::permissions(program, fs::perms::owner_all);
        Bench bench(temporary_.path(), "1.1.4", program);
        const Course course{.occasions = {}, .descriptors = 4};
        said_.clear();
        const std::vector<Misfortune> misfortunes{{"disk", 1, action}};
        return Trial(bench, bench.jobs().front(), course, misfortunes, said_).run();
    }

    const std::vector<std::string>& said() const { return said_; }

private:
    virtualphone::testing::TemporaryFolder temporary_;
    std::vector<std::string> said_;
};

} // namespace

TEST_F(Judged, SuccessThatIsOnlyClaimedIsFalseAndTheNewRingtonesAreLost) {
    const Counts counts = judge("exit 0");
    EXPECT_EQ(counts.falseSuccess, 1U);
    EXPECT_EQ(counts.lost, 2U);
    EXPECT_EQ(counts.notFinished, 1U);
    EXPECT_EQ(counts.notUndone, 0U) << "nothing was done";
    EXPECT_FALSE(counts.isClean());
    EXPECT_THAT(said(), Not(IsEmpty()));
}

TEST_F(Judged, AFailureThatIsSaidIsNoFalseSuccess) {
    EXPECT_EQ(judge("exit 30").falseSuccess, 0U);
}

TEST_F(Judged, RingtonesThatAreGoneAreLostAndNotUndone) {
    const Counts counts = judge("rm -rf $RINGTONES/Ringtones; exit 30");
    EXPECT_EQ(counts.lost, 7U);
    EXPECT_EQ(counts.notUndone, 1U);
}

TEST_F(Judged, AnotherSoundIsOverwritten) {
    EXPECT_EQ(judge("echo noise > $RINGTONES/Ringtones/KDAQ.m4r; exit 30").overwritten, 1U);
}

TEST_F(Judged, AFileInNoCatalogueIsUnlisted) {
    EXPECT_EQ(judge("echo sound > $RINGTONES/Ringtones/ZZZZ.m4r; exit 30").unlisted, 1U);
}

TEST_F(Judged, AnUnreadableCatalogueIsNotFinished) {
    EXPECT_EQ(judge("echo noise > $RINGTONES/iTunes/Ringtones.plist; exit 30").notFinished, 1U);
}

TEST_F(Judged, FilesOutsideOfTheRingtonesAreForeign) {
    EXPECT_EQ(judge("rm -r $RINGTONES/../DCIM; exit 30").foreign, 1U);
}

TEST_F(Judged, ASignalIsACrash) {
    EXPECT_EQ(judge("kill -SEGV $$").crashes, 3U) << "the job, the plain run and undo";
}

TEST_F(Judged, BeingKilledIsNoneWhileThatIsTheMisfortune) {
    EXPECT_EQ(judge("kill -KILL $$", kKilled).crashes, 2U) << "the plain run and undo";
}

TEST_F(Judged, DescriptorsBeyondTheUsualOnesAreLeaked) {
    const std::string report = "printf '1\\na\\nb\\nc\\nd\\n%s' \"$MORE\" > $TORTURE_DISK_REPORT; "
                               "exit 30";
    EXPECT_EQ(judge("unset LD_PRELOAD; MORE=; " + report).leaked, 0U);
    EXPECT_EQ(judge("unset LD_PRELOAD; MORE=e; " + report).leaked, 3U);
    EXPECT_THAT(said().front(), HasSubstr("descriptors"));
}

} // namespace torture::testing
