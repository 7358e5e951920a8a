// The program, run as a person runs it.

#include "tests/support/Process.h"
#include "tests/support/VirtualPhoneFixture.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include <csignal>
#include <sstream>

namespace virtualphone::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

class Program : public ::testing::Test {
protected:
    std::string in(const std::string& name) const { return (folder_.path() / name).string(); }

    std::vector<std::string> command(std::vector<std::string> options) const {
        options.insert(options.begin(), {KRL_VIRTUALPHONE, "--root", in("phone")});
        return options;
    }

    std::string readFile(const std::string& name) const {
        std::ifstream file(in(name));
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

private:
    TemporaryFolder folder_;
};

TEST_F(Program, EndsWithTheCommandsStatus) {
    EXPECT_EQ(run(command({"--", "true"})).status, 0);
    EXPECT_EQ(run(command({"--", "sh", "-c", "exit 7"})).status, 7);
    EXPECT_EQ(run(command({"--", "sh", "-c", "kill -9 $$"})).status, 128 + SIGKILL);
}

TEST_F(Program, SaysWhenTheCommandCannotBeRun) {
    const Outcome missing = run(command({"--", "no-such-program"}));
    EXPECT_EQ(missing.status, 127);
    EXPECT_THAT(missing.output, HasSubstr("no-such-program"));
    EXPECT_EQ(run(command({"--", "/"})).status, 126);
}

TEST_F(Program, GivesTheCommandTheSocketAndItsArguments) {
    const Outcome outcome = run(command(
        {"--", "sh", "-c",
         "echo \"$USBMUXD_SOCKET_ADDRESS\"; test -S ${USBMUXD_SOCKET_ADDRESS#UNIX:} && echo \"$1\"",
         "sh", "--root"}));
    EXPECT_THAT(outcome.output, MatchesRegex("UNIX:/.*\n--root\n"));
    const std::string socket = outcome.output.substr(5, outcome.output.find('\n') - 5);
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::path(socket).parent_path()))
        << "the private folder is removed at the end";
}

TEST_F(Program, TakesASocketPath) {
    const Outcome outcome =
        run(command({"--socket", in("s"), "--", "sh", "-c", "echo \"$USBMUXD_SOCKET_ADDRESS\""}));
    EXPECT_EQ(outcome.output, "UNIX:" + in("s") + "\n");
    EXPECT_FALSE(std::filesystem::exists(in("s")));
}

TEST_F(Program, ServesUntilInterruptedAndSaysWhatToType) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        Process process(command({"--socket", in("s"), "--name", "My Phone"}));
        ASSERT_THAT(process.readLine().value_or(""), HasSubstr("phone 1: My Phone"));
        EXPECT_EQ(process.readLine(), "export USBMUXD_SOCKET_ADDRESS=UNIX:" + in("s"));
        EXPECT_TRUE(std::filesystem::is_socket(in("s")));
        process.signal(signal);
        EXPECT_EQ(process.wait(), 0);
        EXPECT_FALSE(std::filesystem::exists(in("s")));
    }
}

TEST_F(Program, TheLineToTypeIsSafeForTheShell) {
    Process process(command({"--socket", in("it's $HOME")}));
    ASSERT_TRUE(process.readLine());
    const std::string line = process.readLine().value_or("");
    const Outcome shell = run({"sh", "-c", line + "; echo \"$USBMUXD_SOCKET_ADDRESS\""});
    EXPECT_EQ(shell.output, "UNIX:" + in("it's $HOME") + "\n");
}

TEST_F(Program, HandsSignalsOnToTheCommand) {
    for (const char* const name : {"INT", "TERM", "HUP"}) {
        Process process(command({"--", "sh", "-c",
                                 std::string("trap 'echo trapped; exit 5' ") + name +
                                     "; echo ready; while :; do sleep 0.02; done"}));
        ASSERT_TRUE(process.readUntil("ready"));
        process.signal(name == std::string("INT")    ? SIGINT
                       : name == std::string("TERM") ? SIGTERM
                                                     : SIGHUP);
        EXPECT_TRUE(process.readUntil("trapped")) << name;
        EXPECT_EQ(process.wait(), 5);
    }
}

