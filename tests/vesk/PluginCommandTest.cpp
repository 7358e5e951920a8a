// vesk plugin as a new user would use it, and the plug-in's program.

#include "tests/support/PrivateBus.h"

#include "vesk/invocation/ExitCodes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <iterator>

namespace krl::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using vesk::ExitCode;
using vesk::testing::VeskProcess;
using vesk::testing::VeskResult;

MATCHER_P(ExitsWith, code, "") {
    return arg.exitCode == static_cast<int>(code);
}

class PluginCommand : public ::testing::Test {
protected:
    PluginCommand() { fs::create_directories(home()); }

    fs::path home() const { return folder_.path() / "Ünser Heim"; }

    fs::path bundle() const {
        return home() / "Library/iTunes/iTunes Plug-ins/HarlixSupport.bundle";
    }

    VeskProcess start(std::vector<std::string> arguments,
                      std::map<std::string, std::string> environment = kNoBus) const {
        arguments.insert(arguments.begin(), "plugin");
        environment["HOME"] = home().string();
        return VeskProcess(arguments, {.environment = environment, .program = KRL_VESK});
    }

    VeskResult run(const std::vector<std::string>& arguments) const {
        return start(arguments).wait();
    }

    VeskProcess startProgram(const std::vector<std::string>& arguments,
                             const std::map<std::string, std::string>& environment = kNoBus) const {
        return VeskProcess(arguments,
                           {.environment = environment,
                            .program = (bundle() / "Contents/Linux/HarlixSupport").string()});
    }

private:
    TemporaryFolder folder_;
};

TEST_F(PluginCommand, StatusThenInstallThenStatus) {
    const VeskResult before = run({"status"});
    EXPECT_THAT(before, ExitsWith(ExitCode::PluginNotCurrent));
    EXPECT_THAT(before.out, AllOf(HasSubstr("not installed"), HasSubstr(bundle().string()),
                                  HasSubstr("HarlixSupport.zip")));
    EXPECT_THAT(before.err, HasSubstr("vesk plugin install"));
    EXPECT_TRUE(fs::is_empty(home()));

    const VeskResult installed = run({"install"});
    EXPECT_THAT(installed, ExitsWith(ExitCode::Success));
    EXPECT_THAT(installed.out, AllOf(HasSubstr("Installed version"), HasSubstr(bundle().string())));
    EXPECT_THAT(run({"install"}).out, HasSubstr("Already current"));

    const VeskResult after = run({"status", "--json"});
    EXPECT_THAT(after, ExitsWith(ExitCode::Success));
    EXPECT_EQ(after.json().at("current"), true);
    EXPECT_EQ(after.json().at("path"), bundle().string());
    EXPECT_EQ(after.json().at("installed"), after.json().at("needed"));
    EXPECT_EQ(after.json().at("unpacker"), "/usr/bin/unzip");
}

TEST_F(PluginCommand, AnOldPluginIsShownAsSuchAndReplaced) {
    fs::create_directories(bundle() / "Contents");
    std::ofstream(bundle() / "Contents/Info.plist")
        << "<plist><dict><key>CFBundleVersion</key><string>1.4.2</string></dict></plist>";
    const VeskResult status = run({"status"});
    EXPECT_THAT(status, ExitsWith(ExitCode::PluginNotCurrent));
    EXPECT_THAT(status.out, HasSubstr("1.4.2 (out of date)"));
    EXPECT_EQ(run({"install", "--json"}).json().at("result"), "installed");
    EXPECT_THAT(run({"status"}), ExitsWith(ExitCode::Success));
}

TEST_F(PluginCommand, AnInstallationThatFailsSaysWhy) {
    std::ofstream(home() / "Library") << "a file in the way";
    const VeskResult result = run({"install"});
    EXPECT_THAT(result, ExitsWith(ExitCode::PluginNotInstalled));
    EXPECT_THAT(result.err, AllOf(HasSubstr("could not be unpacked"), HasSubstr("unzip said")));
}

TEST_F(PluginCommand, WithoutThePluginThereIsNothingToRun) {
    const VeskResult result = run({"run"});
    EXPECT_THAT(result, ExitsWith(ExitCode::PluginNotCurrent));
    EXPECT_THAT(result.err, AllOf(HasSubstr("not installed"), HasSubstr("vesk plugin install")));
}

TEST_F(PluginCommand, ASubcommandHasToBeNamed) {
    EXPECT_THAT(run({}), ExitsWith(ExitCode::Usage));
    EXPECT_THAT(run({"uninstall"}), ExitsWith(ExitCode::Usage));
}

