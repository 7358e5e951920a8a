#include "tests/corefoundation/Support.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <sys/resource.h>
#include <unistd.h>

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
        // The platform's writer sorts, ours keeps the order: so the keys are added sorted.
        EXPECT_EQ(write(objectFrom(sorted(row.at("plist"))).get()),
                  decodeBase64(row.at("xml_base64")));
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

TEST(PropertyListReading, AByteOrderMarkInATextIsPartOfIt) {
    const std::string text = "\xEF\xBB\xBF"
                             "a";
    EXPECT_EQ(treeIn("<string>" + text + "</string>"), stringTree(text));
    auto dictionary = makeDictionary();
    const UniChar units[] = {0xFEFF, 'a'};
    CFDictionarySetValue(dictionary.get(),
                         adopt(CFStringCreateWithCharacters(nullptr, units, 2)).get(),
                         kCFBooleanTrue);
    EXPECT_TRUE(CFEqual(read(write(dictionary.get())).object.get(), dictionary.get()));
}

TEST(PropertyListReading, AttributesMeanNothingAndMayHoldWhatXMLAllows) {
    for (const char* attributes : {" a='x>y'", " a=\"x'>'y\"", " a = 'x'\n\tb:c.d-2=\"\"",
                                   " \xC3\xA9='&lt;&#65;'", " a='/>'", " a='x' "}) {
        const std::string tag = std::string("<string") + attributes;
        EXPECT_EQ(treeIn(tag + ">z</string>"), stringTree("z")) << tag;
        EXPECT_EQ(treeIn(tag + "/>"), stringTree("")) << tag;
        EXPECT_EQ(treeIn(std::string("<plist") + attributes + "><true/></plist>"),
                  treeIn("<true/>"))
            << tag;
    }
    for (const char* attributes :
         {" a", " a=", " a=x", " a='x", " a='x'b='y'", " a='<'", " a='&'", " a='&b;'", " a='&lt'",
          " a='x' a='y'", " 1='x'", " ='x'", "a='x'", "/ ", " a='x' /x", " 'x'"}) {
        const std::string tag = std::string("<string") + attributes;
        EXPECT_EQ(treeIn(tag + ">z</string>"), kNothing) << tag;
        EXPECT_EQ(treeIn(tag + "/>"), kNothing) << tag;
    }
    EXPECT_EQ(treeIn("<string>z</string a='x'>"), kNothing);
}

TEST(PropertyListReading, CommentsInstructionsAndDocumentTypesAreWellFormed) {
    const Json a = stringTree("a");
    for (const char* prolog :
         {"<!---->", "<!-- - -->", "<?p?>", "<?p q?>", "<?p ?q? ?>", "<?xml-style x?>",
          "<!DOCTYPE x SYSTEM 'a>[b'>", "<!DOCTYPE  x  PUBLIC \"a\" '' >", "<!DOCTYPE x >"}) {
        EXPECT_EQ(treeIn(std::string(prolog) + "<string>a</string>"), a) << prolog;
    }
    for (const char* prolog :
         {"<!-- -- -->", "<!--->", "<!-- --->",
          "<?"
          "?>",
          "<? p?>", "<?p", "<?p/?>", "<?1?>", "<!DOCTYPE>", "<!DOCTYPE >", "<!DOCTYPE x y>",
          "<!DOCTYPE x SYSTEM>", "<!DOCTYPE x SYSTEM a>", "<!DOCTYPE x PUBLIC 'a'>",
          "<!DOCTYPE x SYSTEM 'a>", "<!doctype x>"}) {
        EXPECT_EQ(treeIn(std::string(prolog) + "<string>a</string>"), kNothing) << prolog;
    }
    EXPECT_EQ(treeIn("<plist><?xml version='1.0'?><true/></plist>"), kNothing);
}

