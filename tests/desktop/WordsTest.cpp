#include "desktop/session/Words.h"

#include <gtest/gtest.h>

namespace krl::desktop {

TEST(Words, SumTheEditsUp) {
    EXPECT_EQ(sumText({}), "");
    EXPECT_EQ(sumText({.added = 2, .addedBytes = 2048, .removed = 1, .underWay = 3}),
              "2 new (2.0 KiB), 1 to be removed, 3 being prepared");
    EXPECT_EQ(sumText({.renamed = 2}), "2 to be renamed");
}

TEST(Words, SayWhatASyncHasDone) {
    EXPECT_EQ(doneText({.added = 1}), "1 ringtone added");
    EXPECT_EQ(doneText({.added = 2, .removed = 1}), "2 ringtones added, 1 removed");
    EXPECT_EQ(doneText({.removed = 1, .renamed = 2}), "1 removed, 2 renamed");
    EXPECT_EQ(doneText({}), "Everything is on the phone already");
}

TEST(Words, NameAFewOfManyChanges) {
    engine::RingtoneChanges changes;
    EXPECT_EQ(changesText(changes), "No ringtone changed");
    changes.added = {"A"};
    EXPECT_EQ(changesText(changes), "Added “A”");
    changes.added = {"A", "B", "C", "D", "E"};
    changes.removed = {"F"};
    EXPECT_EQ(changesText(changes), "Added “A”, “B”, “C” and 2 more. Removed “F”");
}

TEST(Words, ShowHowFarASyncIs) {
    EXPECT_EQ(progressText({.stage = WorkProgress::Stage::Sending,
                            .filesDone = 1,
                            .filesTotal = 3,
                            .bytesDone = 1024,
                            .bytesTotal = 4096,
                            .secondsLeft = 90}),
              "Ringtone 2 of 3 · 1.0 KiB of 4.0 KiB · 2 minutes left");
}

TEST(Words, TellWhatAFailureMeansAndKeepTheEnginesWords) {
    const Explanation explanation =
        explained({engine::FailureKind::PhoneGone, "\"X\" was pulled out: 1234"}, "X");
    EXPECT_EQ(explanation.title, "“X” was unplugged");
    EXPECT_EQ(explanation.details, "\"X\" was pulled out: 1234.");
}

TEST(Words, NameNoCommandWhereTheWindowHasAButton) {
    const std::string advice =
        adviceFor({"pair-record", false, "not paired", "Pair it: vesk pair --udid 1"});
    EXPECT_EQ(advice.find("vesk"), std::string::npos);
}

} // namespace krl::desktop
