// What a phone's answers become.

#include "mobiledevice/provider/wire/PlistObjects.h"

#include "mobiledevice/provider/wire/PlistRef.h"

#include <gtest/gtest.h>
#include <string>

namespace krl::provider {
namespace {

using cf::adopt;
using cf::cast;

PlistRef nodeFrom(const std::string& xml) {
    plist_t node = nullptr;
    plist_from_xml(xml.data(), static_cast<uint32_t>(xml.size()), &node);
    return PlistRef(node);
}

/// The object of a document by way of its node, described; "" for null.
std::string described(const PlistRef& node) {
    const auto object = objectsOf(node.get());
    if (!object) {
        return {};
    }
    char text[256] = {};
    CFStringGetCString(adopt(CFCopyDescription(object.get())).get(), text, sizeof text,
                       kCFStringEncodingUTF8);
    return text;
}

TEST(PlistObjects, HaveTheValuesOfTheirNodes) {
    EXPECT_EQ(described(nodeFrom("<dict><key>z</key><string>\xC3\xA9</string><key>a</key><array>"
                                 "<true/><false/><integer>5</integer><real>0.5</real></array>"
                                 "<key>m</key><data>AQID</data></dict>")),
              "{z = \xC3\xA9; a = (true, false, 5, 0.5); m = {length = 3, bytes = 0x010203}}");
}

TEST(PlistObjects, TellNegativeFromLarge) {
    for (const std::string number : {"-1", "18446744073709551615", "-9223372036854775808",
                                     "9223372036854775807", "9223372036854775808", "0"}) {
        EXPECT_EQ(described(nodeFrom("<integer>" + number + "</integer>")), number);
    }
}

TEST(PlistObjects, KeepDatesBefore2001AndFractions) {
    const PlistRef early = nodeFrom("<date>1900-01-01T00:00:00Z</date>");
    EXPECT_EQ(described(early), "1900-01-01T00:00:00Z");
    const PlistRef fraction(plist_new_date(5, 250000));
    const auto date = objectsOf(fraction.get());
    EXPECT_EQ(CFDateGetAbsoluteTime(cast<CFDateRef>(date.get())), 5.25);
}

TEST(PlistObjects, OfNothingAreNothing) {
    EXPECT_FALSE(objectsOf(nullptr));
}

TEST(PlistObjects, OfATypeWithoutObjectAreNothing) {
    const PlistRef node(plist_new_array());
    plist_array_append_item(node.get(), plist_new_uid(5));
    EXPECT_FALSE(objectsOf(node.get()));
}

TEST(PlistObjects, OfTextThatIsNotUtf8AreNothing) {
    const PlistRef text(plist_new_string("a\xFF"));
    EXPECT_FALSE(objectsOf(text.get()));
    const PlistRef dictionary(plist_new_dict());
    plist_dict_set_item(dictionary.get(), "\xFF", plist_new_bool(1));
    EXPECT_FALSE(objectsOf(dictionary.get()));
}

TEST(PlistObjects, NestTo512AndNoDeeper) {
    PlistRef node(plist_new_array());
    for (int depth = 2; depth <= 512; ++depth) {
        PlistRef outer(plist_new_array());
        plist_array_append_item(outer.get(), node.release());
        node = std::move(outer);
    }
    EXPECT_TRUE(objectsOf(node.get()));
    PlistRef outer(plist_new_array());
    plist_array_append_item(outer.get(), node.release());
    EXPECT_FALSE(objectsOf(outer.get()));
}

TEST(PlistObjects, AreMutable) {
    const auto object = objectsOf(nodeFrom("<array><string>a</string></array>").get());
    const auto array = cast<CFArrayRef>(object.get());
    EXPECT_NE(adopt(CFArrayCreateCopy(nullptr, array)).get(), array);
    const auto string = cast<CFStringRef>(CFArrayGetValueAtIndex(array, 0));
    EXPECT_NE(adopt(CFStringCreateCopy(nullptr, string)).get(), string);
}

} // namespace
} // namespace krl::provider
