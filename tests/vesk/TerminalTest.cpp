// What a person sees on a terminal.
#include "tests/vesk/VeskTest.h"

#include "engine/values/Text.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <regex>
#include <set>

using testing::Each;

namespace vesk::testing {
namespace {

class Terminal : public VeskTest {
protected:
    void SetUp() override {
        options.name = "My Phone";
        options.linkBytesPerSecond = 100'000;
        plugIn();
        for (int i = 0; i < 6; ++i) {
            local("tone" + std::to_string(i) + ".m4r", std::string(15'000, 'x'));
        }
    }

    static VeskResult onTerminal(const std::vector<std::string>& arguments,
                                 unsigned short columns = 80,
                                 const std::map<std::string, std::string>& environment = {}) {
        VeskProcess::Options terminal;
        terminal.terminal = true;
        terminal.columns = columns;
        terminal.environment = environment;
        return VeskProcess(arguments, terminal).wait();
    }

    /// All that stood on one line at any time.
    static std::vector<std::string> drawings(const std::string& output) {
        std::vector<std::string> result(1);
        for (const char character : output) {
            if (character == '\r' || character == '\n') {
                result.emplace_back();
            } else {
                result.back() += character;
            }
        }
        return result;
    }
};

} // namespace

TEST_F(Terminal, ASyncShowsABarAndTakesItAway) {
    const VeskResult result = onTerminal({"sync", localFolder()});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.out, AllOf(HasSubstr("/6  [#"), HasSubstr("KiB of 87.9 KiB"),
                                  HasSubstr("left"), Not(HasSubstr("uploading 1/6"))));
    const auto lines = screenLines(result.out);
    EXPECT_THAT(lines, Each(Not(HasSubstr("["))));
    EXPECT_THAT(lines, Contains(HasSubstr("6 added")));
}

TEST_F(Terminal, TheBarMovesWithinAFile) {
    const std::string one = local("one.m4r", std::string(150'000, 'x'));
    const VeskResult result = onTerminal({"add", one});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    std::set<int> percents;
    for (const std::string& drawing : drawings(result.out)) {
        std::smatch found;
        if (std::regex_search(drawing, found, std::regex("^0/1 .* ([0-9]+)%"))) {
            percents.insert(std::stoi(found[1]));
        }
    }
    EXPECT_TRUE(std::any_of(percents.begin(), percents.end(),
                            [](int percent) { return percent > 0 && percent < 100; }));
}

TEST_F(Terminal, NoDrawingIsAsWideAsTheTerminal) {
    for (const unsigned short columns : std::array<unsigned short, 3>{20, 40, 100}) {
        const VeskResult result = onTerminal({"sync", localFolder(), "--quiet"}, columns);
        EXPECT_THAT(result, ExitsWith(ExitCode::Success));
        local("more" + std::to_string(columns) + ".m4r", std::string(15'000, 'x'));
        const VeskResult bar = onTerminal({"sync", localFolder()}, columns);
        for (std::string drawing : drawings(bar.out)) {
            const bool erases = drawing.ends_with("\x1b[K");
            if (erases) {
                drawing.resize(drawing.size() - 3);
                EXPECT_LT(displayWidth(drawing), columns) << drawing;
            }
        }
    }
}

TEST_F(Terminal, ADumbTerminalGetsPlainLines) {
    const VeskResult result = onTerminal({"sync", localFolder()}, 80, {{"TERM", "dumb"}});
    EXPECT_THAT(result.out, AllOf(HasSubstr("uploading 1/6"), Not(HasSubstr("\x1b"))));
}

TEST_F(Terminal, ErrorsAreColouredUnlessNoColorIsSet) {
    EXPECT_THAT(onTerminal({"remove", "x"}).out, HasSubstr("\x1b[1;31merror:"));
    const VeskResult plain = onTerminal({"remove", "x"}, 80, {{"NO_COLOR", "1"}});
    EXPECT_THAT(plain.out, AllOf(HasSubstr("error:"), Not(HasSubstr("\x1b["))));
}

TEST_F(Terminal, CtrlCOnTheKeyboardCancels) {
    for (int i = 0; i < 6; ++i) {
        local("tone" + std::to_string(i) + ".m4r", std::string(100'000, 'x'));
    }
    VeskProcess::Options terminal;
    terminal.terminal = true;
    VeskProcess sync({"sync", localFolder()}, terminal);
    ASSERT_TRUE(log().waitFor(
        [](const auto& entry) { return entry.request == "Write" && entry.size.value_or(0) > 0; }));
    sync.type("\x03");
    const VeskResult result = sync.wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::Cancelled));
    EXPECT_THAT(screenLines(result.out), Contains(HasSubstr("was cancelled")));
}

TEST_F(Terminal, CtrlCEndsWatchingAndLeavesALineOfItsOwnToWhatFollows) {
    VeskProcess::Options terminal;
    terminal.terminal = true;
    VeskProcess watch({"watch"}, terminal);
    watch.waitForText("attached");
    watch.type("\x03");
    const VeskResult result = watch.wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.out, HasSubstr("^C"));
    EXPECT_THAT(screenLines(result.out), Not(Contains(HasSubstr("^C"))));
}

TEST_F(Terminal, JsonOnATerminalIsStillOneDocumentWithoutControlCharacters) {
    putRingtones({{"KDAQ.m4r", "evil\u009b2J", "1"}});
    const VeskResult result = onTerminal({"list", "--json"});
    EXPECT_THAT(result.out, AllOf(HasSubstr("evil\\u009b2J"), Not(HasSubstr("\u009b"))));
    EXPECT_EQ(result.json().at("ringtones").at(0).at("name"), "evil\u009b2J");
}

} // namespace vesk::testing
