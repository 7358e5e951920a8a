#include "desktop/session/Mirroring.h"

#include "engine/values/Digest.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <poll.h>

namespace krl::desktop {
namespace {

constexpr char kUdid[] = "0123";

PastJob job(const char* what, bool isUndone = false) {
    return {.time = 7,
            .what = what,
            .changes = {},
            .isUndone = isUndone,
            .before = engine::digestOf(what)};
}

class Mirrorings : public ::testing::Test {
protected:
    Mirrorings() {
        bool isRead = false;
        preferences_.whenRead([&] { isRead = true; });
        deliverUntil([&] { return isRead; });
    }

    void deliverUntil(const std::function<bool()>& condition) {
        while (!condition()) {
            pollfd letters{.fd = mailbox_.descriptor(), .events = POLLIN, .revents = 0};
            poll(&letters, 1, -1);
            mailbox_.deliver();
        }
    }

    void choose(const std::vector<PastJob>& history = {}) {
        mirrors.choose(kUdid, "My Phone", folder_.path(), history);
    }

    bool isPaused() const { return mirrors.find(kUdid)->isPaused; }

private:
    Mailbox mailbox_;
    const virtualphone::testing::TemporaryFolder folder_;
    PreferenceDesk preferences_{mailbox_, std::nullopt};

protected:
    Mirroring mirrors{mailbox_, preferences_};
};

} // namespace

TEST_F(Mirrorings, AreDueOnceTheyAreChosen) {
    EXPECT_EQ(mirrors.find(kUdid), nullptr);
    choose();
    ASSERT_NE(mirrors.find(kUdid), nullptr);
    EXPECT_FALSE(mirrors.find(kUdid)->isAgreed);
    EXPECT_TRUE(mirrors.run(kUdid).isDue);
}

TEST_F(Mirrorings, ArePausedWhenTheLastJobWasTakenBack) {
    choose({job("sync")});
    mirrors.heed(kUdid, {job("mirror"), job("sync")});
    EXPECT_FALSE(isPaused());
    mirrors.heed(kUdid, {job("mirror", /*isUndone=*/true), job("sync")});
    EXPECT_TRUE(isPaused());
}

TEST_F(Mirrorings, ArePausedByARestoration) {
    choose();
    mirrors.heed(kUdid, {job("restore"), job("mirror")});
    EXPECT_TRUE(isPaused());
}

TEST_F(Mirrorings, ThatWereSwitchedOnAgainAreNotPausedByTheSameJob) {
    choose();
    const std::vector<PastJob> history{job("mirror", /*isUndone=*/true)};
    mirrors.heed(kUdid, history);
    mirrors.resume(kUdid, history);
    mirrors.heed(kUdid, history);
    EXPECT_FALSE(isPaused());
    mirrors.heed(kUdid, {job("restore"), job("mirror", true)});
    EXPECT_TRUE(isPaused());
}

TEST_F(Mirrorings, AreNotPausedByWhatWasTakenBackBeforeTheyWereChosen) {
    choose({job("sync", /*isUndone=*/true)});
    mirrors.heed(kUdid, {job("sync", true)});
    EXPECT_FALSE(isPaused());
}

TEST_F(Mirrorings, ForgetAQuestionWhenTheFolderIsAnotherMeanwhile) {
    choose();
    mirrors.ended(kUdid, MirrorPlan{{"A"}, {}});
    EXPECT_FALSE(mirrors.run(kUdid).question) << "it is due anyway";
    mirrors.agree(kUdid);
    EXPECT_FALSE(mirrors.find(kUdid)->isAgreed) << "nothing was asked";
}

TEST_F(Mirrorings, AreAgreedToByThePersonAndNotByARunThatHadNothingToDo) {
    choose();
    mirrors.ended(kUdid, MirrorDone{.change = {}, .held = {{"Harp", "h"}}});
    EXPECT_FALSE(mirrors.find(kUdid)->isAgreed);
    EXPECT_EQ(mirrors.find(kUdid)->held, (HeldRingtones{{"Harp", "h"}}));
}

TEST_F(Mirrorings, ThatWereEndedComeBackAsTheyWere) {
    choose();
    mirrors.ended(kUdid, MirrorDone{.change = {}, .held = {{"Harp", "h"}}});
    const Mirror before = *mirrors.find(kUdid);
    const auto takeBack = mirrors.stop(kUdid);
    EXPECT_EQ(mirrors.find(kUdid), nullptr);
    takeBack();
    ASSERT_NE(mirrors.find(kUdid), nullptr);
    EXPECT_EQ(*mirrors.find(kUdid), before);
}

} // namespace krl::desktop
