#include "desktop/bridge/PreferenceDesk.h"
#include "desktop/bridge/PreferenceFile.h"
#include "engine/errors/Failure.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <poll.h>

#include <fstream>
#include <iterator>
#include <memory>

namespace krl::desktop {
namespace {

namespace fs = std::filesystem;

const Preferences kChosen{
    .levels = false,
    .seconds = 12,
    .keptSyncs = 9,
    .mirrors = {{"0123", {.folder = "/a\xff", .phone = "My Phone"}},
                {"4567",
                 {.folder = "/b",
                  .phone = "b",
                  .isAgreed = true,
                  .isPaused = true,
                  .passedOver = "7 ab",
                  .held = {{"Harp \xff", "h"}},
                  .wishes = {audio::Wish{}, audio::Wish{.lengthSeconds = 7, .level = false}}}}}};

Preferences withSeconds(int seconds) {
    Preferences preferences;
    preferences.seconds = seconds;
    return preferences;
}

class PreferenceFiles : public ::testing::Test {
protected:
    const virtualphone::testing::TemporaryFolder folder;
    const fs::path file = preferenceFile(folder.path());

    void put(const std::string& text) const { std::ofstream(file, std::ios::binary) << text; }

    std::string text() const {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
};

class PreferenceDesks : public PreferenceFiles {
protected:
    Mailbox mailbox;
    std::vector<PreferenceDesk::Problem> problems;
    std::unique_ptr<PreferenceDesk> desk;

    void open(const std::optional<fs::path>& place) {
        desk.reset();
        desk = std::make_unique<PreferenceDesk>(mailbox, place);
        desk->onProblem = [this](PreferenceDesk::Problem problem) { problems.push_back(problem); };
    }

    void open() { open(folder.path()); }

    void read() {
        bool isRead = false;
        desk->whenRead([&] { isRead = true; });
        deliverUntil([&] { return isRead; });
    }

    void deliverUntil(const std::function<bool()>& condition) {
        while (!condition()) {
            pollfd letters{.fd = mailbox.descriptor(), .events = POLLIN, .revents = 0};
            poll(&letters, 1, -1);
            mailbox.deliver();
        }
    }
};

} // namespace

TEST_F(PreferenceFiles, BringBackWhatWasKept) {
    EXPECT_EQ(readPreferences(file), Preferences{});
    writePreferences(file, kChosen);
    EXPECT_EQ(readPreferences(file), kChosen);
    writePreferences(file, {});
    EXPECT_EQ(readPreferences(file), Preferences{});
}

TEST_F(PreferenceFiles, OfWhichSomethingWasLeftOutAreAsUsualInThat) {
    put(R"({"version":1,"seconds":40})");
    EXPECT_EQ(readPreferences(file), withSeconds(40));
}

TEST_F(PreferenceFiles, OfWhichAPartIsMissingAreNotBelieved) {
    writePreferences(file, kChosen);
    const std::string whole = text();
    for (size_t length = 0; length + 2 < whole.size(); ++length) {
        put(whole.substr(0, length));
        EXPECT_THROW(readPreferences(file), engine::Failure) << length;
    }
}

TEST_F(PreferenceFiles, ThatAreMadeToHarmAreNotBelieved) {
    for (const std::string& text :
         {std::string(1000000, '['), std::string("{}"), std::string("null"), std::string("[1]"),
          std::string(R"({"version":2})"), std::string(R"({"version":1,"level":1})"),
          std::string(R"({"version":1,"level":"no"})"), std::string(R"({"version":1,"seconds":4})"),
          std::string(R"({"version":1,"seconds":41})"),
          std::string(R"({"version":1,"seconds":-5})"),
          std::string(R"({"version":1,"seconds":4294967316})"),
          std::string(R"({"version":1,"seconds":30.5})"),
          std::string(R"({"version":1,"seconds":"30"})"),
          std::string(R"({"version":1,"keptSyncs":0})"),
          std::string(R"({"version":1,"keptSyncs":101})"),
          std::string(R"({"version":1,"keptSyncs":null})")}) {
        put(text);
        EXPECT_THROW(readPreferences(file), engine::Failure) << text.substr(0, 100);
    }
}

TEST_F(PreferenceFiles, WithFoldersThatCannotBeAreNotBelieved) {
    const auto withMirror = [this](const std::string& path, const std::string& rest) {
        put(R"({"version":1,"mirrors":[{"udid":"1","phone":"","folder":")" + path +
            R"(","agreed":true,"paused":false,"passedOver":"",)" + rest + "}]}");
        return readPreferences(file).mirrors.at("1").folder;
    };
    const std::string rest = R"("held":[],"wishes":[])";
    EXPECT_EQ(withMirror("/a", rest), "/a");
    EXPECT_THROW(withMirror("a", rest), engine::Failure);
    EXPECT_THROW(withMirror("/a\\u0000b", rest), engine::Failure);
    for (const char* wrong :
         {R"("held":[])", R"("held":{},"wishes":[])", R"("held":[7],"wishes":[])",
          R"("held":[{"name":"a"}],"wishes":[])", R"("held":[],"wishes":[{}])",
          R"("held":[],"wishes":[{"start":0,"length":99,"fadeIn":0,"fadeOut":1,"level":true}])"}) {
        EXPECT_THROW(withMirror("/a", wrong), engine::Failure) << wrong;
    }
}

