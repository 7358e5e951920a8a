#include "tests/corefoundation/Support.h"

#include <CoreFoundation/CFText.h>
#include <algorithm>
#include <climits>
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace krl::cf::test {
namespace {

using ::testing::ElementsAre;

CFRef<CFMutableStringRef> makeMutableString(std::string_view utf8) {
    return adopt(CFStringCreateMutableCopy(nullptr, 0, makeString(utf8).get()));
}

std::string describe(const Json& row) {
    return row.dump(-1, ' ', true);
}

std::string unitsAsHex(CFStringRef string) {
    std::string hex;
    for (CFIndex i = 0; i < CFStringGetLength(string); ++i) {
        char digits[5];
        std::snprintf(digits, sizeof digits, "%04x",
                      unsigned{CFStringGetCharacterAtIndex(string, i)});
        hex += digits;
    }
    return hex;
}

template <typename... Arguments>
std::string format(CFStringRef format, Arguments... arguments) {
    auto string = adopt(CFStringCreateWithFormat(nullptr, nullptr, format, arguments...));
    return textOf(string.get());
}

// ---------------------------------------------------------------------------- vectors

TEST(StringVectors, Hash) {
    for (const Json& row : loadVectors("string_hash.json", "vectors")) {
        SCOPED_TRACE(describe(row));
        auto string = makeString(row.at("string").get<std::string>());
        ASSERT_TRUE(string);
        EXPECT_EQ(CFStringGetLength(string.get()), row.at("utf16_length").get<CFIndex>());
        EXPECT_EQ(std::to_string(CFHash(string.get())), row.at("hash").get<std::string>());
        EXPECT_EQ(std::to_string(static_cast<uint32_t>(CFHash(string.get()))),
                  row.at("hash_low32").get<std::string>());
    }
}

TEST(StringVectors, HashIsTheSameWhateverTheStorage) {
    for (const Json& row : loadVectors("string_hash.json", "vectors")) {
        SCOPED_TRACE(describe(row));
        auto string = makeString(row.at("string").get<std::string>());
        // Made wide by a letter that is then left out again.
        auto wide = makeMutableString("\xC3\xA9");
        CFStringAppend(wide.get(), string.get());
        auto part = adopt(CFStringCreateWithSubstring(
            nullptr, wide.get(), CFRangeMake(1, CFStringGetLength(string.get()))));
        EXPECT_EQ(CFHash(part.get()), CFHash(string.get()));
        EXPECT_TRUE(CFEqual(part.get(), string.get()));
        auto copy = adopt(CFStringCreateMutableCopy(nullptr, 0, string.get()));
        EXPECT_EQ(CFHash(copy.get()), CFHash(string.get()));
    }
}

TEST(StringVectors, PrefixAndSuffix) {
    for (const Json& row : loadVectors("string_misc.json", "affix")) {
        SCOPED_TRACE(describe(row));
        auto string = makeString(row.at("string").get<std::string>());
        auto affix = makeString(row.at("affix").get<std::string>());
        EXPECT_EQ(CFStringHasSuffix(string.get(), affix.get()) != 0,
                  row.at("has_suffix").get<bool>());
        EXPECT_EQ(CFStringHasPrefix(string.get(), affix.get()) != 0,
                  row.at("has_prefix").get<bool>());
    }
}

TEST(StringVectors, NumericValue) {
    for (const Json& row : loadVectors("string_misc.json", "numeric_value")) {
        SCOPED_TRACE(describe(row));
        auto string = makeString(row.at("string").get<std::string>());
        EXPECT_EQ(CFStringGetIntValue(string.get()), row.at("int_value").get<int>());
        char decimal[64];
        std::snprintf(decimal, sizeof decimal, "%.17g", CFStringGetDoubleValue(string.get()));
        EXPECT_EQ(decimal, row.at("double_value").get<std::string>());
    }
}

TEST(StringVectors, Split) {
    for (const Json& row : loadVectors("string_misc.json", "split")) {
        SCOPED_TRACE(describe(row));
        auto parts = adopt(CFStringCreateArrayBySeparatingStrings(
            nullptr, makeString(row.at("string").get<std::string>()).get(),
            makeString(row.at("separator").get<std::string>()).get()));
        EXPECT_EQ(textsOf(parts.get()), row.at("parts").get<std::vector<std::string>>());
    }
}

TEST(StringVectors, Join) {
    for (const Json& row : loadVectors("string_misc.json", "join")) {
        SCOPED_TRACE(describe(row));
        auto parts = makeArray();
        for (const Json& part : row.at("parts")) {
            CFArrayAppendValue(parts.get(), makeString(part.get<std::string>()).get());
        }
        auto joined = adopt(CFStringCreateByCombiningStrings(
            nullptr, parts.get(), makeString(row.at("separator").get<std::string>()).get()));
        EXPECT_EQ(textOf(joined.get()), row.at("string").get<std::string>());
    }
}

TEST(StringVectors, CaseConversion) {
    for (const Json& row : loadVectors("string_misc.json", "case_conversion")) {
        SCOPED_TRACE(describe(row));
        auto lower = makeMutableString(row.at("string").get<std::string>());
        auto upper = makeMutableString(row.at("string").get<std::string>());
        CFStringLowercase(lower.get(), nullptr);
        CFStringUppercase(upper.get(), nullptr);
        EXPECT_EQ(textOf(lower.get()), row.at("lower").get<std::string>());
        EXPECT_EQ(textOf(upper.get()), row.at("upper").get<std::string>());
    }
}

TEST(StringVectors, DecodingUtf8) {
    for (const Json& row : loadVectors("string_misc.json", "utf8_decoding")) {
        SCOPED_TRACE(describe(row));
        auto string = makeString(decodeBase64(row.at("bytes_base64")));
        ASSERT_EQ(static_cast<bool>(string), !row.at("utf16_hex").is_null());
        if (string) {
            EXPECT_EQ(unitsAsHex(string.get()), row.at("utf16_hex").get<std::string>());
            EXPECT_EQ(encodeBase64(textOf(string.get())),
                      row.at("encoded_back_base64").get<std::string>());
        }
    }
}

TEST(StringVectors, Compare) {
    struct Options {
        const char* matrix;
        CFStringCompareFlags flags;
    };

    constexpr Options kOptions[] = {
        {"plain", 0},
        {"case_insensitive", kCFCompareCaseInsensitive},
        {"numerically", kCFCompareNumerically},
        {"case_insensitive_numerically", kCFCompareCaseInsensitive | kCFCompareNumerically},
    };
    const Json vectors = loadVectors("string_misc.json", "compare");
    const auto words = vectors.at("words").get<std::vector<std::string>>();
    ASSERT_EQ(vectors.at("matrix").size(), std::size(kOptions));
    for (const Options& options : kOptions) {
        for (size_t i = 0; i < words.size(); ++i) {
            const std::string row = vectors.at("matrix").at(options.matrix).at(i);
            for (size_t j = 0; j < words.size(); ++j) {
                const auto result = CFStringCompare(makeString(words[i]).get(),
                                                    makeString(words[j]).get(), options.flags);
                EXPECT_EQ("<=>"[result + 1], row[j])
                    << options.matrix << ": " << words[i] << " and " << words[j];
            }
        }
    }
}

TEST(StringVectors, Equal) {
    const Json vectors = loadVectors("string_misc.json", "compare");
    const auto words = vectors.at("words").get<std::vector<std::string>>();
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string row = vectors.at("cfequal_matrix").at(i);
        for (size_t j = 0; j < words.size(); ++j) {
            EXPECT_EQ(CFEqual(makeString(words[i]).get(), makeString(words[j]).get()) != 0,
                      row[j] == '1')
                << words[i] << " and " << words[j];
        }
    }
}

// ---------------------------------------------------------------------------- constants

extern const CFStringRef constantOfFileScope;
constinit const CFStringRef constantOfFileScope = CFSTR("Name");

TEST(StringConstant, IsLaidOutByTheCompiler) {
    EXPECT_EQ(textOf(constantOfFileScope), "Name");
    EXPECT_EQ(CFStringGetLength(CFSTR("")), 0);
    EXPECT_EQ(textOf(CFSTR("a"
                           "b")),
              "ab");
}

TEST(StringConstant, IsImmortal) {
    for (int i = 0; i < 3; ++i) {
        CFRelease(constantOfFileScope);
    }
    EXPECT_EQ(CFRetain(constantOfFileScope), constantOfFileScope);
    EXPECT_EQ(textOf(constantOfFileScope), "Name");
    EXPECT_GT(CFGetRetainCount(constantOfFileScope), 1000000);
}

TEST(StringConstant, EqualsAndHashesLikeAnyOther) {
    EXPECT_TRUE(CFEqual(constantOfFileScope, makeString("Name").get()));
    EXPECT_EQ(CFHash(constantOfFileScope), CFHash(makeString("Name").get()));
}

TEST(StringConstant, KeepsZerosInside) {
    EXPECT_EQ(CFStringGetLength(CFSTR("a\0b")), 3);
}

TEST(StringConstant, IsItsOwnCopy) {
    auto copy = adopt(CFStringCreateCopy(nullptr, constantOfFileScope));
    EXPECT_EQ(copy.get(), constantOfFileScope);
}

// ---------------------------------------------------------------------------- making

TEST(String, OfBytesThatAreNotAsciiIsNullInAscii) {
    EXPECT_EQ(CFStringCreateWithCString(nullptr, "caf\xC3\xA9", kCFStringEncodingASCII), nullptr);
    auto ascii = adopt(CFStringCreateWithCString(nullptr, "cafe", kCFStringEncodingASCII));
    EXPECT_EQ(textOf(ascii.get()), "cafe");
}

TEST(String, OfAnUnknownEncodingIsNull) {
    EXPECT_EQ(CFStringCreateWithCString(nullptr, "a", 0x0201), nullptr);
}

TEST(String, FromUtf8IsStrict) {
    for (const char* invalid :
         {"\x80", "\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xE0\x9F\xBF", "\xED\xA0\x80",
          "\xED\xBF\xBF", "\xF0\x80\x80\x80", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80",
          "\xF5\x80\x80\x80", "a\xE2\x82", "\xF0\x9F\x8E", "12345678\xFF"}) {
        EXPECT_EQ(CFStringCreateWithCString(nullptr, invalid, kCFStringEncodingUTF8), nullptr)
            << asHex(invalid);
    }
}

TEST(String, FromUtf8TakesEveryPlane) {
    auto string = makeString("A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xB5\xF4\x8F\xBF\xBF");
    EXPECT_EQ(unitsAsHex(string.get()), "004100e920acd83cdfb5dbffdfff");
}

TEST(String, OfCharactersIsNarrowWhenItCanBe) {
    const UniChar units[] = {'a', 'b', 'c'};
    auto string = adopt(CFStringCreateWithCharacters(nullptr, units, 3));
    EXPECT_STREQ(CFStringGetCStringPtr(string.get(), kCFStringEncodingUTF8), "abc");
}

TEST(String, CopyOfAnImmutableOneIsTheSameObject) {
    auto string = makeString("a");
    auto copy = adopt(CFStringCreateCopy(nullptr, string.get()));
    EXPECT_EQ(copy.get(), string.get());
    EXPECT_EQ(CFGetRetainCount(string.get()), 2);
}

TEST(String, CopyOfAMutableOneKeepsItsText) {
    auto string = makeMutableString("a");
    auto copy = adopt(CFStringCreateCopy(nullptr, string.get()));
    CFStringAppend(string.get(), CFSTR("b"));
    EXPECT_EQ(textOf(copy.get()), "a");
    EXPECT_EQ(textOf(string.get()), "ab");
}

TEST(String, SubstringCountsCodeUnits) {
    auto string = makeString("\xF0\x9F\x8E\xB5"
                             "abc");
    auto part = adopt(CFStringCreateWithSubstring(nullptr, string.get(), CFRangeMake(2, 2)));
    EXPECT_EQ(textOf(part.get()), "ab");
    EXPECT_STREQ(CFStringGetCStringPtr(part.get(), kCFStringEncodingASCII), "ab");
}

// ---------------------------------------------------------------------------- changing

TEST(MutableString, GrowsBeyondItsMaximumLength) {
    auto string = adopt(CFStringCreateMutable(nullptr, 2));
    for (int i = 0; i < 1000; ++i) {
        CFStringAppend(string.get(), CFSTR("ab"));
    }
    EXPECT_EQ(CFStringGetLength(string.get()), 2000);
    EXPECT_EQ(textOf(string.get()).substr(1996), "abab");
}

TEST(MutableString, BecomesWideWhenItMust) {
    auto string = makeMutableString("abc");
    CFStringAppendCString(string.get(), "\xE2\x82\xAC", kCFStringEncodingUTF8);
    CFStringAppend(string.get(), CFSTR("d"));
    EXPECT_EQ(textOf(string.get()), "abc\xE2\x82\xAC"
                                    "d");
    EXPECT_EQ(CFStringGetCStringPtr(string.get(), kCFStringEncodingUTF8), nullptr);
}

TEST(MutableString, CanBeAppendedToItself) {
    auto string = makeMutableString("abc\xC3\xA9");
    CFStringAppend(string.get(), string.get());
    EXPECT_EQ(textOf(string.get()), "abc\xC3\xA9"
                                    "abc\xC3\xA9");
}

TEST(MutableString, IsLeftAloneByInvalidBytes) {
    auto string = makeMutableString("a");
    CFStringAppendCString(string.get(), "b\xFF", kCFStringEncodingUTF8);
    EXPECT_EQ(textOf(string.get()), "a");
}

TEST(MutableString, TakesCharacters) {
    auto string = makeMutableString("a");
    const UniChar units[] = {0xD83C, 0xDFB5};
    CFStringAppendCharacters(string.get(), units, 2);
    EXPECT_EQ(textOf(string.get()), "a\xF0\x9F\x8E\xB5");
}

TEST(MutableString, HashAndEqualityFollowItsText) {
    auto string = makeMutableString("a");
    const CFHashCode before = CFHash(string.get());
    CFStringAppend(string.get(), CFSTR("b"));
    EXPECT_NE(CFHash(string.get()), before);
    EXPECT_TRUE(CFEqual(string.get(), CFSTR("ab")));
}

TEST(MutableString, CaseConversionMayMakeItNarrow) {
    auto kelvin = makeMutableString("\xE2\x84\xAA");
    CFStringLowercase(kelvin.get(), nullptr);
    EXPECT_STREQ(CFStringGetCStringPtr(kelvin.get(), kCFStringEncodingUTF8), "k");
    CFStringAppend(kelvin.get(), CFSTR("g"));
    EXPECT_EQ(textOf(kelvin.get()), "kg");
}

TEST(MutableString, LowercaseKnowsTheSigmaAtAWordsEnd) {
    auto words = makeMutableString("\xCE\x91\xCE\xA3, \xCE\xA3 \xCE\xA3\xCE\x91\xCE\xA3.");
    CFStringLowercase(words.get(), nullptr);
    EXPECT_EQ(textOf(words.get()), "\xCE\xB1\xCF\x82, \xCF\x83 \xCF\x83\xCE\xB1\xCF\x82.");
}

// ---------------------------------------------------------------------------- looking

TEST(String, GetCStringNeedsRoomForTheZero) {
    char buffer[4] = "xyz";
    EXPECT_FALSE(CFStringGetCString(CFSTR("abcd"), buffer, 4, kCFStringEncodingUTF8));
    EXPECT_STREQ(buffer, "");
    EXPECT_TRUE(CFStringGetCString(CFSTR("abc"), buffer, 4, kCFStringEncodingUTF8));
    EXPECT_STREQ(buffer, "abc");
    EXPECT_FALSE(CFStringGetCString(CFSTR(""), buffer, 0, kCFStringEncodingUTF8));
}

TEST(String, GetCStringRefusesWhatTheEncodingLacks) {
    char buffer[16];
    EXPECT_FALSE(CFStringGetCString(makeString("caf\xC3\xA9").get(), buffer, sizeof buffer,
                                    kCFStringEncodingASCII));
    EXPECT_FALSE(CFStringGetCString(CFSTR("a"), buffer, sizeof buffer, 0x0201));
    const UniChar unpaired[] = {'a', 0xD83C};
    auto string = adopt(CFStringCreateWithCharacters(nullptr, unpaired, 2));
    EXPECT_FALSE(CFStringGetCString(string.get(), buffer, sizeof buffer, kCFStringEncodingUTF8));
}

TEST(String, CStringPtrIsThereForAsciiOnly) {
    EXPECT_STREQ(CFStringGetCStringPtr(makeString("abc").get(), kCFStringEncodingUTF8), "abc");
    EXPECT_STREQ(CFStringGetCStringPtr(makeMutableString("abc").get(), kCFStringEncodingASCII),
                 "abc");
    EXPECT_STREQ(CFStringGetCStringPtr(CFSTR(""), kCFStringEncodingUTF8), "");
    EXPECT_EQ(CFStringGetCStringPtr(makeString("\xC3\xA9").get(), kCFStringEncodingUTF8), nullptr);
    EXPECT_EQ(CFStringGetCStringPtr(CFSTR("a"), 0x0201), nullptr);
}

TEST(String, GetBytesWritesWholeCharactersOnly) {
    auto string = makeString("a\xE2\x82\xAC"
                             "b");
    UInt8 buffer[3] = {};
    CFIndex used = 0;
    EXPECT_EQ(CFStringGetBytes(string.get(), CFRangeMake(0, 3), kCFStringEncodingUTF8, 0, false,
                               buffer, sizeof buffer, &used),
              1);
    EXPECT_EQ(used, 1);
    EXPECT_EQ(buffer[0], 'a');
}

TEST(String, GetBytesPutsTheLossByteInPlace) {
    auto string = makeString("a\xF0\x9F\x8E\xB5"
                             "b");
    UInt8 buffer[8] = {};
    CFIndex used = 0;
    EXPECT_EQ(CFStringGetBytes(string.get(), CFRangeMake(0, 4), kCFStringEncodingASCII, '?', false,
                               buffer, sizeof buffer, &used),
              4);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), static_cast<size_t>(used)), "a?b");
    EXPECT_EQ(CFStringGetBytes(string.get(), CFRangeMake(0, 4), kCFStringEncodingASCII, 0, false,
                               nullptr, 0, &used),
              1);
    EXPECT_EQ(used, 1);
}

