// The information of a plug-in as a binary property list: made by libplist, and broken by hand.

#include "library/startup/BinaryPropertyList.h"

#include "tests/library/startup/BinaryPlist.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

namespace {

using krl::cf::adopt;
using krl::cf::CFRef;
using krl::testing::binaryOf;
using krl::testing::informationPlist;
using krl::testing::Plist;

CFRef<CFDataRef> dataOf(const std::string& bytes) {
    return adopt(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(bytes.data()),
                              static_cast<CFIndex>(bytes.size())));
}

CFRef<CFStringRef> text(const char* utf8) {
    return adopt(CFStringCreateWithCString(nullptr, utf8, kCFStringEncodingUTF8));
}

/// What stands under a key; "none" for no string.
std::string read(const std::string& bytes, CFStringRef key = CFSTR("CFBundleVersion")) {
    const auto string = krl::plugin::stringInBinaryPropertyList(dataOf(bytes).get(), key);
    char result[4096] = "none";
    if (string) {
        CFStringGetCString(string.get(), result, sizeof result, kCFStringEncodingUTF8);
    }
    return result;
}

void put(const Plist& dictionary, const std::string& key, plist_t value) {
    plist_dict_set_item(dictionary.get(), key.c_str(), value);
}

TEST(BinaryPropertyList, IsToldByItsFirstBytes) {
    EXPECT_TRUE(
        krl::plugin::isBinaryPropertyList(dataOf(binaryOf(informationPlist("a", "b"))).get()));
    for (const std::string bytes : {"", "bplist", "<?xml version=\"1.0\"?>", " bplist00"}) {
        EXPECT_FALSE(krl::plugin::isBinaryPropertyList(dataOf(bytes).get())) << bytes;
    }
}

TEST(BinaryPropertyList, GivesTheStringUnderAKey) {
    EXPECT_EQ(read(binaryOf(informationPlist("CFBundleVersion", "9.8.7"))), "9.8.7");
    EXPECT_EQ(read(binaryOf(informationPlist("CFBundleVersion", ""))), "");
    EXPECT_EQ(read(binaryOf(informationPlist("CFBundleVersions", "9.8.7"))), "none");
    EXPECT_EQ(read(binaryOf(informationPlist("CFBundleVersiox", "9.8.7"))), "none");
}

TEST(BinaryPropertyList, StringsMayBeWideOrLong) {
    const std::string longText(3000, '7');
    EXPECT_EQ(read(binaryOf(informationPlist("CFBundleVersion", "9.8 ü 日 😀"))), "9.8 ü 日 😀");
    EXPECT_EQ(read(binaryOf(informationPlist("CFBundleVersion", longText))), longText);
    EXPECT_EQ(read(binaryOf(informationPlist("Schlüssel", "Wert")), text("Schlüssel").get()),
              "Wert");
}

TEST(BinaryPropertyList, TheKeyMayBeOneOfManyBetweenValuesOfAllKinds) {
    for (const int others : {0, 1, 13, 14, 15, 300}) {
        const Plist dictionary(plist_new_dict());
        put(dictionary, "Flag", plist_new_bool(1));
        put(dictionary, "Number", plist_new_uint(0xFFFFFFFFFFULL));
        put(dictionary, "Real", plist_new_real(1.5));
        put(dictionary, "Date", plist_new_date(1, 0));
        put(dictionary, "Data", plist_new_data("bytes", 5));
        const plist_t nested = plist_new_dict();
        plist_dict_set_item(nested, "CFBundleVersion", plist_new_string("the nested one"));
        put(dictionary, "Nested", nested);
        for (int i = 0; i < others; ++i) {
            put(dictionary, "key " + std::to_string(i),
                plist_new_string(("value " + std::to_string(i)).c_str()));
        }
        put(dictionary, "CFBundleVersion", plist_new_string("2.3.4"));
        put(dictionary, "Last", plist_new_array());
        EXPECT_EQ(read(binaryOf(dictionary)), "2.3.4") << others;
    }
}

