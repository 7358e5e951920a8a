// vesk check: no phone, only a file.
#include "tests/vesk/VeskTest.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <sys/stat.h>

namespace vesk::testing {
namespace {

class Check : public VeskTest {
protected:
    std::string catalogue(const std::vector<Listed>& entries) const {
        return local("Ringtones.plist", catalogueText(entries));
    }
};

} // namespace

TEST_F(Check, AcceptsShortM4rNamesAndShowsTheirSlots) {
    const std::string file =
        catalogue({{"ABCD.m4r", "One", "1"}, {"EFGH.m4r", "Two", "2"}, {"IJKL.m4r", "Three", "3"}});
    const VeskResult text = vesk({"check", file});
    EXPECT_THAT(text, ExitsWith(ExitCode::Success));
    EXPECT_THAT(text.out, AllOf(HasSubstr("SLOT"), HasSubstr("ABCD.m4r"), HasSubstr("Accepted")));
    const auto json = vesk({"check", file, "--json"}).json();
    EXPECT_EQ(json.at("accepted"), true);
    EXPECT_EQ(json.at("entries"), 3);
    EXPECT_EQ(json.at("slots"), 16);
    EXPECT_THAT(json.at("offending"), IsEmpty());
    std::vector<int> slots;
    for (const auto& entry : json.at("order")) {
        slots.push_back(entry.at("slot").get<int>());
    }
    EXPECT_EQ(slots.size(), 3U);
    EXPECT_TRUE(std::is_sorted(slots.begin(), slots.end()));
}

TEST_F(Check, NamesLongM4rNames) {
    const std::string file = catalogue({{"Longtone1.m4r", "Long", "1"}, {"ABCD.m4r", "Ok", "2"}});
    const VeskResult text = vesk({"check", file});
    EXPECT_THAT(text, ExitsWith(ExitCode::NotAccepted));
    EXPECT_THAT(text.out, AllOf(HasSubstr("in the way"), HasSubstr("\"Longtone1.m4r\"")));
    const VeskResult json = vesk({"check", file, "--json"});
    EXPECT_THAT(json, ExitsWith(ExitCode::NotAccepted));
    EXPECT_THAT(json.json().at("offending"), ElementsAre("Longtone1.m4r"));
}

TEST_F(Check, OfManyNamesInTheWayTwentyAreSaidAndJsonHasAll) {
    std::vector<Listed> entries;
    for (int i = 100; i < 130; ++i) {
        entries.push_back(
            {fmt::format("Longtone{}.m4r", i), fmt::format("Long {}", i), std::to_string(i)});
    }
    const std::string file = catalogue(entries);
    EXPECT_THAT(vesk({"check", file}).out, HasSubstr(" and 11 more\n"));
    EXPECT_EQ(vesk({"check", file, "--json"}).json().at("offending").size(), 30U);
}

TEST_F(Check, JudgesAFileAndItsPlaceholderByTheSlotThatComesFirst) {
    // Whichever comes first in slot order decides; the command must show that very order.
    for (const std::string base : {"ABCD", "BQJH", "FHKM", "PBON", "OHFE", "GAQK", "RIPP"}) {
        const std::string file =
            catalogue({{base + ".mp3", "Bell", "1"}, {base + ".m4r", "Bell", "1", {}}});
        const VeskResult result = vesk({"check", file, "--json"});
        const auto json = result.json();
        const bool m4rFirst = json.at("order").at(0).at("file") == base + ".m4r";
        EXPECT_EQ(json.at("accepted"), m4rFirst) << base;
        EXPECT_THAT(result, ExitsWith(m4rFirst ? ExitCode::Success : ExitCode::NotAccepted));
        EXPECT_EQ(json.at("order").at(m4rFirst ? 0 : 1).at("placeholder"), true);
    }
}

TEST_F(Check, AnEmptyCatalogueIsAccepted) {
    const VeskResult result = vesk({"check", catalogue({})});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.out, HasSubstr("0 entries"));
}

TEST_F(Check, WhatIsNoCatalogueHasItsOwnCode) {
    for (const std::string text :
         {"", "hello", "<plist><dict/></plist>", "<plist><array/></plist>",
          "<plist><dict><key>Ringtones</key><string>x</string></dict></plist>",
          "<plist><dict><key>Ringtones</key><dict><key>A.m4r</key><string>x</string></dict></dict>"
          "</plist>"}) {
        const VeskResult result = vesk({"check", local("Ringtones.plist", text)});
        EXPECT_THAT(result, ExitsWith(ExitCode::NotACatalogue)) << text;
        EXPECT_THAT(result.err, HasSubstr("not a ringtone catalogue"));
    }
}

TEST_F(Check, AFileThatCannotBeReadHasItsOwnCode) {
    EXPECT_THAT(vesk({"check", "/nowhere/Ringtones.plist"}), ExitsWith(ExitCode::UnreadableFile));
    EXPECT_THAT(vesk({"check", temporaryFolder().string()}), ExitsWith(ExitCode::UnreadableFile));
}

TEST_F(Check, OnlyRegularFilesOfUpTo64MiBAreRead) {
    const std::filesystem::path pipe = temporaryFolder() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const char* path : {pipe.c_str(), "/dev/zero"}) {
        const VeskResult result = vesk({"check", path});
        EXPECT_THAT(result, ExitsWith(ExitCode::UnreadableFile));
        EXPECT_THAT(result.err, HasSubstr("not a regular file"));
    }
    const std::string large = local("large.plist", "<plist>");
    std::filesystem::resize_file(large, uintmax_t{64} << 20U);
    EXPECT_THAT(vesk({"check", large}), ExitsWith(ExitCode::NotACatalogue));
    std::filesystem::resize_file(large, (uintmax_t{64} << 20U) + 1);
    const VeskResult result = vesk({"check", large});
    EXPECT_THAT(result, ExitsWith(ExitCode::UnreadableFile));
    EXPECT_THAT(result.err, HasSubstr("larger than 64.0 MiB"));
}

TEST_F(Check, EntriesWithoutNameOrGuidAreShown) {
    const std::string file = local(
        "Ringtones.plist",
        "<plist><dict><key>Ringtones</key><dict><key>ABCD.m4r</key><dict/></dict></dict></plist>");
    const VeskResult result = vesk({"check", file});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.out, HasSubstr("ABCD.m4r"));
}

} // namespace vesk::testing