TEST(String, MaximumSizeHoldsAnyText) {
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(5, kCFStringEncodingUTF8), 15);
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(5, kCFStringEncodingASCII), 5);
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(5, 0x0201), kCFNotFound);
}

TEST(String, GetCharactersReadsARange) {
    UniChar units[2] = {};
    CFStringGetCharacters(CFSTR("abcd"), CFRangeMake(1, 2), units);
    EXPECT_EQ(units[0], 'b');
    EXPECT_EQ(units[1], 'c');
}

TEST(String, FindGivesTheFirstPlace) {
    const CFRange found = CFStringFind(CFSTR("abcabc"), CFSTR("ca"), 0);
    EXPECT_EQ(found.location, 2);
    EXPECT_EQ(found.length, 2);
    EXPECT_EQ(CFStringFind(makeString("\xC3\xA9"
                                      "bc")
                               .get(),
                           CFSTR("bc"), 0)
                  .location,
              1);
    EXPECT_EQ(CFStringFind(CFSTR("abc"), CFSTR("ac"), 0).location, kCFNotFound);
    EXPECT_EQ(CFStringFind(CFSTR("abc"), CFSTR(""), 0).location, kCFNotFound);
    EXPECT_EQ(CFStringFind(CFSTR(""), CFSTR("a"), 0).location, kCFNotFound);
}

