// What goes to a phone of a song: the file itself, or a ringtone that is made of it.
#include "audio/songs/RingtoneMaker.h"

#include <gtest/gtest.h>

#include <cstdint>

using namespace krl::audio;
using krl::engine::digestOf;
using krl::engine::Failure;
using krl::engine::FailureKind;

namespace {

constexpr int kFirmware112 = 1012;
constexpr int kFirmware113 = 1013;
constexpr uint64_t kTooLarge = uint64_t{1} << 31U;

Song song(Verdict verdict, uint64_t size = 1000) {
    const auto content = digestOf("a song");
    return {.path = "/songs/harp.mp3",
            .asIs = {.name = "harp",
                     .path = "/songs/harp.mp3",
                     .type = "mp3",
                     .size = size,
                     .source = content},
            .content = content,
            .judgement = {verdict, {}},
            .facts = {}};
}

bool isPrepared(const Song& song, int firmware, const Recipe& recipe = {}) {
    return RingtoneMaker(recipe).wanted(song, firmware).isPrepared;
}

FailureKind failureOf(const Song& song, const Recipe& recipe = {}) {
    try {
        RingtoneMaker(recipe).wanted(song, kFirmware113);
    } catch (const Failure& failure) {
        return failure.kind();
    }
    return FailureKind::Unexpected;
}

} // namespace

TEST(RingtoneMaker, MakesWhatThePhonesFirmwareDoesNotPlay) {
    EXPECT_FALSE(isPrepared(song(Verdict::Plays), kFirmware113));
    EXPECT_FALSE(isPrepared(song(Verdict::PlaysOnOlderFirmware), kFirmware112));
    EXPECT_TRUE(isPrepared(song(Verdict::PlaysOnOlderFirmware), kFirmware113));
    EXPECT_TRUE(isPrepared(song(Verdict::WantsPreparing), kFirmware112));
    EXPECT_TRUE(isPrepared(song(Verdict::Plays), kFirmware112, {.preparesAll = true}));
}

TEST(RingtoneMaker, AsIsRefusesWhatThePhonesFirmwareDoesNotPlay) {
    EXPECT_EQ(failureOf(song(Verdict::PlaysOnOlderFirmware), {.treatment = Treatment::AsIs}),
              FailureKind::UnsupportedType);
}

TEST(RingtoneMaker, RefusesAFileTooLargeForAPhoneUnlessARingtoneIsMadeOfIt) {
    EXPECT_EQ(failureOf(song(Verdict::Plays, kTooLarge)), FailureKind::FileTooLarge);
    EXPECT_FALSE(isPrepared(song(Verdict::Plays, kTooLarge - 1), kFirmware113));
    EXPECT_TRUE(isPrepared(song(Verdict::WantsPreparing, kTooLarge), kFirmware113));
    EXPECT_TRUE(isPrepared(song(Verdict::Plays, kTooLarge), kFirmware113, {.preparesAll = true}));
}

TEST(RingtoneMaker, TheSameSongByAnotherWishIsAnotherRingtone) {
    const auto sourceBy = [](double seconds) {
        Recipe recipe;
        recipe.wish.lengthSeconds = seconds;
        return RingtoneMaker(recipe)
            .wanted(song(Verdict::WantsPreparing), kFirmware113)
            .ringtone.source;
    };
    EXPECT_EQ(sourceBy(30), sourceBy(30));
    EXPECT_NE(sourceBy(30), sourceBy(20));
    EXPECT_NE(sourceBy(30), song(Verdict::WantsPreparing).content);
}
