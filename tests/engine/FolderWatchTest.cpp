// Changes of real folders, with a timer that the test turns.
#include "engine/files/FolderWatch.h"
#include "confined/OpenFile.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <utility>

using krl::engine::FolderWatch;
using krl::engine::QuietTimer;

namespace {

namespace fs = std::filesystem;

bool isReadable(int descriptor) {
    pollfd asked{.fd = descriptor, .events = POLLIN, .revents = 0};
    return poll(&asked, 1, 0) == 1;
}

class TurnedTimer : public QuietTimer {
public:
    int descriptor() const override { return event_.get(); }

    void start() override {
        takeEnd();
        ++starts;
    }

    bool takeEnd() override {
        eventfd_t count = 0;
        return eventfd_read(event_.get(), &count) == 0;
    }

    void runOut() { eventfd_write(event_.get(), 1); }

    int starts = 0;

private:
    krl::confined::OpenFile event_{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
};

void write(const fs::path& file, const std::string& text = "sound") {
    std::ofstream(file) << text;
}

class Watched : public ::testing::Test {
protected:
    Watched() { fs::create_directories(folder()); }

    fs::path outside() const { return place_.path() / "somewhere"; }

    fs::path folder() const { return outside() / "ringtones"; }

    void begin(const fs::path& path, bool recursive = false) {
        auto timer = std::make_unique<TurnedTimer>();
        timer_ = timer.get();
        watch_ = std::make_unique<FolderWatch>(path, recursive, std::move(timer));
    }

    void begin() { begin(folder()); }

    void beginRecursively() { begin(folder(), true); }

    /// Whether what was done until now made the quiet time begin, or begin anew.
    bool wasNoticed() {
        const int before = timer_->starts;
        EXPECT_FALSE(watch_->changed()) << "before the quiet time was over";
        EXPECT_FALSE(isReadable(watch_->descriptor())) << "there is nothing left to do";
        return timer_->starts > before;
    }

    bool wasNoticed(const std::function<void()>& action) {
        EXPECT_FALSE(wasNoticed()) << "something had happened before";
        action();
        return wasNoticed();
    }

    FolderWatch& watch() { return *watch_; }

    TurnedTimer& timer() { return *timer_; }

private:
    virtualphone::testing::TemporaryFolder place_;
    std::unique_ptr<FolderWatch> watch_;
    TurnedTimer* timer_ = nullptr;
};

} // namespace

TEST_F(Watched, NothingToDoWhileNothingHappens) {
    begin();
    EXPECT_FALSE(isReadable(watch().descriptor()));
    EXPECT_FALSE(watch().changed());
    EXPECT_EQ(timer().starts, 0);
}

TEST_F(Watched, AChangeIsSaidOnceAfterTheQuietTime) {
    begin();
    write(folder() / "a.m4r");
    EXPECT_TRUE(isReadable(watch().descriptor()));
    EXPECT_FALSE(watch().changed());
    EXPECT_FALSE(isReadable(watch().descriptor()));
    timer().runOut();
    EXPECT_TRUE(isReadable(watch().descriptor()));
    EXPECT_TRUE(watch().changed());
    EXPECT_FALSE(isReadable(watch().descriptor()));
    EXPECT_FALSE(watch().changed());
}

TEST_F(Watched, AFurtherChangeBeginsTheQuietTimeAnew) {
    begin();
    write(folder() / "a.m4r");
    EXPECT_TRUE(wasNoticed());
    timer().runOut();
    write(folder() / "b.m4r");
    EXPECT_FALSE(watch().changed());
    timer().runOut();
    EXPECT_TRUE(watch().changed());
}

TEST_F(Watched, FilesThatAreWrittenComeGoAndMove) {
    write(folder() / "old.m4r");
    write(outside() / "other.m4r");
    begin();
    EXPECT_TRUE(wasNoticed([&] { write(folder() / "new.m4r"); }));
    EXPECT_TRUE(wasNoticed([&] { write(folder() / "old.m4r", "another sound"); }));
    EXPECT_TRUE(wasNoticed([&] { fs::rename(folder() / "old.m4r", folder() / "older.m4r"); }));
    EXPECT_TRUE(wasNoticed([&] { fs::rename(outside() / "other.m4r", folder() / "other.m4r"); }));
    EXPECT_TRUE(wasNoticed([&] { fs::rename(folder() / "other.m4r", outside() / "other.m4r"); }));
    EXPECT_TRUE(wasNoticed([&] { fs::remove(folder() / "new.m4r"); }));
    EXPECT_TRUE(
        wasNoticed([&] { fs::create_hard_link(outside() / "other.m4r", folder() / "hard.m4r"); }));
    EXPECT_TRUE(
        wasNoticed([&] { fs::create_symlink(outside() / "other.m4r", folder() / "soft.m4r"); }));
}

TEST_F(Watched, AFileIsNewsWhenItIsClosed) {
    begin();
    std::ofstream file(folder() / "a.m4r");
    file << "half" << std::flush;
    EXPECT_FALSE(wasNoticed());
    file.close();
    EXPECT_TRUE(wasNoticed());
}

TEST_F(Watched, ReadingIsNoChange) {
    write(folder() / "a.m4r");
    begin();
    EXPECT_FALSE(wasNoticed([&] {
        std::ifstream file(folder() / "a.m4r");
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "sound");
        EXPECT_EQ(std::distance(fs::directory_iterator(folder()), fs::directory_iterator()), 1);
    }));
    EXPECT_FALSE(wasNoticed([&] {
        fs::permissions(folder() / "a.m4r", fs::perms::owner_read);
        fs::last_write_time(folder() / "a.m4r", fs::file_time_type::clock::now());
    }));
}