TEST(String, SortsNamesWithoutRegardToCase) {
    auto names = makeArray();
    for (const char* name : {"cherry", "Banana", "apple"}) {
        CFArrayAppendValue(names.get(), makeString(name).get());
    }
    CFArraySortValues(
        names.get(), wholeRange(names.get()),
        [](const void* left, const void* right, void*) {
            return CFStringCompare(static_cast<CFStringRef>(left), static_cast<CFStringRef>(right),
                                   kCFCompareCaseInsensitive);
        },
        nullptr);
    EXPECT_THAT(textsOf(names.get()), ElementsAre("apple", "Banana", "cherry"));
}

TEST(String, IntValueFollowsThePlatform) {
    const std::pair<const char*, int> rows[] = {{"0x10", 0},
                                                {"007", 7},
                                                {"- 3", -3},
                                                {"\xC2\xA0"
                                                 "5",
                                                 5},
                                                {"\xE3\x80\x80"
                                                 "6",
                                                 6},
                                                {"+4", 4},
                                                {"-2147483649", INT_MIN},
                                                {"99999999999999999999999", INT_MAX}};
    for (const auto& [text, value] : rows) {
        EXPECT_EQ(CFStringGetIntValue(makeString(text).get()), value) << text;
    }
}

TEST(String, RealsDoNotDependOnTheLocale) {
    const NumbersWithCommas numbersWithCommas;
    if (!numbersWithCommas.areThere()) {
        GTEST_SKIP() << "no locale whose numbers have a comma is installed";
    }
    EXPECT_EQ(CFStringGetDoubleValue(CFSTR("1.5")), 1.5);
    EXPECT_EQ(format(CFSTR("%.1f"), 1.5), "1.5");
}

