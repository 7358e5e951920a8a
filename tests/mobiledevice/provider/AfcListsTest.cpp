#include "mobiledevice/provider/devices/AfcLists.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace krl::provider::testing {
namespace {

using namespace std::string_literals;

std::vector<char> bytesOf(const std::string& text) {
    return {text.begin(), text.end()};
}

std::vector<std::string> namesOf(Directory& directory) {
    std::vector<std::string> names;
    while (const char* name = directory.next()) {
        names.emplace_back(name);
    }
    return names;
}

TEST(AfcDirectory, GivesTheNamesInTheirOrder) {
    const auto directory = Directory::parse(bytesOf(".\0..\0b c\0\xC3\xA4\0a\0"s));
    ASSERT_TRUE(directory);
    EXPECT_EQ(namesOf(*directory), (std::vector<std::string>{".", "..", "b c", "\xC3\xA4", "a"}));
    EXPECT_EQ(directory->next(), nullptr);
}

TEST(AfcDirectory, MayBeEmpty) {
    const auto directory = Directory::parse({});
    ASSERT_TRUE(directory);
    EXPECT_EQ(directory->next(), nullptr);
}

TEST(AfcDirectory, NamesLiveAsLongAsTheDirectory) {
    const auto directory = Directory::parse(bytesOf("a\0b\0"s));
    ASSERT_TRUE(directory);
    const char* first = directory->next();
    directory->next();
    directory->next();
    EXPECT_STREQ(first, "a");
}

TEST(AfcDirectory, IsRefusedWhenTheLastNameHasNoEnd) {
    EXPECT_FALSE(Directory::parse(bytesOf("a\0b"s)));
    EXPECT_FALSE(Directory::parse(bytesOf("a"s)));
}

TEST(AfcDirectory, IsRefusedWhenANameIsEmpty) {
    EXPECT_FALSE(Directory::parse(bytesOf("\0"s)));
    EXPECT_FALSE(Directory::parse(bytesOf("\0\0\0\0"s)));
    EXPECT_FALSE(Directory::parse(bytesOf("a\0\0b\0"s)));
}

TEST(AfcKeyValues, GivesThePairsInTheirOrder) {
    const auto pairs = KeyValues::parse(bytesOf("st_size\0"
                                                "12\0LinkTarget\0\0st_size\0"
                                                "13\0"s));
    ASSERT_TRUE(pairs);
    std::vector<std::pair<std::string, std::string>> got;
    for (auto [key, value] = pairs->next(); key != nullptr; std::tie(key, value) = pairs->next()) {
        got.emplace_back(key, value);
    }
    EXPECT_EQ(got, (std::vector<std::pair<std::string, std::string>>{
                       {"st_size", "12"}, {"LinkTarget", ""}, {"st_size", "13"}}));
    EXPECT_EQ(pairs->next(), (std::pair<char*, char*>{nullptr, nullptr}));
}

TEST(AfcKeyValues, AreRefusedWhenAValueIsMissing) {
    EXPECT_FALSE(KeyValues::parse(bytesOf("a\0"s)));
    EXPECT_FALSE(KeyValues::parse(bytesOf("a\0b\0c\0"s)));
}

TEST(AfcKeyValues, AreRefusedWhenTheLastTextHasNoEnd) {
    EXPECT_FALSE(KeyValues::parse(bytesOf("a\0b"s)));
}

TEST(AfcKeyValues, AreRefusedWhenAKeyIsEmpty) {
    EXPECT_FALSE(KeyValues::parse(bytesOf("\0b\0"s)));
    EXPECT_FALSE(KeyValues::parse(bytesOf("\0\0\0\0"s)));
}

} // namespace
} // namespace krl::provider::testing
