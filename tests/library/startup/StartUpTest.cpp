// Start-up with the platform's answers scripted, as far as a machine cannot be made to give them.

#include "library/startup/KRTVeskInternal.h"

#include "library/system/FrameworkLoader.h"
#include "library/system/HomeFolder.h"
#include "library/system/Programs.h"

#include "tests/support/VirtualPhoneFixture.h"

#include <KRLVesk/KRLVesk.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using virtualphone::testing::TemporaryFolder;

std::vector<std::string> loadedFrameworks;
bool loads = false;

bool scriptedLoad(const std::string& path) {
    loadedFrameworks.push_back(path);
    return loads;
}

int connectNothing(am_device* /*device*/) {
    return 1;
}

class StartUp : public testing::Test {
protected:
    StartUp() {
        setenv("HOME", home_.path().c_str(), 1);
        krl::system::setFrameworkLoader(scriptedLoad);
        loadedFrameworks.clear();
        seen_ = {};
        KRTVeskOpen = 0;
        KRTErrorDomain = CFSTR("com.korvane.vesk");
        AMDeviceConnect = connectNothing;
        real_ = krl::system::setPrograms({isThere, run});
    }

    ~StartUp() override {
        krl::system::setPrograms(real_);
        krl::system::setFrameworkLoader(nullptr);
        AMDeviceConnect = nullptr;
    }

    fs::path home() const { return home_.path(); }

    fs::path plugins() const { return home() / "Library/iTunes/iTunes Plug-ins"; }

    fs::path bundle() const { return plugins() / "HarlixSupport.bundle"; }

    /// What was asked of the programs, and what they found.
    struct Seen {
        bool unpackerIsThere = true;
        int exitStatus = 0;
        fs::path bundle;
        std::vector<std::string> asked;
        std::vector<std::vector<std::string>> ran;
        bool oldBundleWasThere = false;
        bool folderWasThere = false;
    };

    static Seen seen_;

    void putOldPlugin() const {
        fs::create_directories(bundle());
        std::ofstream(bundle() / "old") << "old";
    }

private:
    static bool isThere(const std::string& path) {
        seen_.asked.push_back(path);
        return seen_.unpackerIsThere;
    }

    static int run(const std::string& path, const std::vector<std::string>& arguments) {
        std::vector<std::string>& line = seen_.ran.emplace_back(arguments);
        line.insert(line.begin(), path);
        seen_.oldBundleWasThere = fs::exists(seen_.bundle);
        seen_.folderWasThere = fs::is_directory(seen_.bundle.parent_path());
        return seen_.exitStatus;
    }

    TemporaryFolder home_;
    krl::system::Programs real_{};
};

StartUp::Seen StartUp::seen_;

TEST_F(StartUp, LoadsTheDeviceFrameworkByItsPath) {
    KRTVeskInitLight();
    KRTVeskInit();
    EXPECT_THAT(loadedFrameworks,
                ElementsAre("/System/Library/PrivateFrameworks/MobileDevice.framework",
                            "/System/Library/PrivateFrameworks/MobileDevice.framework"));
}

struct FlagCase {
    bool loads;
    bool hasFunctions;
    signed char before;
    signed char after; ///< of both kinds of start-up
};

const FlagCase kFlagCases[] = {
    {true, true, 0, 1},   {false, true, 0, 1},  {true, true, 1, 1},  {false, true, 1, 1},
    {true, false, 0, 0},  {false, false, 0, 0}, {true, false, 1, 1}, // an earlier 1 stays
    {false, false, 1, 0},
};