TEST_F(Watched, HiddenFilesDoNotCountUntilTheyAreRenamed) {
    begin();
    EXPECT_FALSE(wasNoticed([&] { write(folder() / ".a.part"); }));
    EXPECT_TRUE(wasNoticed([&] { fs::rename(folder() / ".a.part", folder() / "a.m4r"); }));
}

TEST_F(Watched, FoldersInItCountWhenTheyAreAskedFor) {
    fs::create_directory(folder() / "deeper");
    begin();
    EXPECT_FALSE(wasNoticed([&] { fs::create_directory(folder() / "new"); }));
    EXPECT_FALSE(wasNoticed([&] { write(folder() / "deeper/a.m4r"); }));
    EXPECT_FALSE(wasNoticed([&] { fs::remove_all(folder() / "deeper"); }));
}

TEST_F(Watched, RecursivelyFoldersThatAreThereThatComeAndThatGo) {
    fs::create_directories(folder() / "one/two");
    fs::create_directories(outside() / "three/four");
    beginRecursively();
    EXPECT_TRUE(wasNoticed([&] { write(folder() / "one/two/a.m4r"); }));
    EXPECT_TRUE(wasNoticed([&] { fs::create_directory(folder() / "one/new"); }));
    EXPECT_TRUE(wasNoticed([&] { write(folder() / "one/new/a.m4r"); }));
    EXPECT_TRUE(wasNoticed([&] { fs::rename(outside() / "three", folder() / "one/three"); }));
    EXPECT_TRUE(wasNoticed([&] { write(folder() / "one/three/four/a.m4r"); }));
    EXPECT_TRUE(wasNoticed([&] { fs::rename(folder() / "one/three", outside() / "three"); }));
    EXPECT_FALSE(wasNoticed([&] { write(outside() / "three/four/b.m4r"); }));
    EXPECT_TRUE(wasNoticed([&] { fs::remove_all(folder() / "one"); }));
}

TEST_F(Watched, RecursivelyNeitherHiddenFoldersNorLinksToOthers) {
    fs::create_directories(folder() / ".hidden");
    fs::create_directories(outside() / "other");
    fs::create_directory_symlink(outside() / "other", folder() / "link");
    fs::create_directory_symlink(folder(), folder() / "loop");
    beginRecursively();
    EXPECT_FALSE(wasNoticed([&] { write(folder() / ".hidden/a.m4r"); }));
    EXPECT_FALSE(wasNoticed([&] { write(outside() / "other/a.m4r"); }));
}

TEST_F(Watched, AFolderThatIsRemovedAndMadeAgainIsWatchedFurther) {
    begin();
    EXPECT_TRUE(wasNoticed([&] { fs::remove_all(folder()); }));
    EXPECT_FALSE(wasNoticed([&] { write(outside() / "other.m4r"); }));
    EXPECT_TRUE(wasNoticed([&] { fs::create_directory(folder()); }));
    EXPECT_TRUE(wasNoticed([&] { write(folder() / "a.m4r"); }));
    EXPECT_TRUE(wasNoticed([&] {
        fs::remove_all(folder());
        fs::create_directory(folder());
    }));
    EXPECT_TRUE(wasNoticed([&] { write(folder() / "a.m4r"); }));
}

