#include "engine/sync/Progress.h"

#include <gtest/gtest.h>

using namespace krl::engine;

namespace {

Progress halfWay() {
    Progress progress;
    progress.filesTotal = 4;
    progress.filesDone = 2;
    progress.bytesTotal = 40960;
    progress.bytesDone = 20480;
    progress.elapsedSeconds = 5;
    return progress;
}

} // namespace

TEST(ProgressValue, TellsRateAndTimeLeftFromWhatHasArrived) {
    const Progress progress = halfWay();
    EXPECT_DOUBLE_EQ(progress.fraction(), 0.5);
    EXPECT_DOUBLE_EQ(progress.bytesPerSecond().value(), 4096);
    EXPECT_DOUBLE_EQ(progress.secondsLeft().value(), 5);
}

TEST(ProgressValue, KnowsNoRateBeforeTheFirstFileHasArrived) {
    Progress progress = halfWay();
    progress.bytesDone = 0;
    EXPECT_FALSE(progress.bytesPerSecond().has_value());
    EXPECT_FALSE(progress.secondsLeft().has_value());
}

TEST(ProgressValue, SurvivesFilesThatTurnOutLarger) {
    Progress progress = halfWay();
    progress.bytesDone = progress.bytesTotal * 2;
    EXPECT_DOUBLE_EQ(progress.fraction(), 1);
    EXPECT_FALSE(progress.secondsLeft().has_value());
}

TEST(ProgressValue, CountsFilesWhereThereAreNoBytes) {
    Progress progress;
    EXPECT_DOUBLE_EQ(progress.fraction(), 1);
    progress.filesTotal = 4;
    progress.filesDone = 1;
    EXPECT_DOUBLE_EQ(progress.fraction(), 0.25);
}
