// What Ctrl-C says at which time, and how it ends.
#include "vesk/terminal/Interrupt.h"
#include "vesk/terminal/Output.h"
#include "vesk/terminal/SyncDisplay.h"

#include <csignal>
#include <gtest/gtest.h>

using namespace vesk;
using testing::ExitedWithCode;

namespace {

class Interruption : public testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    static void pressCtrlC() { std::raise(SIGINT); }

    static void watchASync() {
        Output output({});
        const SyncDisplay display(output);
    }
};

} // namespace

TEST_F(Interruption, BeforeAnythingIsDoneItSaysThatNothingWas) {
    EXPECT_EXIT(
        {
            installInterruptHandlers();
            pressCtrlC();
        },
        ExitedWithCode(130), "nothing was changed on the phone");
}

TEST_F(Interruption, BetweenASyncAndItsReportItDoesNotSayThatNothingWasChanged) {
    EXPECT_EXIT(
        {
            installInterruptHandlers();
            watchASync();
            pressCtrlC();
        },
        ExitedWithCode(130), "left before it was said what has become of the phone's ringtones");
}

TEST_F(Interruption, BetweenSyncsOfAWatchItEndsTheWatch) {
    EXPECT_EXIT(
        {
            installInterruptHandlers();
            const InterruptScope watching(OnInterrupt::EndWatching);
            watchASync();
            pressCtrlC();
        },
        ExitedWithCode(0), "^$");
}