TEST_F(Watched, AFolderThatIsReplacedWhileAProgramStandsInIt) {
    begin();
    const krl::confined::OpenFile held(open(folder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    EXPECT_TRUE(wasNoticed([&] { fs::remove_all(folder()); }));
    EXPECT_TRUE(wasNoticed([&] { fs::create_directory(folder()); }));
    EXPECT_TRUE(wasNoticed([&] { write(folder() / "a.m4r"); }));
}

TEST_F(Watched, AFolderThatIsMovedAwayAndAnotherInItsPlace) {
    fs::create_directory(outside() / "next");
    begin();
    EXPECT_TRUE(wasNoticed([&] { fs::rename(folder(), outside() / "old"); }));
    EXPECT_FALSE(wasNoticed([&] { write(outside() / "old/a.m4r"); }));
    EXPECT_TRUE(wasNoticed([&] { fs::rename(outside() / "next", folder()); }));
    EXPECT_TRUE(wasNoticed([&] { write(folder() / "a.m4r"); }));
}

TEST_F(Watched, AFolderAboveIsMovedAwayAndComesBack) {
    begin();
    const fs::path elsewhere = outside().string() + " else";
    EXPECT_TRUE(wasNoticed([&] { fs::rename(outside(), elsewhere); }));
    EXPECT_FALSE(wasNoticed([&] { write(elsewhere / "ringtones/a.m4r"); }));
    EXPECT_FALSE(wasNoticed([&] { fs::create_directory(outside()); })) << "not yet the folder";
    EXPECT_TRUE(wasNoticed([&] { fs::create_directory(folder()); }));
    EXPECT_TRUE(wasNoticed([&] { write(folder() / "a.m4r"); }));
}

TEST_F(Watched, AFolderThatIsMissingAtFirst) {
    const fs::path deep = outside() / "not/yet/there";
    begin(deep);
    EXPECT_FALSE(wasNoticed([&] { fs::create_directory(outside() / "not"); }));
    EXPECT_FALSE(wasNoticed([&] { fs::create_directory(outside() / "not/yet"); }));
    EXPECT_TRUE(wasNoticed([&] { fs::create_directory(deep); }));
    EXPECT_TRUE(wasNoticed([&] { write(deep / "a.m4r"); }));
}

TEST_F(Watched, ALinkThatLeadsElsewhereNow) {
    fs::create_directory(outside() / "other");
    const fs::path link = outside() / "link";
    fs::create_directory_symlink(folder(), link);
    begin(link);
    EXPECT_TRUE(wasNoticed([&] { write(folder() / "a.m4r"); }));
    EXPECT_TRUE(wasNoticed([&] {
        fs::create_directory_symlink(outside() / "other", outside() / "new link");
        fs::rename(outside() / "new link", link);
    }));
    EXPECT_FALSE(wasNoticed([&] { write(folder() / "b.m4r"); }));
    EXPECT_TRUE(wasNoticed([&] { write(outside() / "other/b.m4r"); }));
    EXPECT_TRUE(wasNoticed([&] { fs::rename(outside() / "other", outside() / "gone"); }));
    EXPECT_TRUE(wasNoticed([&] { fs::create_directory(outside() / "other"); }));
    EXPECT_TRUE(wasNoticed([&] { write(outside() / "other/b.m4r"); }));
}

TEST_F(Watched, ASlashAtTheEndAndDotsInThePath) {
    begin((outside() / "../somewhere/./ringtones").string() + "/");
    EXPECT_TRUE(wasNoticed([&] { write(folder() / "a.m4r"); }));
    EXPECT_TRUE(wasNoticed([&] { fs::remove_all(folder()); }));
    EXPECT_TRUE(wasNoticed([&] { fs::create_directory(folder()); }));
}

TEST_F(Watched, MoreNewsThanTheQueueHolds) {
    size_t most = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> most;
    if (most == 0 || most > 100'000) {
        GTEST_SKIP() << "the queue holds " << most;
    }
    beginRecursively();
    write(folder() / "0");
    write(folder() / "1");
    for (size_t i = 0; i <= most; ++i) { // the same one twice in a row would count as once
        const fs::path file = folder() / std::to_string(i % 2);
        const krl::confined::OpenFile written(open(file.c_str(), O_WRONLY | O_CLOEXEC));
    }
    fs::create_directory(folder() / "unheard of");
    EXPECT_TRUE(wasNoticed());
    EXPECT_TRUE(wasNoticed([&] { write(folder() / "unheard of/a.m4r"); }));
}

TEST(QuietTimer, RunsOutOnceAfterEachStart) {
    const auto timer = krl::engine::newQuietTimer(std::chrono::milliseconds{1});
    EXPECT_FALSE(isReadable(timer->descriptor()));
    for (int round = 0; round < 2; ++round) {
        timer->start();
        pollfd asked{.fd = timer->descriptor(), .events = POLLIN, .revents = 0};
        EXPECT_EQ(poll(&asked, 1, -1), 1);
        EXPECT_TRUE(timer->takeEnd());
        EXPECT_FALSE(timer->takeEnd());
        EXPECT_FALSE(isReadable(timer->descriptor()));
    }
}

TEST(QuietTimer, StartedAnewIsNotOver) {
    const auto timer = krl::engine::newQuietTimer(std::chrono::hours{1});
    timer->start();
    timer->start();
    EXPECT_FALSE(timer->takeEnd());
}
