// Help, version and the documents that go with them.
#include "tests/vesk/VeskTest.h"

#include "vesk/CommandTable.h"

#include <gmock/gmock.h>

#include <fstream>
#include <iterator>

using testing::MatchesRegex;

namespace vesk::testing {
namespace {

/// Each with the family that it belongs to.
std::vector<std::vector<std::string>> everyCommand() {
    std::vector<std::vector<std::string>> commands{{"plugin"}};
    for (const CommandRow& row : commandTable()) {
        commands.push_back(row.family == nullptr ? std::vector<std::string>{row.name}
                                                 : std::vector<std::string>{row.family, row.name});
    }
    return commands;
}

std::string manual() {
    std::ifstream file(KRL_MANUAL);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

} // namespace

TEST(Help, NamesEveryCommandAndExitCode) {
    const VeskResult help = VeskProcess({"--help"}).wait();
    EXPECT_THAT(help, ExitsWith(ExitCode::Success));
    for (const CommandRow& row : commandTable()) {
        if (row.family == nullptr) {
            EXPECT_THAT(help.out, HasSubstr(std::string("\n  ") + row.name + " "));
        }
    }
    for (const ExitCodeRow& row : exitCodes()) {
        const std::string code = std::to_string(static_cast<int>(row.code));
        EXPECT_THAT(help.out, HasSubstr(" " + code + "  " + row.meaning));
    }
}

TEST(Help, EachCommandSaysWhatItDoesNotPromise) {
    for (std::vector<std::string> command : everyCommand()) {
        command.emplace_back("--help");
        const VeskResult help = VeskProcess(command).wait();
        EXPECT_THAT(help, ExitsWith(ExitCode::Success));
        EXPECT_THAT(help.out, ::testing::AnyOf(HasSubstr("not"), HasSubstr("nothing")))
            << ::testing::PrintToString(command);
        EXPECT_THAT(help.err, IsEmpty());
    }
}

TEST(Help, VersionIsOneLine) {
    const VeskResult version = VeskProcess({"--version"}).wait();
    EXPECT_THAT(version, ExitsWith(ExitCode::Success));
    EXPECT_THAT(version.out, MatchesRegex("vesk [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(Help, TheManualHasEveryCommandAndExitCode) {
    for (const auto& command : everyCommand()) {
        EXPECT_THAT(manual(), HasSubstr("\nvesk " + command.front() + " "));
        EXPECT_THAT(manual(), HasSubstr(" " + command.back() + " "));
    }
    for (const ExitCodeRow& row : exitCodes()) {
        EXPECT_THAT(manual(), HasSubstr("| " + std::to_string(static_cast<int>(row.code)) + " | `" +
                                        row.name + "` |"));
    }
}

TEST(ExitCodes, EveryFailureHasOneOfItsOwn) {
    std::set<ExitCode> codes;
    constexpr int kKinds = static_cast<int>(FailureKind::Cancelled) + 1;
    for (int kind = 0; kind < kKinds; ++kind) {
        codes.insert(exitCodeOf(static_cast<FailureKind>(kind)));
    }
    EXPECT_EQ(codes.size(), static_cast<size_t>(kKinds));
}

} // namespace vesk::testing
