// Names for files, which every file system takes.
#include "engine/files/FileNames.h"

#include "engine/values/Text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <set>
#include <string>

using namespace krl::engine;
using testing::EndsWith;
using testing::Le;
using testing::Not;

TEST(FileNameFor, LeavesAGoodTitleAsItIs) {
    for (const char* title : {"Marimba", "Glöckchen", "着信音", "Sunrise 🌅", "a.b", "Twin (2)",
                              "-x", "console", "com", "com10", "100% (it's ~ok) & more"}) {
        EXPECT_EQ(fileNameFor(title), title);
    }
}

namespace {

struct Title {
    const char* rule;
    const char* title;
    const char* fileName;
};

void PrintTo(const Title& title, std::ostream* out) {
    *out << title.rule << ": " << title.title;
}

const Title kTitles[] = {
    {"a character that means something else", "Harp/Lyre", "Harp_Lyre"},
    {"a character that means something else", "a\\b:c*d?e\"f<g>h|i", "a_b_c_d_e_f_g_h_i"},
    {"a character that means something else", "line\nbreak\x1b[2J\x7f", "line_break_[2J_"},
    {"a character that means something else", "\u202emoor", "_moor"},
    {"a character that means something else", "\xff", "\uFFFD"},
    {"leads nowhere else", "", "_"},
    {"leads nowhere else", ".", "_"},
    {"leads nowhere else", "..", "_"},
    {"leads nowhere else", "../../etc/passwd", "_.._.._etc_passwd"},
    {"hides nothing", ".hidden", "_.hidden"},
    {"hides nothing", " .hidden", "_.hidden"},
    {"no point or space at an end", "   ", "_"},
    {"no point or space at an end", "Wait...", "Wait"},
    {"no point or space at an end", "  two words . ", "two words"},
    {"is no device", "CON", "_CON"},
    {"is no device", "nul.old", "_nul.old"},
    {"is no device", "aux .", "_aux"},
    {"is no device", "Prn .x", "_Prn .x"},
    {"is no device", "com1", "_com1"},
    {"is no device", "LPT\u00b2", "_LPT\u00b2"},
    {"is no device", "CONOUT$", "_CONOUT$"},
};

} // namespace

class FileNameOf : public testing::TestWithParam<Title> {};

TEST_P(FileNameOf, IsOneThatEverySystemTakes) {
    EXPECT_EQ(fileNameFor(GetParam().title), GetParam().fileName);
}

INSTANTIATE_TEST_SUITE_P(Table, FileNameOf, testing::ValuesIn(kTitles));

TEST(FileNameFor, IsCutBetweenCharactersAndEndsWithNoSpaceThen) {
    std::string title;
    for (int i = 0; i < 100; ++i) {
        title += "🎵 ";
    }
    const std::string name = fileNameFor(title);
    EXPECT_TRUE(isUtf8(name));
    EXPECT_THAT(name.size(), Le(200U));
    EXPECT_THAT(name, Not(EndsWith(" ")));
    EXPECT_EQ(fileNameFor(std::string(300, 'x')), std::string(200, 'x'));
}

TEST(FileNames, GivesEachNameOnceWhateverItsCase) {
    struct Given {
        const char* title;
        const char* extension;
        const char* fileName;
    };

    FileNames names;
    names.reserve("krlvesk-backup.json");
    for (const auto& [title, extension, fileName] : {
             Given{"Harp", "m4r", "Harp.m4r"},
             Given{"Harp", "mp3", "Harp.mp3"},
             Given{"Harp", "m4r", "Harp (2).m4r"},
             Given{"Harp (2)", "m4r", "Harp (2) (2).m4r"},
             Given{"KRLVesk-Backup", "json", "KRLVesk-Backup (2).json"},
             Given{"none", "", "none"},
             Given{"lyre", "m4r", "lyre.m4r"},
             Given{"LYRE", "m4r", "LYRE (2).m4r"},
             Given{"Glöckchen", "m4r", "Glöckchen.m4r"},
             Given{"GLÖCKCHEN", "M4R", "GLÖCKCHEN (2).M4R"},
             Given{"a/b", "m4r", "a_b.m4r"},
             Given{"A_B", "m4r", "A_B (2).m4r"},
         }) {
        EXPECT_EQ(names.give(title, extension), fileName);
    }
}

TEST(FileNames, OfManyTitlesThatWantTheSameNameEachHasItsOwn) {
    FileNames names;
    std::set<std::string> given;
    for (int i = 0; i < 5000; ++i) {
        given.insert(names.give(std::string(200, 'a') + std::to_string(i), "m4r"));
    }
    EXPECT_EQ(given.size(), 5000U);
    EXPECT_TRUE(given.contains(std::string(200, 'a') + " (5000).m4r"));
}

TEST(FileNames, NoExtensionMakesANameTooLongOrUnsafe) {
    FileNames names;
    const std::string name = names.give(std::string(300, 'x'), std::string(300, 'y'));
    EXPECT_THAT(name.size(), Le(230U));
    EXPECT_EQ(names.give("a", "m4r. "), "a.m4r");
    EXPECT_EQ(names.give("b", "m/r"), "b.m_r");
}
