#include "plist/Bounded.h"

#include "tests/plist/BinaryList.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ostream>
#include <string>
#include <vector>

namespace krl::plist::testing {
namespace {

std::string repeated(const std::string& text, size_t count) {
    std::string all;
    for (size_t i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

std::string xml(const std::string& value) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">" +
           value + "</plist>\n";
}

std::string xmlNested(size_t depth) {
    return xml(repeated("<array>", depth - 1) + "<true/>" + repeated("</array>", depth - 1));
}

std::string binaryNested(size_t depth) {
    return BinaryList::bomb(depth, 1);
}

std::string binaryOf(const std::string& document) {
    plist_t node = nullptr;
    plist_from_xml(document.data(), static_cast<uint32_t>(document.size()), &node);
    const Owned owned(node);
    char* bytes = nullptr;
    uint32_t size = 0;
    plist_to_bin(node, &bytes, &size);
    std::string result(bytes, size);
    plist_to_bin_free(bytes);
    return result;
}

bool isRead(const std::string& document) {
    return readBounded(document) != nullptr;
}

const std::string kEveryType =
    "<dict><key>a</key><array><string>x &lt; "
    "y</string><integer>-3</integer><real>1.5</real></array>"
    "<key>b</key><dict><key>c</key><data>AAEC</data><key>d</key><date>2007-06-29T18:00:00Z</date>"
    "</dict><key>e</key><true/><key>f</key><false/><key>g</key><array/><key>h</key><dict/>"
    "<key>i</key><string/></dict>";

TEST(Bounded, EveryTypeIsRead) {
    EXPECT_TRUE(isRead(xml(kEveryType)));
    EXPECT_TRUE(isRead(binaryOf(xml(kEveryType))));
    EXPECT_TRUE(isRead(xml("<!-- a comment --><dict ><key >a</key ><true /></dict >")));
}

TEST(Bounded, WhatLibplistWritesIsReadAgain) {
    const Owned list = readBounded(xml(kEveryType));
    char* text = nullptr;
    uint32_t size = 0;
    plist_to_xml(list.get(), &text, &size);
    EXPECT_TRUE(isRead(std::string(text, size)));
    plist_to_xml_free(text);
}

TEST(Bounded, WhatIsNoListIsNotRead) {
    for (const char* document : {"", "x", "bplist00", "bplist00 and then nothing that fits it....",
                                 "<plist>", "{ json = 1; }"}) {
        EXPECT_FALSE(isRead(document)) << document;
    }
}

TEST(Bounded, TheDepthEndsAt512) {
    EXPECT_TRUE(isRead(xmlNested(512)));
    EXPECT_TRUE(isRead(binaryNested(512)));
    EXPECT_FALSE(isBounded(xmlNested(513)));
    EXPECT_FALSE(isBounded(binaryNested(513)));
}

TEST(Bounded, TheValuesEndAt100000) {
    EXPECT_TRUE(isRead(xml("<array>" + repeated("<true/>", 99'999) + "</array>")));
    EXPECT_FALSE(isBounded(xml("<array>" + repeated("<true/>", 100'000) + "</array>")));
    BinaryList all;
    all.addCollection(std::vector<uint16_t>(99'999, 1));
    all.addTrue();
    EXPECT_TRUE(isRead(all.bytes()));
    BinaryList tooMany;
    tooMany.addCollection(std::vector<uint16_t>(100'000, 1));
    tooMany.addTrue();
    EXPECT_FALSE(isBounded(tooMany.bytes()));
}

TEST(Bounded, KeysAreNoValues) {
    EXPECT_TRUE(isBounded(xml("<dict>" + repeated("<key>k</key><true/>", 50'000) + "</dict>")));
}

TEST(Bounded, TheDocumentEndsAtAMebibyte) {
    const std::string frame = xml("<string></string>");
    EXPECT_TRUE(
        isRead(xml("<string>" + std::string(kMostBytes - frame.size(), 'x') + "</string>")));
    EXPECT_FALSE(
        isBounded(xml("<string>" + std::string(kMostBytes - frame.size() + 1, 'x') + "</string>")));
}

// ------------------------------------------------------------------ what would end the process

TEST(Bounded, AFewBytesThatStandForMillionsOfValuesAreRefused) {
    EXPECT_FALSE(isBounded(BinaryList::bomb(24, 2)));
    EXPECT_FALSE(isBounded(BinaryList::bomb(8, 14)));
    EXPECT_FALSE(isBounded(BinaryList::bomb(3, 1000)));
}

TEST(Bounded, AListThatContainsItselfIsRefused) {
    BinaryList list;
    list.addCollection({0});
    EXPECT_FALSE(isBounded(list.bytes()));
    BinaryList twoSteps;
    twoSteps.addCollection({1, 1});
    twoSteps.addCollection({0});
    EXPECT_FALSE(isBounded(twoSteps.bytes()));
}

TEST(Bounded, ALongTextThatIsSharedOftenIsRefused) {
    BinaryList list;
    list.addCollection(std::vector<uint16_t>(100, 1));
    list.addText(std::string(100'000, 'x'));
    EXPECT_FALSE(isBounded(list.bytes()));
    BinaryList asKey;
    asKey.addCollection(std::vector<uint16_t>(200, 1), 0xD);
    asKey.addText(std::string(100'000, 'x'));
    EXPECT_FALSE(isBounded(asKey.bytes()));
}

TEST(Bounded, AKeyThatIsACollectionIsRefused) {
    BinaryList list;
    list.addCollection({1, 2}, 0xD);
    list.addCollection({2});
    list.addTrue();
    EXPECT_FALSE(isBounded(list.bytes()));
}

TEST(Bounded, ATextOrKeyWithAZeroIsRefused) {
    const std::string zero(1, '\0');
    EXPECT_FALSE(isRead(xml("<string>a" + zero + "b</string>")));
    EXPECT_FALSE(isRead(xml("<dict><key>a" + zero + "b</key><true/></dict>")));
    EXPECT_FALSE(isRead(xml("<string>a&#0;b</string>")));
    for (const std::string& text : {"a" + zero + "b", zero, "b" + zero}) {
        BinaryList list;
        list.addCollection({1, 2}, 0xD);
        list.addText(text);
        list.addText("value");
        EXPECT_FALSE(isRead(list.bytes()));
        EXPECT_FALSE(isRead(list.bytes(1)));
        EXPECT_TRUE(isRead(list.bytes(2)));
    }
}

TEST(Bounded, AWideTextWithAZeroUnitIsRefusedAndNoOther) {
    const auto wide = [](const std::string& units) {
        BinaryList list;
        list.addWideText(units);
        return list.bytes();
    };
    EXPECT_TRUE(isRead(wide(std::string("\0a\x01\0\0b", 6)))) << "zero bytes are no zero units";
    EXPECT_FALSE(isRead(wide(std::string("\0a\0\0\0b", 6))));
}

TEST(Bounded, EveryCutOfABinaryListIsPassedWithoutHarm) {
    const std::string whole = binaryOf(xml(kEveryType));
    for (size_t length = 0; length < whole.size(); ++length) {
        isRead(whole.substr(0, length));
        std::string changed = whole;
        changed[length] = static_cast<char>(changed[length] ^ 0xFF);
        isRead(changed);
    }
}

TEST(Bounded, NestedXmlBeyondAllReasonIsRefused) {
    EXPECT_FALSE(isBounded(repeated("<array>", 140'000)));
    EXPECT_FALSE(isBounded(xml(repeated("<dict><key>k</key>", 1000))));
    EXPECT_FALSE(isBounded(xml(repeated("<string>", 1000))));
}

// Closing tags that are none would let the depth be counted too low.
class Hidden : public ::testing::TestWithParam<const char*> {};

TEST_P(Hidden, MarkupIsRefused) {
    EXPECT_FALSE(isBounded(xml(repeated(std::string("<array>") + GetParam(), 600))));
}

INSTANTIATE_TEST_SUITE_P(Bounded, Hidden,
                         ::testing::Values("<!-- </array> -->", "<!--></array>-->",
                                           "<?x </array> ?>", "<?x \"?></array>\" ?>",
                                           "<![CDATA[</array>]]>", "<!DOCTYPE x [</array>]>",
                                           "<array a=\"/>\">", "<array a='/'/>", "<array b=/>"),
                         [](const auto& param) { return std::to_string(param.index); });

} // namespace
} // namespace krl::plist::testing
