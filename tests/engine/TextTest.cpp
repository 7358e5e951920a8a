#include "engine/values/Text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

using testing::ElementsAre;
using testing::IsEmpty;
using namespace krl::engine;

namespace {

struct EscapeCase {
    const char* rule;
    std::string text;
    std::string shown;
};

void PrintTo(const EscapeCase& row, std::ostream* out) {
    *out << row.rule;
}

class ForTerminal : public testing::TestWithParam<EscapeCase> {};

} // namespace

TEST_P(ForTerminal, ShowsUnsafeCharactersAsEscapes) {
    EXPECT_EQ(forTerminal(GetParam().text), GetParam().shown);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ForTerminal,
    testing::Values(
        EscapeCase{"plain text stays", "Marimba 1", "Marimba 1"},
        EscapeCase{"umlauts stay", "Glöckchen", "Glöckchen"},
        EscapeCase{"emoji with joiners stay", "👩‍🎤 🇩🇪", "👩‍🎤 🇩🇪"},
        EscapeCase{"combining accents stay", "e\u0301", "e\u0301"},
        EscapeCase{"escape sequence", "\x1b[2Jx", "\\x1b[2Jx"},
        EscapeCase{"bell, newline and tab", "a\a\n\tb", "a\\x07\\x0a\\x09b"},
        EscapeCase{"zero byte", std::string("a\0b", 3), "a\\x00b"},
        EscapeCase{"delete", "\x7f", "\\x7f"},
        EscapeCase{"C1 control sequence introducer", "\u009b2J", "\\u009b2J"},
        EscapeCase{"right-to-left override", "gp3\u202e4m", "gp3\\u202e4m"},
        EscapeCase{"isolates", "\u2066x\u2069", "\\u2066x\\u2069"},
        EscapeCase{"line separator", "a\u2028b", "a\\u2028b"},
        EscapeCase{"byte order mark", "\ufeffa", "\\ufeffa"},
        EscapeCase{"tags", "a\U000e0041\U000e007f", "a\\U000e0041\\U000e007f"},
        EscapeCase{"fillers", "\u115f\u1160\u3164\uffa0", "\\u115f\\u1160\\u3164\\uffa0"},
        EscapeCase{"a blank pattern of dots", "\u2800", "\\u2800"},
        EscapeCase{"zero-width space and word joiner", "a\u200b\u2060b", "a\\u200b\\u2060b"},
        EscapeCase{"an invisible note head", "\U0001d159", "\\U0001d159"},
        EscapeCase{"characters that are none", "\uffff\ufdd0", "\\uffff\\ufdd0"},
        EscapeCase{"a joiner that joins nothing", "\u200da\u200d", "\\u200da\\u200d"},
        EscapeCase{"a joiner behind what is escaped itself", "\u2800\u200d", "\\u2800\\u200d"},
        EscapeCase{"joiners one after another", "ك\u200c\u200cم", "ك\u200c\\u200cم"},
        EscapeCase{"a joiner between letters that it holds apart stays", "می\u200cم", "می\u200cم"},
        EscapeCase{"a variation selector behind a letter", "a\ufe0f", "a\\ufe0f"},
        EscapeCase{"variation selectors one after another", "❤\ufe0f\ufe0f", "❤\ufe0f\\ufe0f"},
        EscapeCase{"a heart in flames stays", "❤\ufe0f\u200d🔥", "❤\ufe0f\u200d🔥"},
        EscapeCase{"key caps stay", "1\ufe0f\u20e3#\ufe0f\u20e3", "1\ufe0f\u20e3#\ufe0f\u20e3"},
        EscapeCase{"a chosen form of an ideograph stays", "葛\U000e0100", "葛\U000e0100"},
        EscapeCase{"a byte that is no UTF-8", "a\xff", "a\\xff"},
        EscapeCase{"an overlong form", "\xc0\xaf", "\\xc0\\xaf"},
        EscapeCase{"a surrogate in UTF-8", "\xed\xa0\x80", "\\xed\\xa0\\x80"},
        EscapeCase{"a character cut short", "\xf0\x9f\x8e", "\\xf0\\x9f\\x8e"}));

TEST(Text, IsComposedToNormalFormC) {
    EXPECT_EQ(composed("Cafe\u0301"), "Caf\u00E9");
    EXPECT_EQ(composed("Caf\u00E9"), "Caf\u00E9");
    EXPECT_EQ(composed("\u1112\u1161\u11AB"), "\uD55C") << "Hangul";
    EXPECT_EQ(composed("q\u0307\u0323"), "q\u0323\u0307") << "marks have an order";
    EXPECT_EQ(composed("\uFB01"), "\uFB01") << "ligatures are letters of their own";
    EXPECT_EQ(composed(""), "");
    EXPECT_EQ(composed(std::string("a\0e\u0301", 5)), std::string("a\0\u00E9", 4));
    EXPECT_EQ(composed("e\u0301\xff"), "e\u0301\xff") << "no UTF-8";
}