TEST_F(StartUp, FlagGoesByTheFunctionsAndIsClearedOnlyWhenLoadingFailsToo) {
    for (const FlagCase& row : kFlagCases) {
        SCOPED_TRACE(testing::Message() << "loads " << row.loads << ", functions "
                                        << row.hasFunctions << ", before " << int{row.before});
        loads = row.loads;
        AMDeviceConnect = row.hasFunctions ? connectNothing : nullptr;
        KRTVeskOpen = row.before;
        EXPECT_EQ(KRTVeskInitLight(), row.after == 1);
        EXPECT_EQ(KRTVeskOpen, row.after);
        KRTVeskOpen = row.before;
        EXPECT_EQ(KRTVeskInit(), row.hasFunctions ? 2 : 0);
        EXPECT_EQ(KRTVeskOpen, row.after);
        EXPECT_EQ(KRTVeskIsValid(), row.after);
    }
}

TEST_F(StartUp, WithoutAnUnpackerNothingIsRemovedOrRunAndTheFlagStays) {
    seen_.unpackerIsThere = false;
    putOldPlugin();
    EXPECT_EQ(KRTVeskInit(), 0);
    EXPECT_EQ(KRTVeskOpen, 1);
    EXPECT_TRUE(CFEqual(KRTErrorDomain, CFSTR("com.korvane.vesk.unzipNotFound")));
    EXPECT_THAT(seen_.asked, ElementsAre("/usr/bin/unzip"));
    EXPECT_THAT(seen_.ran, IsEmpty());
    EXPECT_TRUE(fs::exists(bundle() / "old"));
}

TEST_F(StartUp, RunsTheUnpackerWithExactlyFiveArgumentsInOrder) {
    EXPECT_EQ(KRTVeskInit(), 2);
    EXPECT_THAT(seen_.ran,
                ElementsAre(ElementsAre("/usr/bin/unzip", "-qq", "-d", plugins().string(), "-o",
                                        KRL_OWN_RESOURCES "/HarlixSupport.zip")));
}

TEST_F(StartUp, TheOldPluginIsGoneAndTheFoldersAreThereWhenTheUnpackerRuns) {
    seen_.bundle = bundle();
    putOldPlugin();
    EXPECT_EQ(KRTVeskInit(), 2);
    EXPECT_FALSE(seen_.oldBundleWasThere);
    fs::remove_all(home() / "Library");
    EXPECT_EQ(KRTVeskInit(), 2);
    EXPECT_TRUE(seen_.folderWasThere);
}

TEST_F(StartUp, AnUnpackerThatFailsHasItsOwnDomainAndLeavesNoPlugin) {
    for (const int status : {1, 9, 50, 128 + 9, -1}) {
        seen_.exitStatus = status;
        putOldPlugin();
        KRTErrorDomain = CFSTR("com.korvane.vesk");
        EXPECT_EQ(KRTVeskInit(), 0) << status;
        EXPECT_EQ(KRTVeskOpen, 1);
        EXPECT_TRUE(CFEqual(KRTErrorDomain, CFSTR("com.korvane.vesk.unzipFailed")));
        EXPECT_FALSE(fs::exists(bundle()));
    }
}

TEST_F(StartUp, TheDomainOfAFailureStaysAfterALaterSuccess) {
    seen_.exitStatus = 9;
    EXPECT_EQ(KRTVeskInit(), 0);
    seen_.exitStatus = 0;
    EXPECT_EQ(KRTVeskInit(), 2);
    EXPECT_TRUE(CFEqual(KRTErrorDomain, CFSTR("com.korvane.vesk.unzipFailed")));
}

TEST_F(StartUp, NoFailureGoesToTheErrorRecord) {
    KRTErrorClear();
    seen_.unpackerIsThere = false;
    KRTVeskInit();
    seen_ = {};
    seen_.exitStatus = 1;
    KRTVeskInit();
    AMDeviceConnect = nullptr;
    KRTVeskInit();
    EXPECT_EQ(KRTErrorGetFile(), nullptr);
    EXPECT_FALSE(KRTError());
}

TEST_F(StartUp, AnInstallationSetsTheFlagByItself) {
    EXPECT_EQ(_install_support_plugin(), 2);
    EXPECT_EQ(KRTVeskOpen, 1);
}

