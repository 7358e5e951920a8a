// The demo, as make demo runs it.
#include "tests/vesk/VeskTest.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace vesk::testing {
namespace {

class Demo : public ::testing::Test {
protected:
    static VeskResult demo(bool terminal, const std::string& temporary) {
        VeskProcess::Options options;
        options.program = KRL_DEMO;
        options.terminal = terminal;
        options.environment["XDG_CACHE_HOME"] = temporary + "/cache";
        options.environment["TMPDIR"] = temporary;
        return VeskProcess({KRL_BUILD_FOLDER}, options).wait();
    }

    static void expectWholeShow(std::string out) {
        for (const std::string colour : {"\x1b[0m", "\x1b[1m", "\x1b[2m"}) {
            for (auto at = out.find(colour); at != std::string::npos; at = out.find(colour)) {
                out.erase(at, colour.size());
            }
        }
        EXPECT_THAT(out, AllOf(HasSubstr("$ vesk devices"), HasSubstr("$ vesk info"),
                               HasSubstr("--dry-run"), HasSubstr("$ vesk sync"),
                               HasSubstr("$ vesk list"), HasSubstr("$ vesk remove")));
        EXPECT_THAT(out, AllOf(HasSubstr("Glöckchen"), HasSubstr("Sunrise 🌅"),
                               HasSubstr("<key>Ringtones</key>"), HasSubstr("Next")));
    }

    virtualphone::testing::TemporaryFolder temporary_;
};

} // namespace

TEST_F(Demo, ShowsAWholeSyncInAPipeAndLeavesNothingBehind) {
    const VeskResult result = demo(/*terminal=*/false, temporary_.path());
    EXPECT_EQ(result.exitCode, 0) << ::testing::PrintToString(result);
    expectWholeShow(result.out);
    EXPECT_THAT(result.out, Not(HasSubstr("\x1b")));
    EXPECT_TRUE(std::filesystem::is_empty(temporary_.path()));
}

TEST_F(Demo, ShowsAWholeSyncOnATerminal) {
    const VeskResult result = demo(/*terminal=*/true, temporary_.path());
    EXPECT_EQ(result.exitCode, 0) << ::testing::PrintToString(result);
    expectWholeShow(result.out);
    EXPECT_THAT(result.out, HasSubstr("/6  [#"));
    EXPECT_TRUE(std::filesystem::is_empty(temporary_.path()));
}

} // namespace vesk::testing
