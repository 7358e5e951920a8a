#include "desktop/cutting/Cut.h"

#include "desktop/cutting/Columns.h"
#include "desktop/cutting/CutWords.h"

#include <gmock/gmock.h>

using testing::ElementsAre;

namespace krl::desktop {
namespace {

Cut cutOf(double songSeconds, double start, double length) {
    audio::Wish wish;
    wish.startSeconds = start;
    wish.lengthSeconds = length;
    return {songSeconds, wish};
}

} // namespace

TEST(Cuts, FollowAWishSoFarAsTheSongGoes) {
    const Cut cut = cutOf(240, 62.5, 30);
    EXPECT_DOUBLE_EQ(cut.start(), 62.5);
    EXPECT_DOUBLE_EQ(cut.end(), 92.5);
    EXPECT_DOUBLE_EQ(cutOf(100, 90, 30).end(), 100);
    EXPECT_DOUBLE_EQ(cutOf(100, 200, 30).start(), 99);
    EXPECT_DOUBLE_EQ(cutOf(100, -30, 20).start(), 70);
    EXPECT_DOUBLE_EQ(cutOf(100, 0, 60).length(), 40);
    EXPECT_DOUBLE_EQ(cutOf(0.4, 5, 30).length(), 0.4);
}

TEST(Cuts, MoveOneSideAlone) {
    Cut cut = cutOf(240, 60, 30);
    cut.moveStart(62.504);
    EXPECT_DOUBLE_EQ(cut.start(), 62.5);
    EXPECT_DOUBLE_EQ(cut.end(), 90);
    cut.moveEnd(80.1);
    EXPECT_DOUBLE_EQ(cut.start(), 62.5);
    EXPECT_DOUBLE_EQ(cut.end(), 80.1);
    EXPECT_DOUBLE_EQ(cut.wish().startSeconds, 62.5);
    EXPECT_DOUBLE_EQ(cut.wish().lengthSeconds, cut.length());
}

TEST(Cuts, PullTheOtherSideAlongWhereTheyWouldBeTooLongOrTooShort) {
    Cut cut = cutOf(240, 60, 30);
    cut.moveStart(20);
    EXPECT_DOUBLE_EQ(cut.end(), 60);
    cut.moveStart(100);
    EXPECT_DOUBLE_EQ(cut.end(), 101);
    cut.moveEnd(200);
    EXPECT_DOUBLE_EQ(cut.start(), 160);
    cut.moveEnd(100);
    EXPECT_DOUBLE_EQ(cut.start(), 99);
}

TEST(Cuts, StayWithinTheSong) {
    Cut cut = cutOf(100, 60, 30);
    cut.moveStart(-5);
    EXPECT_DOUBLE_EQ(cut.start(), 0);
    cut.moveEnd(500);
    EXPECT_DOUBLE_EQ(cut.end(), 100);
    EXPECT_DOUBLE_EQ(cut.start(), 60);
    cut.move(500);
    EXPECT_DOUBLE_EQ(cut.start(), 60);
    cut.move(-1);
    EXPECT_DOUBLE_EQ(cut.start(), 0);
    EXPECT_DOUBLE_EQ(cut.end(), 40);
    cut.moveEnd(0);
    EXPECT_DOUBLE_EQ(cut.end(), 1);
    EXPECT_DOUBLE_EQ(cut.start(), 0);
}

TEST(Cuts, HaveLastSeconds) {
    Cut cut = cutOf(100, 10, 30);
    cut.setFadeIn(2);
    cut.setFadeOut(3);
    const audio::Wish last = cut.lastSeconds(5);
    EXPECT_DOUBLE_EQ(last.startSeconds, 35);
    EXPECT_DOUBLE_EQ(last.lengthSeconds, 5);
    EXPECT_EQ(last.fadeInSeconds, 0);
    EXPECT_EQ(last.fadeOutSeconds, 3);
    EXPECT_DOUBLE_EQ(cut.lastSeconds(60).startSeconds, 10);
    EXPECT_EQ(cut.lastSeconds(60).fadeInSeconds, 2);
}

TEST(Cuts, BoundTheirFades) {
    Cut cut = cutOf(100, 0, 30);
    cut.setFadeIn(-1);
    cut.setFadeOut(11);
    EXPECT_EQ(cut.wish().fadeInSeconds, 0);
    EXPECT_EQ(cut.wish().fadeOutSeconds, 10);
}

TEST(CutWords, SayTimesAsAPersonWritesThem) {
    EXPECT_EQ(momentText(0), "0:00.0");
    EXPECT_EQ(momentText(62.5), "1:02.5");
    EXPECT_EQ(momentText(59.999), "1:00.0");
    EXPECT_EQ(momentText(62.53), "1:02.53");
    EXPECT_EQ(momentText(3662.05), "1:01:02.05");
    const Cut cut = cutOf(240, 62.5, 30);
    EXPECT_EQ(startText(cut), "Start 1:02.5");
    EXPECT_EQ(endText(cut), "End 1:32.5");
    EXPECT_EQ(cutText(cut), "30.0 seconds · about 591.8 KiB");
}

TEST(Views, KeepWhatIsZoomedAtWhereItIs) {
    View view(200);
    EXPECT_TRUE(view.isWhole());
    EXPECT_DOUBLE_EQ(view.place(50, 1000), 250);
    view.zoom(2, 50);
    EXPECT_DOUBLE_EQ(view.seconds(), 100);
    EXPECT_DOUBLE_EQ(view.place(50, 1000), 250);
    EXPECT_DOUBLE_EQ(view.timeAt(250, 1000), 50);
    view.zoom(1000, 50);
    EXPECT_DOUBLE_EQ(view.seconds(), 0.5);
    view.zoom(0.0001, 50);
    EXPECT_TRUE(view.isWhole());
    EXPECT_DOUBLE_EQ(view.start(), 0);
}

TEST(Views, ScrollWithinTheSongAndToATime) {
    View view(200);
    view.zoom(10, 0);
    view.scroll(-5);
    EXPECT_DOUBLE_EQ(view.start(), 0);
    view.show(100);
    EXPECT_DOUBLE_EQ(view.start(), 81);
    view.show(90);
    EXPECT_DOUBLE_EQ(view.start(), 81) << "in sight";
    view.show(50);
    EXPECT_DOUBLE_EQ(view.start(), 49);
    view.scroll(1000);
    EXPECT_DOUBLE_EQ(view.start(), 180);
}

TEST(WaveformColumns, HaveTheExtremesOfWhatTheyCover) {
    audio::Peaks peaks{{{-100, 200}, {-300, 50}, {0, 0}, {10, 16383}}, 4, 1};
    std::vector<Column> columns(2);
    fillColumns(peaks, View(4), 1, columns);
    EXPECT_THAT(columns,
                ElementsAre(Column{-300 / 32767.0F, 200 / 32767.0F}, Column{0, 16383 / 32767.0F}));
    columns.resize(8);
    fillColumns(peaks, View(4), loudestOf(peaks), columns);
    EXPECT_FLOAT_EQ(columns[6].high, 1);
    EXPECT_EQ(columns[6], columns[7]) << "both are within one peak";
    EXPECT_EQ(columns[4], (Column{0, 0}));
}

TEST(WaveformColumns, AreOfWhatIsInSight) {
    audio::Peaks peaks;
    for (int i = 0; i < 1000; ++i) {
        peaks.peaks.push_back({static_cast<int16_t>(-i), static_cast<int16_t>(2 * i)});
    }
    peaks.seconds = 10;
    peaks.secondsPerPeak = 0.01;
    View view(10);
    view.zoom(10, 0);
    view.scroll(5);
    std::vector<Column> columns(10);
    fillColumns(peaks, view, 1, columns);
    EXPECT_EQ(columns[0], (Column{-509 / 32767.0F, 1018 / 32767.0F}));
    EXPECT_EQ(columns[9], (Column{-599 / 32767.0F, 1198 / 32767.0F}));
}

TEST(WaveformColumns, OfSilenceAreFlat) {
    const audio::Peaks peaks{std::vector<audio::Peak>(3), 3, 1};
    std::vector<Column> columns(5);
    fillColumns(peaks, View(3), loudestOf(peaks), columns);
    EXPECT_THAT(columns, testing::Each(Column{}));
}

} // namespace krl::desktop