TEST(String, DoubleValueTakesTheLongestNumber) {
    EXPECT_EQ(CFStringGetDoubleValue(CFSTR("-.5e1x")), -5);
    EXPECT_EQ(CFStringGetDoubleValue(CFSTR("1e")), 1);
    EXPECT_EQ(CFStringGetDoubleValue(CFSTR(".")), 0);
    EXPECT_EQ(CFStringGetDoubleValue(CFSTR("1e999")), HUGE_VAL);
}

TEST(String, SplittingWorksOnWideStrings) {
    auto parts = adopt(CFStringCreateArrayBySeparatingStrings(
        nullptr, makeString("\xC3\xA9, b, c").get(), CFSTR(", ")));
    EXPECT_THAT(textsOf(parts.get()), ElementsAre("\xC3\xA9", "b", "c"));
}

// ---------------------------------------------------------------------------- formats

TEST(StringFormat, TakesTheConversionsOfPrintf) {
    EXPECT_EQ(format(CFSTR("%d %i %u"), -1, 2, 3U), "-1 2 3");
    EXPECT_EQ(format(CFSTR("%ld %lu %lld %llu"), LONG_MIN, ULONG_MAX, LLONG_MIN, ULLONG_MAX),
              "-9223372036854775808 18446744073709551615 -9223372036854775808 "
              "18446744073709551615");
    EXPECT_EQ(format(CFSTR("%x %X %o"), 255U, 255U, 8U), "ff FF 10");
    EXPECT_EQ(format(CFSTR("%c%c %%"), 'a', 'b'), "ab %");
    EXPECT_EQ(format(CFSTR("%zu %hhd %hd"), size_t{7}, 257, 65537), "7 1 1");
    EXPECT_EQ(format(CFSTR("%04d|%-4d|%+d|%#x|% d"), 7, 7, 7, 7U, 7), "0007|7   |+7|0x7| 7");
    EXPECT_EQ(format(CFSTR("%*d|%-*d|%.*d"), 4, 7, 4, 7, 3, 7), "   7|7   |007");
    EXPECT_EQ(format(CFSTR("%.2f %g %e"), 1.5, 0.25, 1.0), "1.50 0.25 1.000000e+00");
}

