#include "engine/sync/SyncReports.h"

#include <gmock/gmock.h>

#include <vector>

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

namespace krl::engine {
namespace {

const SyncStep kUploadBegins{.mode = 5, .status = 1, .name = "Harp"};
const SyncStep kRemovalsBegin{.mode = 3, .status = 0, .name = {}};

/// Pauses for as many questions as it is told.
class Listener : public SyncListener {
public:
    std::vector<SyncStage> stages;
    int pauses_ = 0;
    int questionsToCancel = -1; ///< before it cancels; never when it is less than nothing

    void stage(SyncStage stage) override { stages.push_back(stage); }

    void fileBegins(const Progress& /*progress*/) override {}

    void fileMoves(const Progress& /*progress*/) override {}

    void fileEnds(const Progress& /*progress*/) override {}

    void goesOnWithoutLock() override {}

    void leavesBehind(size_t /*files*/) override {}

    void wasPutRight() override {}

    void ended() override {}

    bool cancels() noexcept override { return questionsToCancel >= 0 && questionsToCancel-- == 0; }

    bool pauses() noexcept override { return pauses_ > 0 && pauses_-- > 0; }
};

class SyncReportsTest : public testing::Test {
protected:
    Plan plan;
    Listener listener;
    int questionsUntilGone = 1000;
    SyncReports reports{plan, listener, [this] { return questionsUntilGone-- <= 0; }};
};

} // namespace

TEST_F(SyncReportsTest, StandStillBeforeAFileWhileTheListenerPauses) {
    listener.pauses_ = 3;
    EXPECT_TRUE(reports.answer(kUploadBegins, false));
    EXPECT_THAT(listener.stages, ElementsAre(SyncStage::Paused));
    EXPECT_EQ(listener.pauses_, 0);
}

TEST_F(SyncReportsTest, StandStillBeforeTheRemovalsToo) {
    listener.pauses_ = 2;
    EXPECT_TRUE(reports.answer(kRemovalsBegin, false));
    EXPECT_THAT(listener.stages, ElementsAre(SyncStage::Paused, SyncStage::Removing));
}

TEST_F(SyncReportsTest, DoNotStandStillOnceTheRemovalsHaveBegun) {
    EXPECT_TRUE(reports.answer(kRemovalsBegin, false));
    listener.pauses_ = 1;
    EXPECT_TRUE(reports.answer(kRemovalsBegin, false));
    EXPECT_THAT(listener.stages, Not(Contains(SyncStage::Paused)));
}

TEST_F(SyncReportsTest, AreCancelledWhileTheyStandStill) {
    listener.pauses_ = 1000;
    listener.questionsToCancel = 1;
    EXPECT_FALSE(reports.answer(kUploadBegins, false));
    EXPECT_TRUE(reports.isCancelled());
}

TEST_F(SyncReportsTest, CancelledWhileTheyStandStillBeforeTheRemovalsHaveNotReachedThem) {
    listener.pauses_ = 1000;
    listener.questionsToCancel = 1;
    EXPECT_FALSE(reports.answer(kRemovalsBegin, false));
    EXPECT_TRUE(reports.isCancelled());
    EXPECT_FALSE(reports.reachedRemovals());
    EXPECT_THAT(listener.stages, ElementsAre(SyncStage::Paused));
}

TEST_F(SyncReportsTest, AreNotCancelledAnyMoreOnceTheRemovalsHaveBegun) {
    EXPECT_TRUE(reports.answer(kRemovalsBegin, false));
    listener.questionsToCancel = 0;
    reports.answer(kRemovalsBegin, false);
    EXPECT_FALSE(reports.isCancelled());
    EXPECT_TRUE(reports.reachedRemovals());
}

TEST_F(SyncReportsTest, GoOnAtOnceWhenThePhoneWasPulledOut) {
    listener.pauses_ = 1000;
    questionsUntilGone = 2;
    EXPECT_TRUE(reports.answer(kUploadBegins, false)) << "the phone is asked, and how it ends told";
    EXPECT_FALSE(reports.isCancelled());
    EXPECT_THAT(listener.stages, ElementsAre(SyncStage::Paused));
    EXPECT_TRUE(reports.answer(kUploadBegins, false));
    EXPECT_THAT(listener.stages, ElementsAre(SyncStage::Paused)) << "once is enough";
}

} // namespace krl::engine
