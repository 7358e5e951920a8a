#include "tests/corefoundation/Support.h"

#include <CoreFoundation/CFPropertyListPlist.h>
#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>

namespace krl::cf::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr const char* kXMLHead = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                 "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                 "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                                 "<plist version=\"1.0\">\n";

struct ReadResult {
    CFRef<CFTypeRef> object;
    std::string error;
};

ReadResult read(std::string_view document,
                CFOptionFlags options = kCFPropertyListMutableContainersAndLeaves) {
    CFRef<CFStringRef> error;
    auto object = adopt(CFPropertyListCreateFromXMLData(nullptr, makeData(document).get(), options,
                                                        error.receive()));
    return {object, error ? textOf(error.get()) : ""};
}

/// The tagged tree of a document, or a null value.
Json treeIn(std::string_view document) {
    return treeOf(read(document).object.get());
}

std::string write(CFTypeRef object) {
    auto data = adopt(CFPropertyListCreateXMLData(nullptr, object));
    return data ? bytesOf(data.get()) : "(null)";
}

/// What stands between the head and the foot of a document.
std::string writtenBody(CFTypeRef object) {
    const std::string xml = write(object);
    const std::string head = kXMLHead;
    const std::string foot = "</plist>\n";
    EXPECT_TRUE(xml.starts_with(head) && xml.ends_with(foot)) << xml;
    return xml.substr(head.size(), xml.size() - head.size() - foot.size());
}

