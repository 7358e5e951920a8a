#include "vesk/terminal/Output.h"

#include <gtest/gtest.h>

using vesk::Table;

TEST(TableText, AlignsColumnsByDisplayWidthAndLeavesNoSpacesAtLineEnds) {
    Table table({{"NAME"}, {"SIZE", Table::Align::Right}, {"NOTE"}});
    table.add({"着信音", "5", ""});
    table.add({"ab", "1000", "x"});
    EXPECT_EQ(table.text(), "NAME    SIZE  NOTE\n"
                            "着信音     5\n"
                            "ab      1000  x\n");
}

TEST(TableText, EscapesBeforeItMeasures) {
    Table table({{"A"}, {"B"}});
    table.add({"\x1b", "1"});
    table.add({"abcd", "2"});
    EXPECT_EQ(table.text(), "A     B\n\\x1b  1\nabcd  2\n");
}

TEST(TableText, HasNoLineOfTitlesWithoutTitles) {
    Table table({{""}, {""}});
    table.add({"Name", "My Phone"});
    EXPECT_EQ(table.text(), "Name  My Phone\n");
}