TEST(StringFormat, TakesUtf8) {
    EXPECT_EQ(format(CFSTR("%s!"), "caf\xC3\xA9"), "caf\xC3\xA9!");
    EXPECT_EQ(format(CFSTR("%6s|%-6s|%.2s"), "abc", "abc", "abc"), "   abc|abc   |ab");
    EXPECT_EQ(format(CFSTR("%s"), static_cast<const char*>(nullptr)), "(null)");
}

TEST(StringFormat, StandsForObjects) {
    auto name = makeString("caf\xC3\xA9");
    EXPECT_EQ(format(CFSTR("<%@>"), name.get()), "<caf\xC3\xA9>");
    EXPECT_EQ(format(CFSTR("%@ %@"), makeInteger(-5).get(), kCFBooleanTrue), "-5 true");
    EXPECT_EQ(format(CFSTR("%@"), static_cast<CFTypeRef>(nullptr)), "(null)");
}

TEST(StringFormat, MayItselfBeWide) {
    EXPECT_EQ(format(makeString("\xE2\x82\xAC %d").get(), 5), "\xE2\x82\xAC 5");
}

TEST(StringFormat, RefusesWhatItDoesNotKnow) {
    EXPECT_EQ(format(CFSTR("%n")), "(null)");
    EXPECT_EQ(format(CFSTR("%")), "(null)");
    EXPECT_EQ(format(CFSTR("100%")), "(null)");
    EXPECT_EQ(format(CFSTR("%s"), "\xFF"), "(null)");
    EXPECT_EQ(format(CFSTR("%999999999999d"), 1), "(null)");
}

