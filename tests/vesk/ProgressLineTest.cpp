#include "engine/values/Text.h"
#include "vesk/terminal/ProgressDisplay.h"

#include <gtest/gtest.h>

using namespace vesk;

namespace {

Progress halfWay() {
    Progress progress;
    progress.filesTotal = 4;
    progress.filesDone = 2;
    progress.bytesTotal = 40960;
    progress.bytesDone = 20480;
    progress.elapsedSeconds = 5;
    progress.current = "Glöckchen";
    return progress;
}

} // namespace

TEST(ProgressLine, ShowsFilesBarPercentBytesRateTimeLeftAndName) {
    EXPECT_EQ(progressLine(halfWay(), 100),
              "2/4  [###############...............]   50%  20.0 KiB of 40.0 KiB  4.0 KiB/s  "
              "0:05 left  Glöckchen");
}

TEST(ProgressLine, LeavesOutWhatThereIsNoRoomFor) {
    EXPECT_EQ(progressLine(halfWay(), 80),
              "2/4  [###########............]   50%  20.0 KiB of 40.0 KiB  4.0 KiB/s  0:05 left");
    EXPECT_EQ(progressLine(halfWay(), 60),
              "2/4  [#######.......]   50%  20.0 KiB of 40.0 KiB  0:05 left");
    EXPECT_EQ(progressLine(halfWay(), 40), "2/4  [########........]   50%  0:05 left");
    EXPECT_EQ(progressLine(halfWay(), 21), "2/4  [####....]   50%");
    EXPECT_EQ(progressLine(halfWay(), 10), "2/4   50%");
}

TEST(ProgressLine, IsNeverWiderThanTheTerminal) {
    Progress progress = halfWay();
    progress.current = "着信音 🎵 着信音 🎵 着信音 🎵 着信音 🎵";
    for (size_t columns = 0; columns <= 200; ++columns) {
        EXPECT_LE(displayWidth(progressLine(progress, columns)), columns) << columns;
    }
}

TEST(ProgressLine, MakesNamesSafe) {
    Progress progress = halfWay();
    progress.current = "\x1b[2J";
    const std::string line = progressLine(progress, 120);
    EXPECT_EQ(line.find('\x1b'), std::string::npos);
    EXPECT_NE(line.find("\\x1b[2J"), std::string::npos);
}