// Six seconds each, hence at the same time.
TEST_F(PluginCommand, ValidateHearsTheRunningProgramAndOnlyThat) {
    ASSERT_THAT(run({"install"}), ExitsWith(ExitCode::Success));
    const PrivateBus busWithPlugin;
    const PrivateBus busWithout;
    VeskProcess program = start({"run"}, busWithPlugin.environment());
    program.waitForText("answers on the session bus");

    VeskProcess heard = start({"validate"}, busWithPlugin.environment());
    VeskProcess heardJson = start({"validate", "--json"}, busWithPlugin.environment());
    VeskProcess silent = start({"validate"}, busWithout.environment());
    VeskProcess withoutBus = start({"validate"});
    const VeskResult answer = heard.wait();
    EXPECT_THAT(answer, ExitsWith(ExitCode::Success));
    EXPECT_THAT(answer.out, HasSubstr("running and recent enough"));
    EXPECT_EQ(heardJson.wait().json().at("running"), true);
    const VeskResult silence = silent.wait();
    EXPECT_THAT(silence, ExitsWith(ExitCode::PluginSilent));
    EXPECT_THAT(silence.err, HasSubstr("vesk plugin run"));
    EXPECT_THAT(withoutBus.wait(), ExitsWith(ExitCode::PluginSilent));

    program.signal(SIGINT);
    EXPECT_EQ(program.wait().exitCode, 0);
}

TEST_F(PluginCommand, TheProgramStartsFromItsBundleAndSaysWhatItDoes) {
    ASSERT_THAT(run({"install"}), ExitsWith(ExitCode::Success));
    const VeskResult help = startProgram({"--help"}).wait();
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_THAT(help.out, AllOf(HasSubstr("usage: HarlixSupport"), HasSubstr("pong")));
    const VeskResult version = startProgram({"--version"}).wait();
    EXPECT_THAT(version.out, MatchesRegex("HarlixSupport [0-9.]+\n"));
    // The program and its bundle say the same.
    const std::string bare = version.out.substr(14, version.out.size() - 15);
    EXPECT_THAT(run({"status", "--json"}).json().at("installed").get<std::string>(),
                ::testing::StartsWith(bare));
    EXPECT_EQ(startProgram({"--nonsense"}).wait().exitCode, 2);
    const VeskResult withoutBus = startProgram({}).wait();
    EXPECT_EQ(withoutBus.exitCode, 1);
    EXPECT_THAT(withoutBus.err, HasSubstr("no session bus"));
}

TEST_F(PluginCommand, TheProgramStopsOnTermAndWhenTheBusGoes) {
    ASSERT_THAT(run({"install"}), ExitsWith(ExitCode::Success));
    PrivateBus bus;
    VeskProcess stopped = startProgram({}, bus.environment());
    stopped.waitForText("answers");
    stopped.signal(SIGTERM);
    EXPECT_EQ(stopped.wait().exitCode, 0);
    VeskProcess left = startProgram({}, bus.environment());
    left.waitForText("answers");
    bus.stop();
    const VeskResult end = left.wait();
    EXPECT_EQ(end.exitCode, 1);
    EXPECT_THAT(end.err, HasSubstr("went away"));
}

// What was built, installed to a folder with spaces: the library finds its resources there too, and
// vesk the program that reads tags.
TEST_F(PluginCommand, WorksFromAnInstallation) {
    const fs::path prefix = home() / "in stalled";
    const VeskResult install =
        VeskProcess({"--install", KRL_BUILD_FOLDER, "--prefix", prefix.string()},
                    {.environment = {}, .program = KRL_CMAKE})
            .wait();
    ASSERT_EQ(install.exitCode, 0) << install.err;
    const VeskResult result =
        VeskProcess({"plugin", "install", "--json"}, {.environment = {{"HOME", home().string()}},
                                                      .program = (prefix / "bin/vesk").string()})
            .wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    const VeskResult status =
        VeskProcess({"plugin", "status", "--json"}, {.environment = {{"HOME", home().string()}},
                                                     .program = (prefix / "bin/vesk").string()})
            .wait();
    EXPECT_THAT(status.json().at("archive").get<std::string>(),
                AllOf(::testing::StartsWith(prefix.string()), HasSubstr("KRLVesk.resources")));
    std::ifstream unit(prefix / "lib/systemd/user/vesk-watch@.service");
    EXPECT_THAT(std::string(std::istreambuf_iterator<char>(unit), {}),
                HasSubstr("ExecStart=\"" + (prefix / "bin/vesk").string() + "\" watch"));
    for (const char* file :
         {"share/man/man1/vesk.1", "share/man/man1/vesk-sync.1",
          "share/bash-completion/completions/vesk", "share/zsh/site-functions/_vesk",
          "share/fish/vendor_completions.d/vesk.fish"}) {
        EXPECT_TRUE(std::filesystem::exists(prefix / file)) << file;
    }
    const VeskResult inspect =
        VeskProcess({"inspect", KRL_SAMPLES "/bells.mp3"},
                    {.environment = {}, .program = (prefix / "bin/vesk").string()})
            .wait();
    EXPECT_THAT(inspect, ExitsWith(ExitCode::Success));
    EXPECT_THAT(inspect.out, HasSubstr("Glöckchen"));
}

} // namespace
} // namespace krl::testing
