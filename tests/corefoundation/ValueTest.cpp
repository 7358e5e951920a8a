#include "tests/corefoundation/Support.h"

#include <chrono>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <set>

namespace krl::cf::test {
namespace {

// ---------------------------------------------------------------------------- numbers

template <typename Value>
CFRef<CFNumberRef> numberOf(CFNumberType type, Value value) {
    return adopt(CFNumberCreate(nullptr, type, &value));
}

TEST(Number, IsKeptAsOneOfTheFixedSizes) {
    EXPECT_EQ(CFNumberGetType(numberOf(kCFNumberCharType, 'a').get()), kCFNumberSInt8Type);
    EXPECT_EQ(CFNumberGetType(numberOf(kCFNumberShortType, short{1}).get()), kCFNumberSInt16Type);
    EXPECT_EQ(CFNumberGetType(numberOf(kCFNumberIntType, 1).get()), kCFNumberSInt32Type);
    EXPECT_EQ(CFNumberGetType(numberOf(kCFNumberLongType, 1L).get()), kCFNumberSInt64Type);
    EXPECT_EQ(CFNumberGetType(numberOf(kCFNumberLongLongType, 1LL).get()), kCFNumberSInt64Type);
    EXPECT_EQ(CFNumberGetType(numberOf(kCFNumberCFIndexType, CFIndex{1}).get()),
              kCFNumberSInt64Type);
    EXPECT_EQ(CFNumberGetType(numberOf(kCFNumberFloatType, 1.0F).get()), kCFNumberFloat32Type);
    EXPECT_EQ(CFNumberGetType(numberOf(kCFNumberDoubleType, 1.0).get()), kCFNumberFloat64Type);
    EXPECT_TRUE(CFNumberIsFloatType(numberOf(kCFNumberFloatType, 1.0F).get()));
    EXPECT_FALSE(CFNumberIsFloatType(numberOf(kCFNumberIntType, 1).get()));
}

TEST(Number, OfAnUnknownTypeIsNull) {
    const int value = 0;
    EXPECT_EQ(CFNumberCreate(nullptr, 0, &value), nullptr);
    EXPECT_EQ(CFNumberCreate(nullptr, 99, &value), nullptr);
    int result = 5;
    EXPECT_FALSE(CFNumberGetValue(makeInteger(1).get(), 99, &result));
    EXPECT_EQ(result, 5);
}

TEST(Number, IsHandedOutInAnyType) {
    auto number = makeInteger(-7);
    int8_t small = 0;
    int32_t middle = 0;
    double real = 0;
    float single = 0;
    EXPECT_TRUE(CFNumberGetValue(number.get(), kCFNumberSInt8Type, &small));
    EXPECT_TRUE(CFNumberGetValue(number.get(), kCFNumberIntType, &middle));
    EXPECT_TRUE(CFNumberGetValue(number.get(), kCFNumberDoubleType, &real));
    EXPECT_TRUE(CFNumberGetValue(number.get(), kCFNumberFloatType, &single));
    EXPECT_EQ(small, -7);
    EXPECT_EQ(middle, -7);
    EXPECT_EQ(real, -7.0);
    EXPECT_EQ(single, -7.0F);
}

TEST(Number, SaysWhenItDoesNotFit) {
    int8_t small = 0;
    EXPECT_FALSE(CFNumberGetValue(makeInteger(300).get(), kCFNumberSInt8Type, &small));
    EXPECT_EQ(small, 44);
    int32_t middle = 0;
    EXPECT_FALSE(CFNumberGetValue(makeReal(1.5).get(), kCFNumberSInt32Type, &middle));
    EXPECT_EQ(middle, 1);
    EXPECT_FALSE(CFNumberGetValue(makeReal(1e300).get(), kCFNumberSInt32Type, &middle));
    EXPECT_EQ(middle, INT32_MAX);
    EXPECT_FALSE(CFNumberGetValue(makeReal(-1e300).get(), kCFNumberSInt32Type, &middle));
    EXPECT_EQ(middle, INT32_MIN);
    EXPECT_FALSE(CFNumberGetValue(makeReal(NAN).get(), kCFNumberSInt32Type, &middle));
    EXPECT_EQ(middle, 0);
    float single = 0;
    EXPECT_FALSE(CFNumberGetValue(makeReal(0.1).get(), kCFNumberFloat32Type, &single));
    EXPECT_EQ(single, 0.1F);
    double real = 0;
    EXPECT_FALSE(CFNumberGetValue(makeInteger(INT64_MAX).get(), kCFNumberFloat64Type, &real));
    EXPECT_TRUE(CFNumberGetValue(makeReal(NAN).get(), kCFNumberFloat64Type, &real));
    int64_t large = 0;
    EXPECT_FALSE(
        CFNumberGetValue(makeReal(9223372036854775808.0).get(), kCFNumberSInt64Type, &large));
    EXPECT_EQ(large, INT64_MAX);
    EXPECT_TRUE(
        CFNumberGetValue(makeReal(-9223372036854775808.0).get(), kCFNumberSInt64Type, &large));
    EXPECT_EQ(large, INT64_MIN);
}

TEST(Number, ComparesByValueAcrossTypes) {
    const CFRef<CFNumberRef> rising[] = {makeReal(-HUGE_VAL),
                                         makeInteger(INT64_MIN),
                                         makeReal(-1.5),
                                         makeInteger(-1),
                                         makeReal(-0.0),
                                         makeReal(NAN),
                                         makeInteger(0),
                                         makeReal(0.5),
                                         makeInteger(1),
                                         makeInteger(9007199254740992),
                                         makeInteger(9007199254740993),
                                         makeInteger(INT64_MAX),
                                         makeReal(9223372036854775808.0),
                                         makeReal(HUGE_VAL)};
    for (size_t i = 0; i < std::size(rising); ++i) {
        for (size_t j = 0; j < std::size(rising); ++j) {
            const auto expected = i < j   ? kCFCompareLessThan
                                  : i > j ? kCFCompareGreaterThan
                                          : kCFCompareEqualTo;
            EXPECT_EQ(CFNumberCompare(rising[i].get(), rising[j].get(), nullptr), expected)
                << i << " " << j;
            EXPECT_EQ(CFEqual(rising[i].get(), rising[j].get()) != 0, i == j);
        }
    }
}

TEST(Number, OfEqualValueHashesAlikeWhateverTheType) {
    for (const int value : {0, 1, -1, 127, -1000, 65536, INT_MAX, INT_MIN}) {
        const CFHashCode hash = CFHash(numberOf(kCFNumberIntType, value).get());
        EXPECT_EQ(CFHash(makeInteger(value).get()), hash) << value;
        EXPECT_EQ(CFHash(makeReal(value).get()), hash) << value;
        EXPECT_TRUE(CFEqual(makeInteger(value).get(), makeReal(value).get()));
    }
}

TEST(Number, OfAnySizeHasAHash) {
    for (const double value : {double{NAN}, HUGE_VAL, -HUGE_VAL, 1e300, 18446744073709551615.0}) {
        EXPECT_EQ(CFHash(makeReal(value).get()), CFHash(makeReal(value).get()));
    }
    EXPECT_EQ(CFHash(makeInteger(INT64_MIN).get()), CFHash(makeReal(-9223372036854775808.0).get()));
}

TEST(Number, DescribesItself) {
    EXPECT_EQ(textOf(adopt(CFCopyDescription(makeInteger(-5).get())).get()), "-5");
    EXPECT_EQ(textOf(adopt(CFCopyDescription(makeReal(0.1).get())).get()), "0.1");
}

// ---------------------------------------------------------------------------- data

TEST(Data, CopiesItsBytes) {
    std::string bytes = "abc";
    auto data = makeData(bytes);
    bytes[0] = 'x';
    EXPECT_EQ(bytesOf(data.get()), "abc");
    UInt8 two[2];
    CFDataGetBytes(data.get(), CFRangeMake(1, 2), two);
    EXPECT_EQ(two[1], 'c');
}

TEST(Data, MayBeEmpty) {
    auto data = adopt(CFDataCreate(nullptr, nullptr, 0));
    EXPECT_EQ(CFDataGetLength(data.get()), 0);
    EXPECT_NE(CFDataGetBytePtr(data.get()), nullptr);
    EXPECT_EQ(CFHash(data.get()), 0U);
}

TEST(Data, WithoutCopyUsesTheCallersBytes) {
    const UInt8 bytes[] = {1, 2, 3};
    auto borrowed = adopt(CFDataCreateWithBytesNoCopy(nullptr, bytes, 3, kCFAllocatorNull));
    EXPECT_EQ(CFDataGetBytePtr(borrowed.get()), bytes);
    for (CFAllocatorRef deallocator : {kCFAllocatorMalloc, kCFAllocatorDefault}) {
        auto* memory =
            static_cast<UInt8*>(std::malloc(3)); // a leak checker sees whether it is freed
        std::memset(memory, 7, 3);
        auto owned = adopt(CFDataCreateWithBytesNoCopy(nullptr, memory, 3, deallocator));
        EXPECT_EQ(CFDataGetBytePtr(owned.get()), memory);
    }
}

TEST(MutableData, GrowsBeyondItsCapacity) {
    auto data = adopt(CFDataCreateMutable(nullptr, 2));
    for (int i = 0; i < 1000; ++i) {
        CFDataAppendBytes(data.get(), reinterpret_cast<const UInt8*>("abc"), 3);
    }
    EXPECT_EQ(CFDataGetLength(data.get()), 3000);
    EXPECT_EQ(bytesOf(data.get()).substr(2997), "abc");
    CFDataAppendBytes(data.get(), nullptr, 0);
    EXPECT_EQ(CFDataGetLength(data.get()), 3000);
}

TEST(MutableData, IsMadeLongerWithZeros) {
    auto data = adopt(CFDataCreateMutableCopy(nullptr, 0, makeData("abc").get()));
    CFDataSetLength(data.get(), 1);
    CFDataSetLength(data.get(), 4);
    EXPECT_EQ(bytesOf(data.get()), std::string("a\0\0\0", 4));
    CFDataGetMutableBytePtr(data.get())[3] = 'z';
    EXPECT_EQ(bytesOf(data.get()).back(), 'z');
}

TEST(MutableData, CanBeAppendedToItself) {
    auto data = adopt(CFDataCreateMutableCopy(nullptr, 0, makeData("abc").get()));
    for (int i = 0; i < 5; ++i) {
        CFDataAppendBytes(data.get(), CFDataGetBytePtr(data.get()), CFDataGetLength(data.get()));
    }
    EXPECT_EQ(CFDataGetLength(data.get()), 96);
    EXPECT_EQ(bytesOf(data.get()).substr(93), "abc");
}

TEST(MutableData, CopiesDoNotFollowTheOriginal) {
    auto data = adopt(CFDataCreateMutableCopy(nullptr, 0, makeData("a").get()));
    auto copy = adopt(CFDataCreateCopy(nullptr, data.get()));
    CFDataAppendBytes(data.get(), reinterpret_cast<const UInt8*>("b"), 1);
    EXPECT_EQ(bytesOf(copy.get()), "a");
    EXPECT_FALSE(CFEqual(copy.get(), data.get()));
    auto again = adopt(CFDataCreateCopy(nullptr, copy.get()));
    EXPECT_EQ(again.get(), copy.get());
}

// ---------------------------------------------------------------------------- dates

TEST(Date, ComparesByTime) {
    auto early = adopt(CFDateCreate(nullptr, 1));
    auto late = adopt(CFDateCreate(nullptr, 2));
    EXPECT_EQ(CFDateCompare(early.get(), late.get(), nullptr), kCFCompareLessThan);
    EXPECT_EQ(CFDateCompare(late.get(), early.get(), nullptr), kCFCompareGreaterThan);
    EXPECT_TRUE(CFEqual(early.get(), adopt(CFDateCreate(nullptr, 1)).get()));
    EXPECT_EQ(CFDateGetAbsoluteTime(late.get()), 2);
}

TEST(Date, OfAnyTimeHasAHashAndADescription) {
    for (const double time : {double{NAN}, HUGE_VAL, -HUGE_VAL, 1e300, -1e300}) {
        auto date = adopt(CFDateCreate(nullptr, time));
        EXPECT_EQ(CFHash(date.get()), 0U);
        EXPECT_GT(CFStringGetLength(adopt(CFCopyDescription(date.get())).get()), 0);
    }
}

TEST(Date, DescribesItselfInUniversalTime) {
    const std::pair<double, const char*> rows[] = {
        {0, "2001-01-01T00:00:00Z"},          {-1, "2000-12-31T23:59:59Z"},
        {-26524800, "2000-02-29T00:00:00Z"},  {94608000, "2004-01-01T00:00:00Z"},
        {-978307200, "1970-01-01T00:00:00Z"}, {-63145526400, "0000-01-01T00:00:00Z"}};
    for (const auto& [time, text] : rows) {
        auto date = adopt(CFDateCreate(nullptr, time));
        EXPECT_EQ(textOf(adopt(CFCopyDescription(date.get())).get()), text);
    }
}

constexpr double kRounding = 1e-5; // of a double that holds some 1.8e9 s, taken off and put back

/// Not std::time, which is a tick behind when a second begins.
double secondsOfTheClock() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(now).count();
}

TEST(Date, NowIsTheTimeOfTheClock) {
    const double before = secondsOfTheClock();
    const double now = CFAbsoluteTimeGetCurrent() + kCFAbsoluteTimeIntervalSince1970;
    const double after = secondsOfTheClock();
    EXPECT_GE(now, before - kRounding);
    EXPECT_LE(now, after + kRounding);
}

// ---------------------------------------------------------------------------- identifiers

TEST(UUIDVectors, Text) {
    for (const Json& row : loadVectors("string_misc.json", "uuid")) {
        SCOPED_TRACE(row.dump());
        auto uuid = adopt(
            CFUUIDCreateFromString(nullptr, makeString(row.at("input").get<std::string>()).get()));
        ASSERT_EQ(static_cast<bool>(uuid), !row.at("string").is_null());
        if (uuid) {
            EXPECT_EQ(textOf(adopt(CFUUIDCreateString(nullptr, uuid.get())).get()),
                      row.at("string").get<std::string>());
            const CFUUIDBytes bytes = CFUUIDGetUUIDBytes(uuid.get());
            EXPECT_EQ(asHex({reinterpret_cast<const char*>(&bytes), sizeof bytes}),
                      row.at("bytes_hex").get<std::string>());
        }
    }
}

TEST(UUID, ReadsLowerCaseAndBraces) {
    constexpr const char* kText = "68753A44-4D6F-1226-9C60-0050E4C00067";
    for (const char* text :
         {"68753a44-4d6f-1226-9c60-0050e4c00067", "{68753A44-4D6F-1226-9C60-0050E4C00067}"}) {
        auto uuid = adopt(CFUUIDCreateFromString(nullptr, makeString(text).get()));
        EXPECT_EQ(textOf(adopt(CFUUIDCreateString(nullptr, uuid.get())).get()), kText);
    }
}

TEST(UUID, IsNotMadeOfOtherText) {
    for (const char* text : {"", "{", "hello", "68753A44-4D6F-1226-9C60-0050E4C0006G"}) {
        EXPECT_EQ(CFUUIDCreateFromString(nullptr, makeString(text).get()), nullptr) << text;
    }
}

TEST(UUID, IsNewEachTimeAndOfVersion4) {
    std::set<std::string> seen;
    for (int i = 0; i < 100; ++i) {
        auto uuid = adopt(CFUUIDCreate(nullptr));
        const std::string text = textOf(adopt(CFUUIDCreateString(nullptr, uuid.get())).get());
        EXPECT_EQ(text[14], '4') << text;
        EXPECT_NE(std::string("89AB").find(text[19]), std::string::npos) << text;
        EXPECT_TRUE(seen.insert(text).second);
    }
}

TEST(UUID, EqualsOneOfTheSameBytes) {
    auto uuid = adopt(CFUUIDCreate(nullptr));
    auto same = adopt(CFUUIDCreateFromUUIDBytes(nullptr, CFUUIDGetUUIDBytes(uuid.get())));
    EXPECT_TRUE(CFEqual(uuid.get(), same.get()));
    EXPECT_EQ(CFHash(uuid.get()), CFHash(same.get()));
    EXPECT_FALSE(CFEqual(uuid.get(), adopt(CFUUIDCreate(nullptr)).get()));
}

// ---------------------------------------------------------------------------- errors

TEST(Error, HoldsDomainCodeAndInformation) {
    auto information = makeDictionary();
    CFDictionarySetValue(information.get(), CFSTR("line"), makeInteger(7).get());
    auto error = adopt(CFErrorCreate(nullptr, CFSTR("domain"), -5, information.get()));
    CFDictionaryRemoveAllValues(information.get()); // the error has its own copy
    EXPECT_EQ(textOf(CFErrorGetDomain(error.get())), "domain");
    EXPECT_EQ(CFErrorGetCode(error.get()), -5);
    auto copy = adopt(CFErrorCopyUserInfo(error.get()));
    EXPECT_EQ(keysOf(copy.get()), std::vector<std::string>{"line"});
}

TEST(Error, WithoutInformationHasAnEmptyDictionary) {
    auto error = adopt(CFErrorCreate(nullptr, CFSTR("domain"), 1, nullptr));
    auto information = adopt(CFErrorCopyUserInfo(error.get()));
    ASSERT_TRUE(information);
    EXPECT_EQ(CFDictionaryGetCount(information.get()), 0);
    error.reset();
    EXPECT_EQ(CFGetRetainCount(information.get()), 1);
}

TEST(Error, EqualsOneOfTheSameContents) {
    auto error = adopt(CFErrorCreate(nullptr, CFSTR("d"), 1, nullptr));
    auto same = adopt(CFErrorCreate(nullptr, CFSTR("d"), 1, nullptr));
    EXPECT_TRUE(CFEqual(error.get(), same.get()));
    EXPECT_EQ(CFHash(error.get()), CFHash(same.get()));
    EXPECT_FALSE(CFEqual(error.get(), adopt(CFErrorCreate(nullptr, CFSTR("d"), 2, nullptr)).get()));
}

} // namespace
} // namespace krl::cf::test