TEST(StringFormat, IsAppended) {
    auto string = makeMutableString("a");
    CFStringAppendFormat(string.get(), nullptr, CFSTR("%d%@"), 1, CFSTR("b"));
    CFStringAppendFormat(string.get(), nullptr, CFSTR("%n"));
    EXPECT_EQ(textOf(string.get()), "a1b");
}

TEST(Text, OfBytesThatAreNoUtf8IsNull) {
    EXPECT_EQ(textOf(stringOf("\xC3\xA9").get()), "\xC3\xA9");
    EXPECT_EQ(CFStringGetLength(stringOf(std::string_view("a\0b", 3)).get()), 3);
    EXPECT_EQ(stringOf("\xC3"), nullptr);
}

TEST(Utf8, IsNothingForWhatNoFunctionOfCTakes) {
    const UniChar unpaired[] = {'a', 0xD83C};
    EXPECT_EQ(utf8(makeString("\xC3\xA9\xF0\x9F\x8E\xB5").get()), "\xC3\xA9\xF0\x9F\x8E\xB5");
    EXPECT_EQ(utf8(CFSTR("")), "");
    EXPECT_EQ(utf8(nullptr), std::nullopt);
    EXPECT_EQ(utf8(makeString(std::string_view("a\0b", 3)).get()), std::nullopt);
    EXPECT_EQ(utf8(adopt(CFStringCreateWithCharacters(nullptr, unpaired, 2)).get()), std::nullopt);
    const auto number = makeInteger(1);
    EXPECT_EQ(utf8(reinterpret_cast<CFStringRef>(number.get())), std::nullopt);
}

} // namespace
} // namespace krl::cf::test