TEST(BinaryPropertyList, GivesNothingForOtherValuesAndOtherRoots) {
    const Plist number(plist_new_dict());
    put(number, "CFBundleVersion", plist_new_uint(9));
    EXPECT_EQ(read(binaryOf(number)), "none");
    const Plist array(plist_new_array());
    plist_array_append_item(array.get(), plist_new_string("CFBundleVersion"));
    plist_array_append_item(array.get(), plist_new_string("9.8.7"));
    EXPECT_EQ(read(binaryOf(array)), "none");
    EXPECT_EQ(read(binaryOf(Plist(plist_new_string("CFBundleVersion")))), "none");
    EXPECT_EQ(read(binaryOf(Plist(plist_new_dict()))), "none");
}

TEST(BinaryPropertyList, GivesNothingWhenItIsCutOffAnywhere) {
    const std::string whole = binaryOf(informationPlist("CFBundleVersion", "9.8.7"));
    ASSERT_EQ(read(whole), "9.8.7");
    for (size_t size = 0; size < whole.size(); ++size) {
        EXPECT_EQ(read(whole.substr(0, size)), "none") << size;
        EXPECT_EQ(read(whole.substr(size + 1)), "none") << size;
    }
}

/// A document of these objects, each with its offset in the table, references of one byte, the
/// first object at the top.
struct Handmade {
    std::vector<std::string> objects;
    std::string trailer = std::string(6, '\0') + "\1\1";
    std::optional<uint64_t> objectCount = std::nullopt;
    uint64_t top = 0;
    std::optional<uint64_t> table = std::nullopt;

    std::string bytes() const {
        std::string document = "bplist00";
        std::string offsets;
        for (const std::string& object : objects) {
            offsets += static_cast<char>(document.size());
            document += object;
        }
        const uint64_t tablePosition = document.size();
        return document + offsets + trailer + big(objectCount.value_or(objects.size())) + big(top) +
               big(table.value_or(tablePosition));
    }

    static std::string big(uint64_t number) {
        std::string bytes;
        for (int shift = 56; shift >= 0; shift -= 8) {
            bytes += static_cast<char>(number >> shift);
        }
        return bytes;
    }
};

const std::string kKey = std::string("\x5F\x10\x0F", 3) + "CFBundleVersion";

TEST(BinaryPropertyList, DoesNotTrustWhatTheFileSaysOfItself) {
    const Handmade good{.objects = {"\xD1\1\2", kKey,
                                    "\x53"
                                    "1.2"}};
    ASSERT_EQ(read(good.bytes()), "1.2");

    std::vector<Handmade> rows(12, good);
    rows[0].top = 3;
    rows[1].top = UINT64_MAX;
    rows[2].objectCount = 1; // the references lead beyond
    rows[3].table = UINT64_MAX - 8;
    rows[4].table = 4096;
    rows[5].trailer = std::string(6, '\0') + std::string("\0\1", 2); // offsets of no bytes
    rows[6].trailer = std::string(6, '\0') + std::string("\1\0", 2); // references of no bytes
    rows[7].trailer = std::string(6, '\0') + "\xFF\xFF";
    rows[8].objects[0] = std::string("\xDF\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\1\2", 12);
    rows[9].objects[2] = std::string("\x5F\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", 10);
    rows[10].objects[2] = std::string("\x6F\x13\x80\0\0\0\0\0\0\1", 10);
    rows[11].objects[0] = "\xD1\1\1"; // the key is its own value, which is no harm
    for (size_t i = 0; i < 11; ++i) {
        EXPECT_EQ(read(rows[i].bytes()), "none") << "row " << i;
    }
    EXPECT_EQ(read(rows[11].bytes()), "CFBundleVersion");

    Handmade many = good;
    many.objectCount = UINT64_MAX; // what is there can be read all the same
    EXPECT_EQ(read(many.bytes()), "1.2");
}

TEST(BinaryPropertyList, ADictionaryInItselfIsReadOnce) {
    EXPECT_EQ(read(Handmade{.objects = {"\xD1\1", kKey}}.bytes()), "none");
    EXPECT_EQ(read(Handmade{.objects = {std::string("\xD1\1\0", 3), kKey}}.bytes()), "none");
    EXPECT_EQ(read(Handmade{.objects = {std::string("\xD1\0\0", 3)}}.bytes()), "none");
}

} // namespace
