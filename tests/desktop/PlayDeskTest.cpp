// Sounds that go into files, and not through a sound card.
#include "desktop/bridge/PlayDesk.h"

#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <poll.h>

#include <filesystem>

using testing::ElementsAre;
using testing::VariantWith;

namespace krl::desktop {
namespace {

namespace fs = std::filesystem;

class PlayDesks : public ::testing::Test {
protected:
    std::string heardFile() const { return (folder_.path() / "heard").string(); }

    std::string intoFile() const { return "filesink location=" + heardFile(); }

    static Sound tick() { return {.path = fs::path(KRL_SAMPLES) / "tick.wav"}; }

    std::function<void(SoundNews)> noted() {
        return [this](const SoundNews& news) { told.push_back(news); };
    }

    /// Until something is told.
    void wait() {
        constexpr int kLongestMs = 60000;
        while (told.empty()) {
            pollfd readable{mailbox.descriptor(), POLLIN, 0};
            ASSERT_EQ(poll(&readable, 1, kLongestMs), 1);
            mailbox.deliver();
        }
    }

    Mailbox mailbox;
    std::vector<SoundNews> told;

private:
    const virtualphone::testing::TemporaryFolder folder_;
};

} // namespace

TEST_F(PlayDesks, SayThatASoundHasEnded) {
    PlayDesk desk(mailbox, intoFile());
    desk.play(tick(), noted());
    wait();
    EXPECT_THAT(told, ElementsAre(VariantWith<SoundEnded>(testing::_)));
    EXPECT_GT(fs::file_size(heardFile()), 0U);
}

TEST_F(PlayDesks, SayNothingOfWhatWasStopped) {
    PlayDesk desk(mailbox, "fakesink sync=true");
    desk.play({.path = "/no/such/file"}, [](const SoundNews&) { FAIL() << "it was stopped"; });
    desk.play({.path = "/no/such/file"}, noted());
    wait();
    EXPECT_THAT(told, ElementsAre(VariantWith<engine::Failure>(testing::_)));
}

TEST_F(PlayDesks, SayThatThereIsNothingToPlayOn) {
    PlayDesk desk(mailbox, "no_such_sink");
    desk.play(tick(), noted());
    wait();
    EXPECT_THAT(told, ElementsAre(VariantWith<NoSoundDevice>(testing::_)));
}

TEST_F(PlayDesks, SayThatAFileIsNoSound) {
    PlayDesk desk(mailbox, intoFile());
    desk.play({.path = fs::path(KRL_SAMPLES) / "README.md"}, noted());
    wait();
    EXPECT_THAT(told, ElementsAre(VariantWith<engine::Failure>(testing::_)));
}

} // namespace krl::desktop
