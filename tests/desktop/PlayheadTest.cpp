#include "desktop/cutting/Playhead.h"

#include <gtest/gtest.h>

#include <initializer_list>

namespace krl::desktop {
namespace {

constexpr int64_t kSecond = 1'000'000;

} // namespace

TEST(Playheads, GoOnFromWhereTheyWereTold) {
    Playhead playhead;
    EXPECT_FALSE(playhead.at(0));
    playhead.tell(10, 7 * kSecond);
    EXPECT_DOUBLE_EQ(*playhead.at(7 * kSecond), 10);
    EXPECT_DOUBLE_EQ(*playhead.at(7 * kSecond + kSecond / 4), 10.25);
    playhead.stop();
    EXPECT_FALSE(playhead.at(7 * kSecond));
}

TEST(Playheads, StandStillWhenNothingIsToldForAWhile) {
    Playhead playhead;
    playhead.tell(10, 0);
    EXPECT_DOUBLE_EQ(*playhead.at(60 * kSecond), 10.5);
    playhead.tell(70, 60 * kSecond);
    EXPECT_DOUBLE_EQ(*playhead.at(60 * kSecond), 70);
}

TEST(Playheads, GoToAnotherPlaceAtOnce) {
    Playhead playhead;
    playhead.tell(30, 0);
    playhead.tell(2, kSecond / 10);
    EXPECT_DOUBLE_EQ(*playhead.at(kSecond / 10), 2);
    playhead.tell(20, kSecond / 5);
    EXPECT_DOUBLE_EQ(*playhead.at(kSecond / 5), 20);
}

TEST(Playheads, DoNotGoBackFromOnePictureToTheNextWhenTheNewsAreLate) {
    constexpr int64_t kPicture = kSecond / 60;
    Playhead playhead;
    int64_t moment = 0;
    double last = 0;
    for (const double late : {0.0, 0.1, 0.02, 0.29, 0.0, 0.05, 0.25, 0.25, 0.25, 0.01}) {
        const double heard = static_cast<double>(moment) / kSecond;
        playhead.tell(heard - late, moment);
        for (int i = 0; i < 6; ++i, moment += kPicture) {
            EXPECT_GE(*playhead.at(moment), last) << "late by " << late;
            EXPECT_LE(*playhead.at(moment), static_cast<double>(moment) / kSecond + 1e-9);
            last = *playhead.at(moment);
        }
    }
}

TEST(Playheads, FollowNewsThatAreLaterForGood) {
    Playhead playhead;
    for (int64_t moment = 0; moment < 20 * kSecond; moment += kSecond / 10) {
        const double late = moment == 0 ? 0 : 0.2;
        playhead.tell(static_cast<double>(moment) / kSecond - late, moment);
    }
    EXPECT_NEAR(*playhead.at(20 * kSecond), 19.8, 0.01);
}

} // namespace krl::desktop