TEST(Text, WithoutCaseIsTheSameInUpperAndLowerCase) {
    EXPECT_EQ(caseless("Glo\u0308CK"), caseless("gl\u00D6ck"));
    EXPECT_EQ(caseless("STRASSE"), caseless("stra\u00DFe"));
    EXPECT_NE(caseless("Horn"), caseless("Harp"));
}

TEST(Text, OfMoreMarksThanAnyNameHasIsNotPutInOrder) {
    std::string marks = "a";
    for (int i = 0; i < 2000; ++i) {
        marks += "\u0307\u0323";
    }
    EXPECT_EQ(composed(marks), marks);
}

TEST(JsonForTerminal, EscapesSoThatTheValueStaysTheSame) {
    const std::string name = "a\u202eb\u009bc\U000e0001d\u200d\u3164 🎵 ü";
    const std::string shown = jsonForTerminal(nlohmann::json{{"name", name}}.dump(2));
    EXPECT_EQ(shown.find("\u202e"), std::string::npos);
    EXPECT_EQ(shown.find("\u009b"), std::string::npos);
    EXPECT_EQ(shown.find("\u200d"), std::string::npos);
    EXPECT_EQ(shown.find("\u3164"), std::string::npos);
    EXPECT_NE(shown.find("🎵 ü"), std::string::npos);
    EXPECT_EQ(nlohmann::json::parse(shown).at("name"), name);
}

TEST(DisplayWidth, CountsColumnsNotBytes) {
    EXPECT_EQ(displayWidth("abc"), 3U);
    EXPECT_EQ(displayWidth("äöü"), 3U);
    EXPECT_EQ(displayWidth("e\u0301"), 1U);
    EXPECT_EQ(displayWidth("着信音"), 6U);
    EXPECT_EQ(displayWidth("🎵"), 2U);
}

TEST(Fitted, CutsBetweenCharactersAndSaysSo) {
    EXPECT_EQ(fitted("Marimba", 7), "Marimba");
    EXPECT_EQ(fitted("Marimba", 4), "Mar…");
    EXPECT_EQ(fitted("着信音", 4), "着…");
    EXPECT_EQ(fitted("Marimba", 1), "…");
    EXPECT_EQ(fitted("Marimba", 0), "");
}

TEST(FormatBytes, UsesTheUnitThatFits) {
    EXPECT_EQ(formatBytes(0), "0 B");
    EXPECT_EQ(formatBytes(1023), "1023 B");
    EXPECT_EQ(formatBytes(1024), "1.0 KiB");
    EXPECT_EQ(formatBytes(1024 * 1024 - 1), "1.0 MiB");
    EXPECT_EQ(formatBytes(5 * 1024 * 1024 + 512 * 1024), "5.5 MiB");
    EXPECT_EQ(formatBytes(UINT64_MAX), "16777216.0 TiB");
}

TEST(FormatDuration, ShowsHoursOnlyWhenThereAreSome) {
    EXPECT_EQ(formatDuration(0), "0:00");
    EXPECT_EQ(formatDuration(6.6), "0:07");
    EXPECT_EQ(formatDuration(754), "12:34");
    EXPECT_EQ(formatDuration(3723), "1:02:03");
    EXPECT_EQ(formatDuration(-1), "0:00");
    EXPECT_EQ(formatDuration(1e12), "99:00:00");
}

TEST(Counted, KnowsOneFromSeveral) {
    EXPECT_EQ(counted(0, "file"), "0 files");
    EXPECT_EQ(counted(1, "file"), "1 file");
    EXPECT_EQ(counted(2, "entry", "entries"), "2 entries");
}

TEST(QuotedList, ShortensLongLists) {
    EXPECT_EQ(quotedList({"A"}), "\"A\"");
    EXPECT_EQ(quotedList({"A", "B", "C"}), "\"A\", \"B\" and \"C\"");
    EXPECT_EQ(quotedList({"A", "B", "C", "D"}, 3), "\"A\", \"B\" and 2 more");
}

TEST(CloseNames, FindsWhatAPersonMayHaveMeant) {
    const std::vector<std::string> names{"Marimba", "Old Phone", "Glöckchen", "Old Car Horn"};
    EXPECT_THAT(closeNames("marimba", names), ElementsAre("Marimba"));
    EXPECT_THAT(closeNames("Marinba", names), ElementsAre("Marimba"));
    EXPECT_THAT(closeNames("GLÖCKCHEN", names), ElementsAre("Glöckchen"));
    EXPECT_THAT(closeNames("Phone", names), ElementsAre("Old Phone"));
    EXPECT_THAT(closeNames("old", names), ElementsAre("Old Phone", "Old Car Horn"));
    EXPECT_THAT(closeNames("Xylophone Solo", names), IsEmpty());
}
