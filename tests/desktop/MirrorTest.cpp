#include "desktop/bridge/Mirror.h"

#include <gtest/gtest.h>

namespace krl::desktop {
namespace {

const Loss kHarp{.name = "Harp", .identity = "h"};
const Loss kHorn{.name = "Horn", .identity = "o"};

MirrorPlan plan(std::set<Loss> losses, std::vector<std::string> added = {}) {
    return {std::move(added), std::move(losses)};
}

MirrorTerms agreedWith(HeldRingtones held) {
    return {.isAgreed = true, .held = std::move(held)};
}

} // namespace

TEST(MirrorQuestions, AreAskedTheFirstTimeWhateverIsDone) {
    EXPECT_TRUE(mustAsk(plan({}, {"A"}), {}));
    EXPECT_FALSE(mustAsk(plan({}, {"A"}), agreedWith({})));
}

TEST(MirrorQuestions, AreNotAskedAboutWhatTheFolderHasLost) {
    EXPECT_FALSE(mustAsk(plan({kHarp}), agreedWith({{"Harp", "h"}, {"Horn", "o"}})));
}

TEST(MirrorQuestions, AreAskedAboutWhatTheFolderNeverHad) {
    EXPECT_TRUE(mustAsk(plan({kHarp}), agreedWith({{"Horn", "o"}})));
    EXPECT_TRUE(mustAsk(plan({kHarp}), agreedWith({{"Harp", "another one"}, {"Horn", "o"}})));
    EXPECT_TRUE(mustAsk(plan({kHarp}), agreedWith({})));
}

TEST(MirrorQuestions, AreAskedWhenNothingOfTheLastRunWouldStay) {
    EXPECT_TRUE(mustAsk(plan({kHarp}), agreedWith({{"Harp", "h"}})));
    EXPECT_TRUE(mustAsk({.added = {"A"}, .losses = {kHarp, kHorn}},
                        agreedWith({{"Harp", "h"}, {"Horn", "o"}})));
}

TEST(MirrorQuestions, AreNotAskedWhenOtherSoundsComeInTheirPlaces) {
    const Loss replaced{.name = "Harp", .identity = "h", .isReplaced = true};
    EXPECT_FALSE(mustAsk(plan({replaced}), agreedWith({{"Harp", "h"}})));
    EXPECT_TRUE(mustAsk(plan({replaced}), agreedWith({{"Horn", "o"}})));
}

TEST(MirrorQuestions, ThatWereAnsweredAreAskedAgainOnlyAboutMore) {
    MirrorTerms terms = agreedWith({});
    terms.agreed = {kHarp};
    EXPECT_FALSE(mustAsk(plan({kHarp}), terms));
    EXPECT_TRUE(mustAsk(plan({kHarp, kHorn}), terms));
    EXPECT_TRUE(mustAsk(plan({{.name = "Harp", .identity = "another one"}}), terms));
    terms.held = {{"Harp", "h"}};
    EXPECT_FALSE(mustAsk(plan({kHarp}), terms));
}

TEST(MirrorStates, BeginNothingUnlessAllIsInOrder) {
    const MirrorFacts due{.isDue = true};
    EXPECT_EQ(mirrorState(due), MirrorState::Due);
    const auto with = [&](auto member, bool value) {
        MirrorFacts facts = due;
        facts.*member = value;
        return mirrorState(facts);
    };
    EXPECT_EQ(with(&MirrorFacts::isAtWork, true), MirrorState::AtWork);
    EXPECT_EQ(with(&MirrorFacts::isPaused, true), MirrorState::Paused);
    EXPECT_EQ(with(&MirrorFacts::isKnownFirmware, false), MirrorState::Unsuitable);
    EXPECT_EQ(with(&MirrorFacts::hasBrokenJob, true), MirrorState::Interrupted);
    EXPECT_EQ(with(&MirrorFacts::isListReadable, false), MirrorState::Unreadable);
    EXPECT_EQ(with(&MirrorFacts::hasEdits, true), MirrorState::WaitsForEdits);
    EXPECT_EQ(with(&MirrorFacts::hasQuestion, true), MirrorState::Asks);
    EXPECT_EQ(with(&MirrorFacts::hasFailed, true), MirrorState::Failed);
}

TEST(MirrorStates, AreNotAboutEditsWhenThereIsNothingToDo) {
    EXPECT_EQ(mirrorState({.hasEdits = true}), MirrorState::UpToDate);
    EXPECT_EQ(mirrorState({.hasEdits = true, .hasQuestion = true}), MirrorState::WaitsForEdits);
}

} // namespace krl::desktop
