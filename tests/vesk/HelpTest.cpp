// Help, version and the documents that go with them.
#include "tests/vesk/VeskTest.h"

#include <gmock/gmock.h>

#include <fstream>
#include <iterator>

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace vesk::testing {
namespace {

constexpr const char* kCommands[] = {"devices", "info",  "list",   "add",  "remove", "sync",
                                     "check",   "watch", "plugin", "pair", "unpair", "doctor"};

} // namespace

TEST(Help, NamesEveryCommandAndExitCode) {
    const VeskResult help = VeskProcess({"--help"}).wait();
    EXPECT_THAT(help, ExitsWith(ExitCode::Success));
    for (const char* command : kCommands) {
        EXPECT_THAT(help.out, HasSubstr(command));
    }
    for (const char* code : {" 10 ", " 15 ", " 20 ", " 28 ", " 30 ", " 43 ", " 51 ", " 130 "}) {
        EXPECT_THAT(help.out, HasSubstr(code));
    }
}

TEST(Help, EachCommandSaysWhatItDoesNotPromise) {
    for (const char* command : kCommands) {
        const VeskResult help = VeskProcess({command, "--help"}).wait();
        EXPECT_THAT(help, ExitsWith(ExitCode::Success));
        EXPECT_THAT(help.out, ::testing::AnyOf(HasSubstr("not"), HasSubstr("nothing"))) << command;
        EXPECT_THAT(help.err, IsEmpty());
    }
}

TEST(Help, VersionIsOneLine) {
    const VeskResult version = VeskProcess({"--version"}).wait();
    EXPECT_THAT(version, ExitsWith(ExitCode::Success));
    EXPECT_THAT(version.out, MatchesRegex("vesk [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(Help, TheManualHasEveryExitCode) {
    std::ifstream file(KRL_MANUAL);
    const std::string manual((std::istreambuf_iterator<char>(file)),
                             std::istreambuf_iterator<char>());
    for (int code = 0; code <= 255; ++code) {
        const std::string name = exitCodeName(static_cast<ExitCode>(code));
        const bool exists = name != "unexpected" || code == 1;
        if (exists) {
            EXPECT_THAT(manual, HasSubstr("| " + std::to_string(code) + " | `" + name + "` |"));
        }
    }
}

} // namespace vesk::testing