TEST_F(PreferenceFiles, ThatAreNoFilesAreNotWaitedFor) {
    fs::create_directories(file);
    EXPECT_THROW(readPreferences(file), engine::Failure);
}

TEST_F(PreferenceDesks, HoldFromOneToTheNext) {
    open();
    EXPECT_EQ(desk->keptSyncs(), std::nullopt);
    read();
    EXPECT_EQ(desk->keptSyncs(), Preferences{}.keptSyncs);
    EXPECT_EQ(desk->now(), Preferences{});
    // Faster than a disk: the last counts.
    for (int seconds = 5; seconds <= 40; ++seconds) {
        desk->change(withSeconds(seconds));
    }
    desk->change(kChosen);
    EXPECT_EQ(desk->now(), kChosen);
    open();
    read();
    EXPECT_EQ(desk->now(), kChosen);
    EXPECT_THAT(problems, testing::IsEmpty());
}

TEST_F(PreferenceDesks, ThatAreDamagedAreSaidAndUsualUntilTheNextChange) {
    put("{");
    open();
    read();
    EXPECT_EQ(desk->now(), Preferences{});
    EXPECT_THAT(problems, testing::ElementsAre(PreferenceDesk::Problem::NotRead));
    EXPECT_EQ(text(), "{");
    EXPECT_EQ(desk->keptSyncs(), std::nullopt);
    desk->change(kChosen);
    EXPECT_EQ(desk->keptSyncs(), kChosen.keptSyncs);
    desk.reset();
    EXPECT_EQ(readPreferences(file), kChosen);
}

TEST_F(PreferenceDesks, ThatCannotBeKeptAreSaidAndHold) {
    open(file / "below a file");
    put("no folder");
    read();
    desk->change(kChosen);
    deliverUntil([this] { return !problems.empty(); });
    EXPECT_THAT(problems, testing::ElementsAre(PreferenceDesk::Problem::NotKept));
    EXPECT_EQ(desk->now(), kChosen);
}

TEST_F(PreferenceDesks, WithoutAPlaceHoldAsLongAsTheWindow) {
    open(std::nullopt);
    read();
    desk->change(kChosen);
    EXPECT_EQ(desk->now(), kChosen);
    EXPECT_THAT(problems, testing::IsEmpty());
}

TEST_F(PreferenceDesks, AreNotChangedBeforeTheyWereRead) {
    writePreferences(file, kChosen);
    open();
    desk->change(withSeconds(5));
    read();
    EXPECT_EQ(desk->now(), kChosen);
}

} // namespace krl::desktop
