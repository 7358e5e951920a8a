// What a pong has to say, and the addition to strings.

#include "library/startup/SupportPlugin.h"

#include <KRLVesk/KRTPluginValidator.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>
#include <string>
#include <variant>

namespace {

using krl::cf::adopt;
using krl::cf::CFRef;
using krl::plugin::isRecentEnough;

CFRef<CFDictionaryRef> infoWith(CFStringRef key, CFTypeRef value) {
    const void* keys[] = {key};
    const void* values[] = {value};
    return adopt(CFDictionaryCreate(nullptr, keys, values, 1, &kCFTypeDictionaryKeyCallBacks,
                                    &kCFTypeDictionaryValueCallBacks));
}

using Value = std::variant<const char*, double, float, int>;

CFRef<CFTypeRef> object(const char* text) {
    return adopt<CFTypeRef>(CFStringCreateWithCString(nullptr, text, kCFStringEncodingUTF8));
}

CFRef<CFTypeRef> object(double number) {
    return adopt<CFTypeRef>(CFNumberCreate(nullptr, kCFNumberDoubleType, &number));
}

CFRef<CFTypeRef> object(float number) {
    return adopt<CFTypeRef>(CFNumberCreate(nullptr, kCFNumberFloatType, &number));
}

CFRef<CFTypeRef> object(int number) {
    return adopt<CFTypeRef>(CFNumberCreate(nullptr, kCFNumberIntType, &number));
}

struct Row {
    Value version;
    bool isRecent;
};

const Row kVersions[] = {
    {2.01, false},
    {2.01F, false},
    {"2.01", false},
    // The nearest single-precision numbers below and above 2.01: the text counts after rounding.
    {2.0100000001, false},
    {"2.0100000001", false},
    {2.0101, true},
    {std::nextafter(2.01F, 3.0F), true},
    {2.02, true},
    {"2.02", true},
    {2.5, true},
    {"2.5", true},
    {" 2.5 beta", true},
    {3, true},
    {2, false},
    {"2", false},
    {1.0, false},
    {-3.0, false},
    {"", false},
    {"new", false},
    {"version 3", false},
    {"nan", false},
    {std::numeric_limits<double>::quiet_NaN(), false},
    {std::numeric_limits<double>::infinity(), true},
    {"2.1.0", true},
};

TEST(PongVersion, IsTakenInSinglePrecisionThenWidenedAndHasToBeAbove201) {
    for (const Row& row : kVersions) {
        const auto value = std::visit([](auto plain) { return object(plain); }, row.version);
        const auto description = adopt(CFCopyDescription(value.get()));
        char text[64] = "";
        CFStringGetCString(description.get(), text, sizeof text, kCFStringEncodingUTF8);
        EXPECT_EQ(isRecentEnough(infoWith(CFSTR("version"), value.get()).get()), row.isRecent)
            << text;
    }
}

TEST(PongVersion, IsOneWhenThePongDoesNotSay) {
    EXPECT_FALSE(isRecentEnough(nullptr));
    EXPECT_FALSE(isRecentEnough(infoWith(CFSTR("Version"), CFSTR("3.0")).get()));
}

TEST(PongVersion, OfAnotherTypeIsNone) {
    const auto array = adopt(CFArrayCreate(nullptr, nullptr, 0, &kCFTypeArrayCallBacks));
    EXPECT_FALSE(isRecentEnough(infoWith(CFSTR("version"), array.get()).get()));
    EXPECT_FALSE(isRecentEnough(infoWith(CFSTR("version"), kCFBooleanTrue).get()));
}

TEST(GenerateUUIDString, IsTwelveUpperCaseHexadecimalDigitsAndNewEachTime) {
    std::set<std::string> seen;
    for (int i = 0; i < 100; ++i) {
        char text[64] = "";
        CFStringGetCString(NSStringUUIDAdditions::generateUUIDString().get(), text, sizeof text,
                           kCFStringEncodingUTF8);
        EXPECT_THAT(text, testing::MatchesRegex("[0-9A-F]{12}"));
        seen.insert(text);
    }
    EXPECT_EQ(seen.size(), 100U);
}

} // namespace