std::string repeated(std::string_view text, int times) {
    std::string result;
    for (int i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

const Json kNothing = nullptr;

Json stringTree(const std::string& text) {
    return {{"type", "string"}, {"value", text}};
}

Json integerTree(const std::string& decimal) {
    return {{"type", "int"}, {"value", decimal}};
}

Json dateTree(const std::string& seconds) {
    return {{"type", "date"}, {"absolute_time", seconds}};
}

// ---------------------------------------------------------------------------- vectors

/// Why a document is read in another way here than in the vectors; empty when it is read alike. All
/// of these documents are null here.
std::string skippedBecause(const Json& row) {
    if (row.at("format") == "openstep" || row.at("format") == "binary") {
        return "only XML is read: a catalogue in another format counts as none";
    }
    return "";
}

TEST(PropertyListVectors, Reading) {
    for (const Json& row : loadVectors("plist_xml.json", "vectors")) {
        SCOPED_TRACE(row.at("name").get<std::string>());
        const auto result = read(decodeBase64(row.at("input_base64")));
        const Json tree = sorted(treeOf(result.object.get()));
        if (!skippedBecause(row).empty()) {
            EXPECT_EQ(tree, kNothing) << skippedBecause(row);
            continue;
        }
        Json expected = row.at("result");
        EXPECT_EQ(tree, expected);
        EXPECT_EQ(result.error.empty(), !expected.is_null()) << result.error;
    }
}

TEST(PropertyListVectors, Writing) {
    for (const Json& row : loadVectors("plist_write.json", "vectors")) {
        SCOPED_TRACE(row.at("name").get<std::string>());
        EXPECT_EQ(write(objectFrom(row.at("plist")).get()), decodeBase64(row.at("xml_base64")));
    }
}

TEST(PropertyListVectors, WhatIsWrittenReadsBackAlike) {
    for (const Json& row : loadVectors("plist_write.json", "vectors")) {
        SCOPED_TRACE(row.at("name").get<std::string>());
        const std::string document = decodeBase64(row.at("xml_base64"));
        auto object = read(document).object;
        ASSERT_TRUE(object);
        EXPECT_EQ(write(object.get()), document);
    }
}

TEST(PropertyListVectors, NodesHoldTheSame) {
    for (const Json& row : loadVectors("plist_write.json", "vectors")) {
        SCOPED_TRACE(row.at("name").get<std::string>());
        auto object = objectFrom(row.at("plist"));
        const std::unique_ptr<void, void (*)(plist_t)> node(
            CFPropertyListCreatePlistNode(object.get()), plist_free);
        ASSERT_TRUE(node);
        auto back = adopt(CFPropertyListCreateFromPlistNode(node.get()));
        EXPECT_EQ(treeOf(back.get()), treeOf(object.get()));
    }
}

// ---------------------------------------------------------------------------- reading: values

TEST(PropertyListReading, Integers) {
    const std::map<std::string, std::string> rows = {
        {"0", "0"},
        {"-0", "0"},
        {"007", "7"},
        {"+5", "5"},
        {" \t\r\n- \t5", "-5"},
        {"0x1F", "31"},
        {"-0X10", "-16"},
        {"-9223372036854775808", "-9223372036854775808"},
        {"9223372036854775808", "9223372036854775808"},
        {"18446744073709551615", "18446744073709551615"},
        {"0xFFFFFFFFFFFFFFFF", "18446744073709551615"},
    };
    for (const auto& [text, value] : rows) {
        EXPECT_EQ(treeIn("<integer>" + text + "</integer>"), integerTree(value)) << text;
    }
    for (const char* text : {"", " ", "-", "0x", "0xg", "1.5", "5 ", "--5", "- -5", "1a",
                             "18446744073709551616", "-9223372036854775809", "\xD9\xA3"}) {
        EXPECT_EQ(treeIn("<integer>" + std::string(text) + "</integer>"), kNothing) << text;
    }
}

TEST(PropertyListReading, Reals) {
    const std::map<std::string, double> rows = {
        {"1.5", 1.5},        {" 2", 2},         {"-.5", -0.5},
        {"5.", 5},           {"+1e3", 1000},    {"1E-2", 0.01},
        {"1e999", HUGE_VAL}, {"INF", HUGE_VAL}, {"-Infinity", -HUGE_VAL}};
    for (const auto& [text, value] : rows) {
        EXPECT_EQ(treeIn("<real>" + text + "</real>"), treeOf(makeReal(value).get())) << text;
    }
    EXPECT_EQ(treeIn("<real>-NaN</real>").at("value"), "nan");
    for (const char* text : {"", " ", ".", "1.5 ", "0x10", "1e", "1e+", "e5", "abc", "1_0", "1.5f",
                             "nan(5)", "infinit"}) {
        EXPECT_EQ(treeIn("<real>" + std::string(text) + "</real>"), kNothing) << text;
    }
}

TEST(PropertyListReading, RealsDoNotDependOnTheLocale) {
    const NumbersWithCommas numbersWithCommas;
    if (!numbersWithCommas.areThere()) {
        GTEST_SKIP() << "no locale whose numbers have a comma is installed";
    }
    EXPECT_EQ(treeIn("<real>1.5</real>"), treeOf(makeReal(1.5).get()));
    EXPECT_EQ(writtenBody(makeReal(1.5).get()), "<real>1.5</real>\n");
}

TEST(PropertyListReading, Dates) {
    const std::map<std::string, std::string> rows = {
        {"2001-01-01T00:00:00Z", "0"},          {"2000-12-31T23:59:59Z", "-1"},
        {"2001-13-01T00:00:00Z", "31536000"},   {"2001-01-32T24:60:60Z", "2768460"},
        {"2000-02-29T00:00:00Z", "-26524800"},  {"10000-01-01T00:00:00Z", "252423993600"},
        {"-1-01-01T00:00:00Z", "-63177062400"}, {"0-01-01T00:00:00Z", "-63145526400"},
    };
    for (const auto& [text, seconds] : rows) {
        EXPECT_EQ(treeIn("<date>" + text + "</date>"), dateTree(seconds)) << text;
    }
    for (const char* text :
         {"", "2001-01-01", "2001-1-01T00:00:00Z", "2001-01-01T00:00:00", "2001-01-01T00:00:00.5Z",
          " 2001-01-01T00:00:00Z", "2001-01-01T00:00:00Z ", "-01-01T00:00:00Z",
          "+2001-01-01T00:00:00Z"}) {
        EXPECT_EQ(treeIn("<date>" + std::string(text) + "</date>"), kNothing) << text;
    }
}

TEST(PropertyListReading, DatesOfAnyYearStandAnywhere) {
    const Json tree = treeIn("<dict><key>a</key><array><date>12345-01-01T00:00:00Z</date>"
                             "<date >-5-01-01T00:00:00Z</date ></array></dict>");
    ASSERT_FALSE(tree.is_null());
    const Json& items = tree.at("entries").at(0).at(1).at("items");
    EXPECT_EQ(items.at(0), dateTree("326425075200"));
    EXPECT_EQ(items.at(1).at("type"), "date");
}

TEST(PropertyListReading, Data) {
    const std::map<std::string, std::string> rows = {{"", ""},
                                                     {"AQID", "AQID"},
                                                     {"\n\tAQ\n\tID\n", "AQID"},
                                                     {"AQI", ""},
                                                     {"AQIDB", "AQID"},
                                                     {"AQI=", "AQI="},
                                                     {"A!Q*I-D", "AQID"},
                                                     {"AQ==AQID", "AQECAw=="},
                                                     {"=AQID", "AAQI"},
                                                     {"AQIDBA==", "AQIDBA=="}};
    for (const auto& [text, base64] : rows) {
        EXPECT_EQ(treeIn("<data>" + text + "</data>"), Json({{"type", "data"}, {"base64", base64}}))
            << text;
    }
    EXPECT_EQ(treeIn("<data>AQID\xC3\xA9</data>"), kNothing);
    EXPECT_EQ(treeIn("<data>AQID<!-- c --></data>"), kNothing);
}

TEST(PropertyListReading, Texts) {
    const std::map<std::string, std::string> rows = {
        {"", ""},
        {" a\r\n\tb ", " a\r\n\tb "},
        {"&lt;&gt;&amp;&apos;&quot;", "<>&'\""},
        {"&#65;&#x42;&#x0000043;", "ABC"},
        {"&#x1F3B5;&#10;", "\xF0\x9F\x8E\xB5\n"},
        {"a<![CDATA[<b> & c]]>d<![CDATA[]]>&amp;", "a<b> & cd&"},
        {"a>b]]>", "a>b]]>"},
        {"\x01\x7F\xEF\xBF\xBE", "\x01\x7F\xEF\xBF\xBE"},
    };
    for (const auto& [text, value] : rows) {
        EXPECT_EQ(treeIn("<string>" + text + "</string>"), stringTree(value)) << text;
        const Json dictionary = treeIn("<dict><key>" + text + "</key><true/></dict>");
        ASSERT_FALSE(dictionary.is_null()) << text;
        EXPECT_EQ(dictionary.at("entries").at(0).at(0), value) << text;
    }
    for (const char* text :
         {"a<b",   "a<b/>",        "a<!-- c -->", "&",        "&;",         "&amp",
          "&AMP;", "&nbsp;",       "&#;",         "&#x;",     "&#X41;",     "&#-5;",
          "&#+5;", "&# 5;",        "&#x4g;",      "&#xD800;", "&#x110000;", "&#x000000041;",
          "\xFF",  "\xED\xA0\x80", "<![CDATA[x",  "&#65;\xFF"}) {
        EXPECT_EQ(treeIn("<string>" + std::string(text) + "</string>"), kNothing) << text;
    }
}

TEST(PropertyListReading, TextsMayHoldZeros) {
    const std::string zero(1, '\0');
    EXPECT_EQ(treeIn("<string>a" + zero + "b&#0;c</string>"),
              stringTree("a" + zero + "b" + zero + "c"));
    const Json tree = treeIn("<dict><key>" + zero + "</key><string>x</string></dict>");
    ASSERT_FALSE(tree.is_null());
    EXPECT_EQ(tree.at("entries").at(0).at(0), zero);
}

TEST(PropertyListReading, ABadCharacterInACommentDoesNotMatter) {
    EXPECT_EQ(treeIn("<array><!-- \xFF --></array>").at("items"), Json::array());
}

// ---------------------------------------------------------------------------- reading: structure

TEST(PropertyListReading, ReadsTheseForms) {
    const Json a = stringTree("a");
    for (const char* document :
         {"<string>a</string>", " \t\r\n<string>a</string>", "<plist><string>a</string></plist>",
          "<plist version='1.0' x=\"y\"><string>a</string></plist >",
          "<string a=\"b\">a</string\n>", "<key>a</key>", "<plist><key>a</key></plist>",
          "<string>a</string>trailing <",
          "<?xml version=\"1.0\"?><!-- c --><!DOCTYPE x><?p?>\n<string>a</string>",
          "<plist><!-- c --><?p?> <string>a</string> <!-- c --></plist>"}) {
        EXPECT_EQ(treeIn(document), a) << document;
    }
    for (const char* document : {"<string/>", "<string />", "<string></string>", "<key/>"}) {
        EXPECT_EQ(treeIn(document), stringTree("")) << document;
    }
    for (const char* document : {"<true/>", "<true />", "<true></true>", "<true x='y'></true >"}) {
        EXPECT_EQ(treeIn(document), Json({{"type", "bool"}, {"value", true}})) << document;
    }
    for (const char* document :
         {"<dict/>", "<dict></dict>", "<dict> <!-- c --> </dict>", "<dict x=''/>"}) {
        EXPECT_EQ(treeIn(document), Json({{"type", "dict"}, {"entries", Json::array()}}))
            << document;
    }
    EXPECT_EQ(keysOf(cast<CFDictionaryRef>(
                  read("<dict><key/><key>v</key><key>k</key><dict/></dict>").object.get())),
              (std::vector<std::string>{"", "k"}));
}

TEST(PropertyListReading, RefusesTheseForms) {
    for (const char* document : {"",
                                 " ",
                                 "hello",
                                 "hello world",
                                 "42",
                                 "'a'",
                                 "{a=b;}",
                                 "{\"a\":1}",
                                 "bplist00",
                                 "<",
                                 "<>",
                                 "< string>a</string>",
                                 "<String>a</String>",
                                 "<html/>",
                                 "<plist/>",
                                 "<plist></plist>",
                                 "<plist>a</plist>",
                                 "<plist><true/><true/></plist>",
                                 "<plist><true/>a</plist>",
                                 "<plist>a<true/></plist>",
                                 "<plist><true/>",
                                 "<string>a",
                                 "<string>a<string>",
                                 "<string>a</ string>",
                                 "<string>a</strin>",
                                 "<string>a</strings>",
                                 "<string>a</string",
                                 "<true>",
                                 "<true>x</true>",
                                 "<true> </true>",
                                 "<true><true/></true>",
                                 "<array>a</array>",
                                 "<array><true/>a</array>",
                                 "<array><true/>",
                                 "<array></dict>",
                                 "<array><b/></array>",
                                 "<dict>a</dict>",
                                 "<dict><true/></dict>",
                                 "<dict><key>a</key></dict>",
                                 "<dict><key>a</key>",
                                 "<dict><key>a</key><key>b</key>",
                                 "<dict><key>a</key>x<true/></dict>",
                                 "<integer/>",
                                 "<real/>",
                                 "<data/>",
                                 "<date/>",
                                 "<integer>1<!-- c --></integer>",
                                 "<!-- a",
                                 "<?xml",
                                 "<!DOCTYPE plist [ <!ENTITY a \"b\"> ]><true/>",
                                 "<!DOCTYPE plist",
                                 "<array><!DOCTYPE a><true/></array>",
                                 "<plist>\x0C<true/></plist>",
                                 "x<true/>",
                                 "<!-- x -->",
                                 "<array><plist><true/></plist></array>",
                                 "<![CDATA[a]]>"}) {
        const auto result = read(document);
        EXPECT_FALSE(result.object) << document;
        EXPECT_THAT(result.error, HasSubstr("No property list: ")) << document;
    }
    EXPECT_EQ(treeIn(std::string_view("\0", 1)), kNothing);
}

TEST(PropertyListReading, TellsWhereADocumentIsWrong) {
    EXPECT_THAT(read("<array>\n<true/>\n<bool/>\n</array>").error, HasSubstr("line 3"));
}

TEST(PropertyListReading, EveryTruncationIsRefused) {
    const std::string document =
        write(objectFrom(loadVectors("plist_write.json", "vectors").at(6).at("plist")).get());
    const size_t complete = document.rfind('>') + 1;
    ASSERT_TRUE(read(document.substr(0, complete)).object);
    for (size_t size = 0; size < complete; ++size) {
        EXPECT_FALSE(read(document.substr(0, size)).object) << document.substr(0, size);
    }
}

TEST(PropertyListReading, DictionariesKeepTheOrderOfTheDocument) {
    auto object =
        read("<dict><key>z</key><true/><key>a</key><true/><key>m</key><true/></dict>").object;
    EXPECT_THAT(keysOf(cast<CFDictionaryRef>(object.get())), ElementsAre("z", "a", "m"));
}

TEST(PropertyListReading, OfARepeatedKeyTheLastValueCountsAtTheFirstPlace) {
    auto object = read("<dict><key>a</key><string>1</string><key>b</key><true/>"
                       "<key>a</key><string>2</string></dict>")
                      .object;
    auto dictionary = cast<CFDictionaryRef>(object.get());
    EXPECT_THAT(keysOf(dictionary), ElementsAre("a", "b"));
    EXPECT_EQ(textOf(cast<CFStringRef>(CFDictionaryGetValue(dictionary, CFSTR("a")))), "2");
}

TEST(PropertyListReading, NestsTo512AndNoDeeper) {
    const auto nested = [](int depth) {
        return repeated("<array>", depth) + repeated("</array>", depth);
    };
    EXPECT_TRUE(read(nested(512)).object);
    EXPECT_THAT(read(nested(513)).error, HasSubstr("nested too deeply"));
    EXPECT_TRUE(
        read(repeated("<dict><key>k</key>", 511) + "<true/>" + repeated("</dict>", 511)).object);
    EXPECT_FALSE(read(repeated("<array>", 1000000)).object);
    EXPECT_FALSE(read(repeated("<dict><key>k</key>", 300000)).object);
}

TEST(PropertyListReading, ReservedKeysAreOrdinaryKeys) {
    const Json tree = treeIn("<dict><key>CF$UID</key><integer>5</integer></dict>");
    ASSERT_FALSE(tree.is_null());
    EXPECT_EQ(tree.at("entries"), Json::array({Json::array({"CF$UID", integerTree("5")})}));
}

TEST(PropertyListReading, MutabilityIsAsAskedFor) {
    const char* document = "<dict><key>a</key><array/><key>s</key><string>x</string>"
                           "<key>d</key><data>AQID</data></dict>";
    // A copy of an immutable object is the object itself.
    const auto isMutable = [](CFTypeRef object) {
        CFRef<CFTypeRef> copy;
        if (auto array = cast<CFArrayRef>(object)) {
            copy = adopt(CFArrayCreateCopy(nullptr, array));
        } else if (auto dictionary = cast<CFDictionaryRef>(object)) {
            copy = adopt(CFDictionaryCreateCopy(nullptr, dictionary));
        } else if (auto string = cast<CFStringRef>(object)) {
            copy = adopt(CFStringCreateCopy(nullptr, string));
        } else if (auto data = cast<CFDataRef>(object)) {
            copy = adopt(CFDataCreateCopy(nullptr, data));
        }
        return copy.get() != object;
    };
    for (const auto& [options, containers, leaves] :
         {std::tuple{kCFPropertyListImmutable, false, false},
          std::tuple{kCFPropertyListMutableContainers, true, false},
          std::tuple{kCFPropertyListMutableContainersAndLeaves, true, true}}) {
        auto object = read(document, static_cast<CFOptionFlags>(options)).object;
        auto dictionary = cast<CFDictionaryRef>(object.get());
        EXPECT_EQ(isMutable(dictionary), containers) << options;
        EXPECT_EQ(isMutable(CFDictionaryGetValue(dictionary, CFSTR("a"))), containers) << options;
        EXPECT_EQ(isMutable(CFDictionaryGetValue(dictionary, CFSTR("s"))), leaves) << options;
        EXPECT_EQ(isMutable(CFDictionaryGetValue(dictionary, CFSTR("d"))), leaves) << options;
    }
}

// ---------------------------------------------------------------------------- reading: encodings

std::string utf16(std::string_view ascii, bool bigEndian) {
    std::string bytes;
    for (const char character : ascii) {
        bytes += bigEndian ? std::string{'\0', character} : std::string{character, '\0'};
    }
    return bytes;
}

TEST(PropertyListReading, ByteOrderMarksDecide) {
    const Json a = stringTree("a");
    EXPECT_EQ(treeIn("\xEF\xBB\xBF<?xml encoding='x-unknown'?><string>a</string>"), a);
    EXPECT_EQ(treeIn("\xFF\xFE" + utf16("<string>a</string>", false)), a);
    EXPECT_EQ(treeIn("\xFE\xFF" + utf16("<string>a</string>", true)), a);
    std::string utf32 = "\xFF\xFE";
    utf32 += std::string(2, '\0');
    for (const char character : std::string("<string>a</string>")) {
        utf32 += character;
        utf32 += std::string(3, '\0');
    }
    EXPECT_EQ(treeIn(utf32), a);
}

TEST(PropertyListReading, DeclaredEncodings) {
    const auto document = [](const std::string& encoding, const std::string& text) {
        return "<?xml version='1.0' encoding='" + encoding + "'?><string>" + text + "</string>";
    };
    EXPECT_EQ(treeIn(document("ISO-8859-1", "\xE9")), stringTree("\xC3\xA9"));
    EXPECT_EQ(treeIn(document("iso-8859-15", "\xA4")), stringTree("\xE2\x82\xAC"));
    EXPECT_EQ(treeIn(document("Windows-1252", "\x80")), stringTree("\xE2\x82\xAC"));
    EXPECT_EQ(treeIn(document("US-ASCII", "\xE9")), stringTree("\xC3\xA9"));
    EXPECT_EQ(treeIn(document("utf8", "\xC3\xA9")), stringTree("\xC3\xA9"));
    for (const char* unknown : {"x-unknown", "macintosh", "UTF-16", "UTF-32", "UTF-7", "iso-8859-",
                                "iso-8859-1//TRANSLIT", "../../etc/passwd"}) {
        EXPECT_EQ(treeIn(document(unknown, "a")), kNothing) << unknown;
    }
}

TEST(PropertyListReading, HalfACharacterOfUtf16IsRefused) {
    EXPECT_EQ(treeIn("\xFF\xFE" + utf16("<string>a</string>", false) + "x"), kNothing);
    EXPECT_EQ(treeIn(std::string("\xFF\xFE\x00\xD8", 4) + utf16("<true/>", false)), kNothing);
}

// ---------------------------------------------------------------------------- writing

TEST(PropertyListWriting, WritesNumbersAsThePlatformDoes) {
    const int8_t small = -5;
    auto number = adopt(CFNumberCreate(nullptr, kCFNumberSInt8Type, &small));
    EXPECT_EQ(writtenBody(number.get()), "<integer>-5</integer>\n");
    const std::pair<double, const char*> reals[] = {{0.1, "0.10000000000000001"},
                                                    {44100, "44100"},
                                                    {0.0, "0.0"},
                                                    {-0.0, "0.0"},
                                                    {HUGE_VAL, "+infinity"},
                                                    {-HUGE_VAL, "-infinity"},
                                                    {__builtin_nan(""), "nan"},
                                                    {1e300, "1.0000000000000001e+300"},
                                                    {-1.5, "-1.5"}};
    for (const auto& [value, text] : reals) {
        EXPECT_EQ(writtenBody(makeReal(value).get()), "<real>" + std::string(text) + "</real>\n");
    }
    auto large = read("<integer>18446744073709551615</integer>").object;
    EXPECT_EQ(writtenBody(large.get()), "<integer>18446744073709551615</integer>\n");
}

TEST(PropertyListWriting, WritesDatesRoundedDown) {
    const std::pair<double, const char*> dates[] = {{0.9, "2001-01-01T00:00:00Z"},
                                                    {-0.1, "2000-12-31T23:59:59Z"},
                                                    {258986096, "2009-03-17T12:34:56Z"},
                                                    {252423993600, "10000-01-01T00:00:00Z"}};
    for (const auto& [time, text] : dates) {
        auto date = adopt(CFDateCreate(nullptr, time));
        EXPECT_EQ(writtenBody(date.get()), "<date>" + std::string(text) + "</date>\n");
    }
}

TEST(PropertyListWriting, EscapesThreeCharactersOnly) {
    EXPECT_EQ(writtenBody(makeString("<a & 'b' \"c\">\r\n\x01\xC3\xA9").get()),
              "<string>&lt;a &amp; 'b' \"c\"&gt;\r\n\x01\xC3\xA9</string>\n");
}

TEST(PropertyListWriting, SortsKeysByCodeUnits) {
    auto dictionary = makeDictionary();
    for (const char* key : {"\xEF\xAC\x81", "\xF0\x9F\x8E\xB5", "a", "Z", "aa"}) {
        CFDictionarySetValue(dictionary.get(), makeString(key).get(), kCFBooleanTrue);
    }
    const Json tree = treeIn(write(dictionary.get()));
    std::vector<std::string> keys;
    for (const Json& entry : tree.at("entries")) {
        keys.push_back(entry.at(0));
    }
    EXPECT_THAT(keys, ElementsAre("Z", "a", "aa", "\xF0\x9F\x8E\xB5", "\xEF\xAC\x81"));
}

TEST(PropertyListWriting, WritesFractionsOfEveryKindBack) {
    auto array = makeArray();
    for (const double value : {0.1, 1.0 / 3, 5e-324, 1.7976931348623157e308, -123456.789}) {
        CFArrayAppendValue(array.get(), makeReal(value).get());
    }
    EXPECT_TRUE(CFEqual(read(write(array.get())).object.get(), array.get()));
}

TEST(PropertyListWriting, TextsWithZerosAndDistantDatesSurvive) {
    auto array = makeArray();
    CFArrayAppendValue(array.get(), makeString(std::string_view("a\0b", 3)).get());
    CFArrayAppendValue(array.get(), adopt(CFDateCreate(nullptr, 1e12)).get());
    CFArrayAppendValue(array.get(), adopt(CFDateCreate(nullptr, -1e12)).get());
    EXPECT_TRUE(CFEqual(read(write(array.get())).object.get(), array.get()));
}

TEST(PropertyListWriting, RefusesWhatIsNoPropertyList) {
    const UniChar unpaired[] = {'a', 0xD83C};
    auto brokenText = adopt(CFStringCreateWithCharacters(nullptr, unpaired, 2));
    auto url =
        adopt(CFURLCreateWithFileSystemPath(nullptr, CFSTR("/a"), kCFURLPOSIXPathStyle, false));
    auto numberKey = makeDictionary();
    CFDictionarySetValue(numberKey.get(), makeInteger(1).get(), kCFBooleanTrue);
    auto brokenKey = makeDictionary();
    CFDictionarySetValue(brokenKey.get(), brokenText.get(), kCFBooleanTrue);
    auto inArray = makeArray();
    CFArrayAppendValue(inArray.get(), url.get());
    auto itself = makeArray();
    CFArrayAppendValue(itself.get(), itself.get());
    const std::initializer_list<CFTypeRef> objects = {
        nullptr,         kCFNull,         brokenText.get(), url.get(),
        numberKey.get(), brokenKey.get(), inArray.get(),    itself.get()};
    for (CFTypeRef object : objects) {
        EXPECT_FALSE(CFPropertyListIsValid(object, kCFPropertyListXMLFormat_v1_0));
        EXPECT_EQ(CFPropertyListCreateXMLData(nullptr, object), nullptr);
        EXPECT_EQ(CFPropertyListCreatePlistNode(object), nullptr);
    }
    CFArrayRemoveAllValues(itself.get());
}

TEST(PropertyListWriting, IsValidInXMLOnly) {
    EXPECT_TRUE(CFPropertyListIsValid(CFSTR("a"), kCFPropertyListXMLFormat_v1_0));
    EXPECT_FALSE(CFPropertyListIsValid(CFSTR("a"), 200));
}

TEST(PropertyListWriting, NestsTo512AndNoDeeper) {
    auto object = read(repeated("<array>", 512) + repeated("</array>", 512)).object;
    EXPECT_TRUE(read(write(object.get())).object);
    auto outer = makeArray();
    CFArrayAppendValue(outer.get(), object.get());
    EXPECT_EQ(write(outer.get()), "(null)");
    EXPECT_EQ(CFPropertyListCreatePlistNode(outer.get()), nullptr);
}

TEST(PropertyListWriting, TenThousandEntriesReadBackInTheOrderWritten) {
    auto catalogue = makeDictionary();
    for (int i = 0; i < 10000; ++i) {
        auto entry = makeDictionary();
        CFDictionarySetValue(entry.get(), CFSTR("Name"), makeString("n" + std::to_string(i)).get());
        CFDictionarySetValue(entry.get(), CFSTR("Size"), makeInteger(i).get());
        CFDictionarySetValue(catalogue.get(), makeString("f" + std::to_string(i)).get(),
                             entry.get());
    }
    const std::string document = write(catalogue.get());
    auto back = read(document).object;
    EXPECT_TRUE(CFEqual(back.get(), catalogue.get()));
    auto keys = keysOf(cast<CFDictionaryRef>(back.get()));
    EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
    EXPECT_EQ(write(back.get()), document);
}

// ---------------------------------------------------------------------------- nodes

TEST(PlistNode, KeepsTheOrderOfADictionary) {
    auto dictionary = makeDictionary();
    for (const char* key : {"z", "a", "m"}) {
        CFDictionarySetValue(dictionary.get(), makeString(key).get(), kCFBooleanTrue);
    }
    const std::unique_ptr<void, void (*)(plist_t)> node(
        CFPropertyListCreatePlistNode(dictionary.get()), plist_free);
    auto back = adopt(CFPropertyListCreateFromPlistNode(node.get()));
    EXPECT_THAT(keysOf(cast<CFDictionaryRef>(back.get())), ElementsAre("z", "a", "m"));
}

TEST(PlistNode, KeepsDatesWithTheirFraction) {
    for (const double time : {-0.5, 0.25, 5e11, -5e11, 258986096.125}) {
        auto date = adopt(CFDateCreate(nullptr, time));
        const std::unique_ptr<void, void (*)(plist_t)> node(
            CFPropertyListCreatePlistNode(date.get()), plist_free);
        ASSERT_TRUE(node);
        auto back = adopt(CFPropertyListCreateFromPlistNode(node.get()));
        EXPECT_EQ(CFDateGetAbsoluteTime(cast<CFDateRef>(back.get())), time);
    }
}

TEST(PlistNode, TellsNegativeFromLarge) {
    for (const char* document :
         {"<integer>-1</integer>", "<integer>18446744073709551615</integer>",
          "<integer>-9223372036854775808</integer>", "<integer>9223372036854775808</integer>"}) {
        auto object = read(document).object;
        const std::unique_ptr<void, void (*)(plist_t)> node(
            CFPropertyListCreatePlistNode(object.get()), plist_free);
        auto back = adopt(CFPropertyListCreateFromPlistNode(node.get()));
        EXPECT_EQ(treeOf(back.get()), treeOf(object.get()));
    }
}

TEST(PlistNode, OfNothingIsNothing) {
    EXPECT_EQ(CFPropertyListCreateFromPlistNode(nullptr), nullptr);
    EXPECT_EQ(CFPropertyListCreatePlistNode(nullptr), nullptr);
}

TEST(PlistNode, OfATypeWithoutObjectIsNothing) {
    const std::unique_ptr<void, void (*)(plist_t)> node(plist_new_array(), plist_free);
    plist_array_append_item(node.get(), plist_new_uid(5));
    EXPECT_EQ(CFPropertyListCreateFromPlistNode(node.get()), nullptr);
}

TEST(PlistNode, OfTextThatIsNotUtf8IsNothing) {
    const std::unique_ptr<void, void (*)(plist_t)> node(plist_new_string("a\xFF"), plist_free);
    EXPECT_EQ(CFPropertyListCreateFromPlistNode(node.get()), nullptr);
    const std::unique_ptr<void, void (*)(plist_t)> dictionary(plist_new_dict(), plist_free);
    plist_dict_set_item(dictionary.get(), "\xFF", plist_new_bool(1));
    EXPECT_EQ(CFPropertyListCreateFromPlistNode(dictionary.get()), nullptr);
}

TEST(PlistNode, IsNotMadeOfTextsWithZeros) {
    EXPECT_EQ(CFPropertyListCreatePlistNode(makeString(std::string_view("a\0b", 3)).get()),
              nullptr);
}

} // namespace
} // namespace krl::cf::test
