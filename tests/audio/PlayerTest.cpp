// The program that plays, as whoever starts it sees it.
#include "audio/playing/Player.h"

#include "engine/errors/Failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

using namespace krl::audio;
using krl::engine::Failure;
using krl::engine::FailureKind;
using testing::HasSubstr;

namespace {

std::optional<Failure> failureWith(const std::filesystem::path& program) {
    try {
        Player("song.m4r", 0, "fakesink", program).next();
    } catch (const Failure& failure) {
        return failure;
    }
    return std::nullopt;
}

} // namespace

TEST(Players, SayThatTheirProgramIsMissing) {
    for (const char* program : {"", "/nowhere/vesk-play", "/etc/passwd"}) {
        const auto failure = failureWith(program);
        ASSERT_TRUE(failure) << program;
        EXPECT_EQ(failure->kind(), FailureKind::Unexpected);
        EXPECT_THAT(failure->advice(), HasSubstr("vesk-play"));
    }
}

TEST(Players, SurviveAProgramThatEnds) {
    const auto failure = failureWith("/bin/true");
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->kind(), FailureKind::UnreadableFile);
    EXPECT_THAT(failure->what(), HasSubstr("song.m4r"));
}

TEST(PlayStates, AreTheSameOnTheOtherSide) {
    const PlayState state{PlayState::Phase::NotPlayed, 1.5, 30, "it is \"no sound\"\xff"};
    const auto decoded = decodedPlayState(encoded(state));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->phase, state.phase);
    EXPECT_EQ(decoded->positionSeconds, 1.5);
    EXPECT_EQ(decoded->lengthSeconds, 30);
    EXPECT_EQ(decoded->problem, "it is \"no sound\"\xEF\xBF\xBD");
}

TEST(PlayStates, AreNotReadFromAnythingElse) {
    for (const char* text : {"", "{}", "[1]", R"({"phase":9,"position":0,"length":0,"problem":""})",
                             R"({"phase":0,"position":"0","length":0,"problem":""})"}) {
        EXPECT_FALSE(decodedPlayState(text)) << text;
    }
}
