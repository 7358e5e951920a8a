// Names for files, which every file system takes.
#include "engine/files/FileNames.h"

#include "engine/values/Text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

TEST(FileNameFor, PutsALineWhereACharacterMeansSomethingElse) {
    EXPECT_EQ(fileNameFor("Harp/Lyre"), "Harp_Lyre");
    EXPECT_EQ(fileNameFor("a\\b:c*d?e\"f<g>h|i"), "a_b_c_d_e_f_g_h_i");
    EXPECT_EQ(fileNameFor("line\nbreak\x1b[2J\x7f"), "line_break_[2J_");
    EXPECT_EQ(fileNameFor("\u202emoor"), "_moor");
    EXPECT_EQ(fileNameFor("\xff"), "\uFFFD");
}

TEST(FileNameFor, LeadsNowhereElseAndHidesNothing) {
    EXPECT_EQ(fileNameFor(""), "_");
    EXPECT_EQ(fileNameFor("."), "_");
    EXPECT_EQ(fileNameFor(".."), "_");
    EXPECT_EQ(fileNameFor("../../etc/passwd"), "_.._.._etc_passwd");
    EXPECT_EQ(fileNameFor(".hidden"), "_.hidden");
    EXPECT_EQ(fileNameFor(" .hidden"), "_.hidden");
    EXPECT_EQ(fileNameFor("   "), "_");
}

TEST(FileNameFor, HasNoPointOrSpaceAtAnEnd) {
    EXPECT_EQ(fileNameFor("Wait..."), "Wait");
    EXPECT_EQ(fileNameFor("  two words . "), "two words");
}

TEST(FileNameFor, IsNoDevice) {
    EXPECT_EQ(fileNameFor("CON"), "_CON");
    EXPECT_EQ(fileNameFor("nul.old"), "_nul.old");
    EXPECT_EQ(fileNameFor("aux ."), "_aux");
    EXPECT_EQ(fileNameFor("Prn .x"), "_Prn .x");
    EXPECT_EQ(fileNameFor("com1"), "_com1");
    EXPECT_EQ(fileNameFor("LPT\u00b2"), "_LPT\u00b2");
    EXPECT_EQ(fileNameFor("CONOUT$"), "_CONOUT$");
}

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

TEST(FileNames, GivesEachNameOnce) {
    FileNames names;
    names.reserve("krlvesk-backup.json");
    EXPECT_EQ(names.give("Harp", "m4r"), "Harp.m4r");
    EXPECT_EQ(names.give("Harp", "mp3"), "Harp.mp3");
    EXPECT_EQ(names.give("Harp", "m4r"), "Harp (2).m4r");
    EXPECT_EQ(names.give("Harp (2)", "m4r"), "Harp (2) (2).m4r");
    EXPECT_EQ(names.give("KRLVesk-Backup", "json"), "KRLVesk-Backup (2).json");
    EXPECT_EQ(names.give("none", ""), "none");
}

TEST(FileNames, TellsNamesApartThatDifferInCaseAlone) {
    FileNames names;
    EXPECT_EQ(names.give("harp", "m4r"), "harp.m4r");
    EXPECT_EQ(names.give("HARP", "m4r"), "HARP (2).m4r");
    EXPECT_EQ(names.give("Glöckchen", "m4r"), "Glöckchen.m4r");
    EXPECT_EQ(names.give("GLÖCKCHEN", "M4R"), "GLÖCKCHEN (2).M4R");
    EXPECT_EQ(names.give("a/b", "m4r"), "a_b.m4r");
    EXPECT_EQ(names.give("A_B", "m4r"), "A_B (2).m4r");
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
