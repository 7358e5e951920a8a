#include "audio/preparing/Wish.h"
#include "audio/preparing/TimeText.h"

#include <gtest/gtest.h>

using namespace krl::audio;

TEST(WishAsText, ComesBackAsItWas) {
    Wish wish;
    wish.startSeconds = -30;
    wish.lengthSeconds = 12.25;
    wish.fadeInSeconds = 0.1;
    wish.automatic = true;
    wish.level = false;
    wish.title = "Söng";
    const auto back = decodedWish(encoded(wish));
    ASSERT_TRUE(back);
    EXPECT_EQ(encoded(*back), encoded(wish));
    EXPECT_EQ(back->startSeconds, -30);
    EXPECT_EQ(back->lengthSeconds, 12.25);
    EXPECT_TRUE(back->automatic);
    EXPECT_FALSE(back->level);
    EXPECT_EQ(back->title, "Söng");
}

TEST(WishAsText, WhatIsNoneIsNone) {
    for (const char* text : {"", "{", "[]", "7", "facts", "{\"start\": 1}"}) {
        EXPECT_FALSE(decodedWish(text)) << text;
        EXPECT_FALSE(decodedAnswer(text)) << text;
    }
    std::string wrong = encoded(Wish{});
    wrong.replace(wrong.find("true"), 4, "\"no\"");
    EXPECT_FALSE(decodedWish(wrong));
}

TEST(AnswerAsText, ComesBackAsItWas) {
    PrepareAnswer answer;
    answer.prepared.loudness = -14.5;
    answer.prepared.damagedParts = 3;
    answer.problem = "it is \"damaged\"";
    answer.advice = "Take another.";
    const auto back = decodedAnswer(encoded(answer));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->prepared.loudness, -14.5);
    EXPECT_EQ(back->prepared.damagedParts, 3);
    EXPECT_EQ(back->problem, answer.problem);
    EXPECT_EQ(back->advice, answer.advice);
}

TEST(TimeText, IsReadAsAPersonWritesIt) {
    EXPECT_EQ(secondsIn("0"), 0);
    EXPECT_EQ(secondsIn("62.5"), 62.5);
    EXPECT_EQ(secondsIn("1:02.5"), 62.5);
    EXPECT_EQ(secondsIn("1:00:02"), 3602);
    EXPECT_EQ(secondsIn("-30"), -30);
    EXPECT_EQ(secondsIn("-1:30"), -90);
    EXPECT_EQ(secondsIn("90:00"), 5400);
}

TEST(TimeText, AnythingElseIsNone) {
    for (const char* text : {"", "-", ":", "1:", ":1", "1:60", "1:2:3:4", "1.5:00", "abc", "1e3",
                             "nan", "inf", "--1", "+1", " 1", "1 ", "0x10", "1,5"}) {
        EXPECT_FALSE(secondsIn(text)) << text;
    }
}