TEST(PropertyListReading, NoEntityCanBeDefined) {
    EXPECT_EQ(treeIn("<!DOCTYPE plist [<!ENTITY a 'aaaaaaaaaa'><!ENTITY b '&a;&a;&a;&a;'>]>"
                     "<string>&b;</string>"),
              kNothing);
    EXPECT_EQ(treeIn("<!DOCTYPE plist SYSTEM 'x' [<!ENTITY a 'b'>]><string>&a;</string>"),
              kNothing);
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

TEST(PropertyListReading, WhatIsNestedToTheLimitIsAnOrdinaryObject) {
    for (const auto& [open, close] :
         {std::pair{"<array>", "</array>"}, std::pair{"<dict><key>k</key>", "</dict>"}}) {
        const std::string document = repeated(open, 511) + "<array/>" + repeated(close, 511);
        auto one = read(document).object;
        auto other = read(document).object;
        ASSERT_TRUE(one);
        EXPECT_TRUE(CFEqual(one.get(), other.get()));
        EXPECT_EQ(CFHash(one.get()), 1U);
        EXPECT_GT(CFStringGetLength(adopt(CFCopyDescription(one.get())).get()), 1022);
        EXPECT_EQ(write(one.get()), write(other.get()));
    }
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
/// The size of the address space of this process now.
size_t addressSpace() {
    size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

void limitAddressSpace(size_t size) {
    rlimit limit{};
    getrlimit(RLIMIT_AS, &limit);
    limit.rlim_cur = size;
    setrlimit(RLIMIT_AS, &limit);
}

/// Reads a document with no more than so much memory. @return what the error says.
std::string errorOfReadingWith(size_t memory, const std::string& document) {
    const size_t before = addressSpace();
    limitAddressSpace(before);
    // What was freed before and could be used again is taken, and never given back.
    void* volatile block = nullptr;
    do {
        block = std::malloc(memory / 4);
    } while (block != nullptr);
    limitAddressSpace(before + memory);
    const auto data =
        adopt(CFDataCreateWithBytesNoCopy(nullptr, reinterpret_cast<const UInt8*>(document.data()),
                                          static_cast<CFIndex>(document.size()), kCFAllocatorNull));
    CFRef<CFStringRef> error;
    const auto object =
        adopt(CFPropertyListCreateFromXMLData(nullptr, data.get(), 0, error.receive()));
    return object ? "none" : textOf(error.get());
}

TEST(PropertyListReading, RunningOutOfMemoryForALargePartIsAnError) {
    const size_t size = size_t{16} << 20;
    const std::string text(size, 'x');
    std::string keys;
    while (keys.size() < size) {
        keys += "<key>" + std::to_string(keys.size()) + "</key><true/>";
    }
    const std::string documents[] = {
        "<string>" + text + "</string>",
        "<string>&lt;" + text + "</string>",
        "<data>" + text + "</data>",
        "<?xml version='1.0' encoding='latin1'?><string>" + text + "</string>",
        "<dict>" + keys + "</dict>",
    };
    for (const std::string& document : documents) {
        EXPECT_EXIT(
            {
                std::fputs(errorOfReadingWith(size / 4, document).c_str(), stderr);
                std::_Exit(0);
            },
            ::testing::ExitedWithCode(0), "No property list: memory has run out")
            << document.substr(0, 60);
    }
}
#endif

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
    for (const char* name :
         {"latin1", "Latin-1", "l1", "L1", "iso_8859-1", "ISO_8859-1:1987", "ISO8859-1", "iso88591",
          "iso-ir-100", "IBM819", "cp819", "csISOLatin1", "ANSI_X3.4-1968", "csASCII"}) {
        EXPECT_EQ(treeIn(document(name, "\xE9")), stringTree("\xC3\xA9")) << name;
    }
    for (const char* name : {"latin9", "l9", "ISO_8859-15", "iso8859-15"}) {
        EXPECT_EQ(treeIn(document(name, "\xA4")), stringTree("\xE2\x82\xAC")) << name;
    }
    EXPECT_EQ(treeIn(document("latin2", "\xB1")), stringTree("\xC4\x85"));
    EXPECT_EQ(treeIn(document("latin5", "\xFD")), stringTree("\xC4\xB1"));
    EXPECT_EQ(treeIn(document("cp1252", "\x80")), stringTree("\xE2\x82\xAC"));
    for (const char* unknown :
         {"x-unknown", "macintosh", "UTF-16", "UTF-32", "UTF-7", "iso-8859-",
          "iso-8859-1//TRANSLIT", "../../etc/passwd", "latin", "latin0", "latin11", "latin1x",
          "iso-8859-12", "iso-8859-17", "cp1259", "cp437"}) {
        EXPECT_EQ(treeIn(document(unknown, "a")), kNothing) << unknown;
    }
}

TEST(PropertyListReading, BlanksRoundTheEqualsSignHideAnEncoding) {
    const std::string head = "<?xml version='1.0' encoding = 'ISO-8859-1'?>";
    EXPECT_EQ(treeIn(head + "<string>\xE9</string>"), kNothing);
    EXPECT_EQ(treeIn(head + "<string>\xC3\xA9</string>"), stringTree("\xC3\xA9"));
}

TEST(PropertyListReading, ConvertsALongDocument) {
    const std::string accents(200000, '\xE9');
    const Json tree =
        treeIn("<?xml version='1.0' encoding='latin1'?><string>" + accents + "</string>");
    EXPECT_EQ(tree, stringTree(repeated("\xC3\xA9", 200000)));
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
    EXPECT_EQ(writtenBody(makeString("<a & 'b' \"c\">\r\n\t\x7F\xC3\xA9").get()),
              "<string>&lt;a &amp; 'b' \"c\"&gt;\r\n\t\x7F\xC3\xA9</string>\n");
    EXPECT_EQ(writtenBody(makeString("&\xC3\xA9<\xF0\x9F\x8E\xB5>").get()),
              "<string>&amp;\xC3\xA9&lt;\xF0\x9F\x8E\xB5&gt;</string>\n");
}

TEST(PropertyListWriting, AControlCharacterBecomesAMark) {
    const std::string mark = "\xEF\xBF\xBD";
    const std::pair<std::string, std::string> rows[] = {
        {"a\x01-b", "a" + mark + "-b"},
        {std::string("\0", 1), mark},
        {"\x1F\x0B\x0C", mark + mark + mark},
        {"\xC3\xA9\x02", "\xC3\xA9" + mark},
        {"\xEF\xBF\xBE\xEF\xBF\xBF", "\xEF\xBF\xBE\xEF\xBF\xBF"}};
    for (const auto& [text, written] : rows) {
        EXPECT_EQ(writtenBody(makeString(text).get()), "<string>" + written + "</string>\n");
        auto dictionary = makeDictionary();
        CFDictionarySetValue(dictionary.get(), makeString(text).get(), kCFBooleanTrue);
        EXPECT_EQ(writtenBody(dictionary.get()),
                  "<dict>\n\t<key>" + written + "</key>\n\t<true/>\n</dict>\n");
    }
}

TEST(PropertyListWriting, ADictionaryKeepsItsOwnOrderWhateverHappenedToIt) {
    auto dictionary = makeDictionary();
    auto inner = makeDictionary();
    for (const char* key : {"\xEF\xAC\x81", "b", "\xF0\x9F\x8E\xB5", "a", "Z", "aa"}) {
        CFDictionarySetValue(dictionary.get(), makeString(key).get(), inner.get());
        CFDictionarySetValue(inner.get(), makeString(key).get(), kCFBooleanTrue);
    }
    CFDictionarySetValue(dictionary.get(), CFSTR("a"), CFSTR("replaced in its place"));
    CFDictionaryRemoveValue(dictionary.get(), CFSTR("b"));
    CFDictionarySetValue(dictionary.get(), CFSTR("b"), CFSTR("now the last"));
    const std::string document = write(dictionary.get());
    const auto back = read(document).object;
    EXPECT_THAT(keysOf(cast<CFDictionaryRef>(back.get())),
                ElementsAre("\xEF\xAC\x81", "\xF0\x9F\x8E\xB5", "a", "Z", "aa", "b"));
    EXPECT_THAT(keysOf(cast<CFDictionaryRef>(
                    CFDictionaryGetValue(cast<CFDictionaryRef>(back.get()), CFSTR("Z")))),
                ElementsAre("\xEF\xAC\x81", "b", "\xF0\x9F\x8E\xB5", "a", "Z", "aa"));
    EXPECT_EQ(write(back.get()), document);
}

TEST(PropertyListWriting, WritesFractionsOfEveryKindBack) {
    auto array = makeArray();
    for (const double value : {0.1, 1.0 / 3, 5e-324, 1.7976931348623157e308, -123456.789}) {
        CFArrayAppendValue(array.get(), makeReal(value).get());
    }
    EXPECT_TRUE(CFEqual(read(write(array.get())).object.get(), array.get()));
}

TEST(PropertyListWriting, DistantDatesSurvive) {
    auto array = makeArray();
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
    EXPECT_EQ(keysOf(cast<CFDictionaryRef>(back.get())), keysOf(catalogue.get()));
    EXPECT_EQ(write(back.get()), document);
}

} // namespace
} // namespace krl::cf::test