TEST_F(StartUp, UnpackingElsewhereMakesTheHomeFoldersAllTheSame) {
    const TemporaryFolder elsewhere;
    fs::create_directories(elsewhere.path() / "HarlixSupport.bundle/deep");
    putOldPlugin();
    EXPECT_EQ(perform_unzip("/some.zip", elsewhere.path().c_str()), 1);
    EXPECT_FALSE(fs::exists(elsewhere.path() / "HarlixSupport.bundle"));
    EXPECT_TRUE(fs::exists(bundle() / "old"));
    fs::remove_all(home() / "Library");
    EXPECT_EQ(perform_unzip("/some.zip", elsewhere.path().c_str()), 1);
    EXPECT_TRUE(fs::is_directory(plugins()));
    EXPECT_THAT(seen_.ran.back(), ElementsAre("/usr/bin/unzip", "-qq", "-d",
                                              elsewhere.path().string(), "-o", "/some.zip"));
}

TEST(HomeFolder, IsWhatHomeSays) {
    setenv("HOME", "/some where/", 1);
    EXPECT_EQ(krl::system::homeFolder(), "/some where");
}

TEST(HomeFolder, IsThatOfTheUserDatabaseWithoutHome) {
    const std::string known = getpwuid(getuid())->pw_dir;
    unsetenv("HOME");
    EXPECT_EQ(krl::system::homeFolder(), known);
    setenv("HOME", "", 1);
    EXPECT_EQ(krl::system::homeFolder(), known);
}

TEST(Programs, HandArgumentsOnAsTheyAreAndTellTheExitStatus) {
    const auto run = krl::system::programs().run;
    EXPECT_EQ(run("/bin/sh", {"-c", "exit 7"}), 7);
    EXPECT_EQ(run("/bin/sh", {"-c", R"([ "$1" = 'a b; $(x) "*' ])", "sh", "a b; $(x) \"*"}), 0);
    EXPECT_EQ(run("/bin/sh", {"-c", "kill -TERM $$"}), 128 + SIGTERM);
    EXPECT_EQ(run("/nonexistent/program", {}), -1);
}

TEST(Programs, StartWithSignalsAtTheirDefaults) {
    std::signal(SIGTERM, SIG_IGN);
    EXPECT_EQ(krl::system::programs().run("/bin/sh", {"-c", "kill -TERM $$"}), 128 + SIGTERM);
    std::signal(SIGTERM, SIG_DFL);
}

void reapAll(int /*signal*/) {
    const int error = errno;
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    errno = error;
}

TEST(Programs, TellTheStatusWhateverThisProcessDoesWithItsChildren) {
    const auto run = krl::system::programs().run;
    for (void (*const disposition)(int) : {SIG_IGN, +reapAll}) {
        std::signal(SIGCHLD, disposition);
        EXPECT_EQ(run("/bin/sh", {"-c", "exit 0"}), 0);
        EXPECT_EQ(run("/bin/sh", {"-c", "exit 7"}), 7);
        EXPECT_EQ(run("/bin/sh", {"-c", "kill -TERM $$"}), 128 + SIGTERM);
        EXPECT_EQ(run("/nonexistent/program", {}), -1);
    }
    std::signal(SIGCHLD, SIG_DFL);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no child is left behind";
}

TEST(Programs, HaveThisProcessesStandardStreamsAndNothingElseOfIt) {
    const int file = open("/dev/null", O_RDONLY);
    ASSERT_GT(file, STDERR_FILENO);
    EXPECT_EQ(krl::system::programs().run("/bin/sh", {"-c", "[ -e /dev/fd/2 ] && [ ! -e /dev/fd/" +
                                                                std::to_string(file) + " ]"}),
              0);
    close(file);
}

TEST(FrameworkLoader, FailsWhereThereIsNoFramework) {
    EXPECT_FALSE(krl::system::loadFramework("/nonexistent/Some.framework"));
}

} // namespace