TEST_F(Program, WrongUseIsStatusTwoWithAReason) {
    const struct {
        std::vector<std::string> options;
        const char* reason;
    } rows[] = {
        {{"--no-such-option"}, "no-such-option"},
        {{"--udid", "123"}, "40"},
        {{"--fault", "afc=explode"}, "explode"},
        {{"--latency", "-1"}, "latency"},
        {{"--wire-delay", "-1"}, "wire-delay"},
        {{"--lockdown-idle", "86400001"}, "lockdown-idle"},
        {{"--free-bytes", "many"}, "free-bytes"},
        {{"--socket", "/tmp/" + std::string(120, 'x')}, "107"},
        {{"--root", in("b"), "--name", "1", "--name", "2", "--name", "3"}, "3 times for 2 phones"},
        {{"--root", in("b"), "--udid", std::string(40, 'a')}, "plugged in already"},
    };

    for (const auto& row : rows) {
        std::vector<std::string> options = row.options;
        options.insert(options.end(), {"--", "echo", "has run"});
        const Outcome outcome = run(command(options));
        EXPECT_EQ(outcome.status, 2) << row.reason;
        EXPECT_THAT(outcome.output, HasSubstr(row.reason));
        EXPECT_THAT(outcome.output, ::testing::Not(HasSubstr("has run")));
    }
    const Outcome none = run({KRL_VIRTUALPHONE});
    EXPECT_EQ(none.status, 2);
    EXPECT_THAT(none.output, HasSubstr("--root"));
}

TEST_F(Program, WhatCannotBeOpenedIsStatusOneWithItsName) {
    const Outcome log = run(command({"--log", "/no/such/folder/log", "--", "true"}));
    EXPECT_EQ(log.status, 1);
    EXPECT_THAT(log.output, HasSubstr("/no/such/folder/log"));
    const Outcome socket = run(command({"--socket", "/no/such/folder/s", "--", "true"}));
    EXPECT_EQ(socket.status, 1);
    EXPECT_THAT(socket.output, HasSubstr("/no/such/folder/s"));
}

TEST_F(Program, HelpNamesEveryOptionActionAndCommand) {
    const Outcome outcome = run({KRL_VIRTUALPHONE, "--help"});
    EXPECT_EQ(outcome.status, 0);
    for (const char* const word :
         {"--root",         "--firmware",        "--name",           "--class",
          "--udid",         "--free-bytes",      "--total-bytes",    "--link-speed",
          "--latency",      "--lockdown-idle",   "--session",        "--secure-services",
          "--unpaired",     "--passcode",        "--no-validation",  "--binary-replies",
          "--make-parents", "--accept-existing", "--reuse-handles",  "--sound-read",
          "--wire-delay",   "--fault",           "--hold-sync-lock", "--socket",
          "--log",          "--unplugged",       "--interactive",    "COMMAND",
          "status:N",       "huge-length",       "unplug",           "release-lock",
          "--strict-audio", "drop-unanswered",   "@NUMBER",          "judge"}) {
        EXPECT_THAT(outcome.output, HasSubstr(word));
    }
}

TEST_F(Program, TakesCommandsFromStandardInput) {
    Process process(command({"--interactive", "--udid", std::string(40, 'a')}));
    ASSERT_TRUE(process.readUntil("export "));
    const auto answers = [&](const std::string& line) {
        process.writeLine(line);
        std::string all;
        while (true) {
            const std::string answer = process.readLine().value_or("ok");
            all += answer + "\n";
            if (answer == "ok" || answer.starts_with("error: ")) {
                return all;
            }
        }
    };
    EXPECT_THAT(answers("list"), HasSubstr("plugged in as device 1\n"));
    EXPECT_EQ(answers("unplug"), "ok\n");
    EXPECT_EQ(answers("unplug"), "error: phone 1 is not plugged in\n");
    EXPECT_THAT(answers("list"), HasSubstr("not plugged in\n"));
    EXPECT_EQ(answers("plug @1"), "ok\n");
    EXPECT_THAT(answers("list"), HasSubstr("plugged in as device 2\n"));
    EXPECT_THAT(answers("plug"), StartsWith("error: "));
    EXPECT_EQ(answers("post com.example.news"), "ok\n");
    EXPECT_EQ(answers("fault afc/Write=status:18"), "ok\n");
    EXPECT_EQ(answers("fault @1 usbmux/Connect#5=drop"), "ok\n");
    EXPECT_THAT(answers("fault afc=explode"), HasSubstr("explode"));
    EXPECT_EQ(answers("clear-faults"), "ok\n");
    EXPECT_EQ(answers("silence"), "ok\n");
    EXPECT_EQ(answers("talk"), "ok\n");
    EXPECT_EQ(answers("hold-lock"), "ok\n");
    EXPECT_EQ(answers("release-lock"), "ok\n");
    EXPECT_EQ(answers("free 1000"), "ok\n");
    EXPECT_EQ(answers("free much"), "error: 'much' is no number\n");
    EXPECT_EQ(answers("judge"), "ok\n") << "there is nothing to judge";
    EXPECT_EQ(answers("forget-hosts"), "ok\n");
    EXPECT_EQ(answers("unplug @2"), "error: there is no phone @2\n");
    EXPECT_EQ(answers("post"), "error: the form is: post [@NUMBER] NAME\n");
    EXPECT_THAT(answers("unplug now"), StartsWith("error: the form is: unplug"));
    EXPECT_THAT(answers("dance"), HasSubstr("'dance'"));
    EXPECT_THAT(answers("help"), HasSubstr("clear-faults"));
    process.writeLine("quit");
    EXPECT_EQ(process.wait(), 0);
}

TEST_F(Program, GoesOnServingWhenItsInputEnds) {
    Process process(command({"--interactive"}));
    ASSERT_TRUE(process.readUntil("export "));
    process.writeLine("list");
    process.closeInput();
    ASSERT_TRUE(process.readUntil("ok"));
    process.signal(SIGTERM);
    EXPECT_EQ(process.wait(), 0);
}

TEST_F(Program, PlugsAPhoneInWhileACommandRuns) {
    if (!isInstalled("idevice_id")) {
        GTEST_SKIP() << "idevice_id is not installed";
    }
    const std::string udid(40, 'b');
    Process process(
        command({"--interactive", "--unplugged", "--udid", udid, "--", "sh", "-c",
                 "idevice_id -l; echo looked; until idevice_id -l | grep .; do sleep 0.02; done"}));
    EXPECT_EQ(process.readLine(), "looked") << "not there at the start";
    process.writeLine("plug");
    EXPECT_TRUE(process.readUntil(udid));
    EXPECT_EQ(process.wait(), 0);
}

TEST_F(Program, QuitEndsTheCommandToo) {
    Process process(command({"--interactive", "--", "sleep", "1000"}));
    process.writeLine("list");
    ASSERT_TRUE(process.readUntil("ok"));
    process.writeLine("quit");
    EXPECT_EQ(process.wait(), 128 + SIGTERM);
}

TEST_F(Program, SeveralPhonesShareValuesOrHaveTheirOwn) {
    Process process(command({"--root", in("second"), "--firmware", "1.0.2", "--name", "One",
                             "--name", "Two", "--interactive"}));
    EXPECT_THAT(process.readLine().value_or(""), HasSubstr("phone 1: One (iPhone, 1.0.2)"));
    EXPECT_THAT(process.readLine().value_or(""), HasSubstr("phone 2: Two (iPhone, 1.0.2)"));
    ASSERT_TRUE(process.readUntil("export "));
    process.writeLine("unplug @2");
    EXPECT_EQ(process.readLine(), "ok");
    process.writeLine("list");
    EXPECT_THAT(process.readLine().value_or(""), HasSubstr("plugged in as device 1"));
    EXPECT_THAT(process.readLine().value_or(""), HasSubstr("not plugged in"));
}

TEST_F(Program, WritesTheLogWhileItRuns) {
    if (!isInstalled("idevice_id")) {
        GTEST_SKIP() << "idevice_id is not installed";
    }
    run(command({"--log", in("log"), "--", "idevice_id", "-l"}));
    EXPECT_THAT(readFile("log"), StartsWith("{\"number\":1,"));
    EXPECT_THAT(readFile("log"), HasSubstr("\"request\":\"ListDevices\""));
}

TEST_F(Program, LaysALongWire) {
    constexpr double kDelaySeconds = 0.03;
    run(command({"--wire-delay", "30", "--log", in("log"), "--", "ideviceinfo"}));
    std::vector<double> times;
    std::istringstream log(readFile("log"));
    for (std::string line; std::getline(log, line);) {
        const nlohmann::json entry = nlohmann::json::parse(line);
        if (entry["service"] == "lockdown") {
            times.push_back(entry["time"]);
        }
    }
    ASSERT_GE(times.size(), 3u);
    for (size_t i = 1; i < times.size(); ++i) {
        EXPECT_GE(times[i] - times[i - 1], 2 * kDelaySeconds);
    }
}

TEST_F(Program, RefusesASessionThatThereIsNot) {
    const Outcome outcome = run(command({"--session", "ssl2", "--", "true"}));
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.output, HasSubstr("ssl2"));
    EXPECT_EQ(run(command({"--session", "clear", "--", "true"})).status, 0);
}

TEST_F(Program, HoldsTheSyncLock) {
    const Outcome outcome = run(command({"--hold-sync-lock", "--", "true"}));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(std::filesystem::exists(in("phone/com.apple.itunes.lock_sync")));
    Process holder(command({"--hold-sync-lock"}));
    ASSERT_TRUE(holder.readUntil("export "));
    const Outcome second = run(command({"--hold-sync-lock", "--", "true"}));
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.output, HasSubstr("sync lock"));
}

} // namespace
} // namespace virtualphone::testing
