#include "tests/corefoundation/Support.h"

#include <bit>
#include <gtest/gtest.h>
#include <map>

namespace krl::cf::test {
namespace {

/// One object of each type.
std::vector<CFRef<CFTypeRef>> oneOfEach() {
    std::vector<CFRef<CFTypeRef>> objects;
    objects.emplace_back(makeString("a"));
    objects.emplace_back(retain(kCFBooleanTrue));
    objects.emplace_back(makeInteger(1));
    objects.emplace_back(adopt(CFDateCreate(nullptr, 1)));
    objects.emplace_back(makeData("a"));
    objects.emplace_back(makeArray());
    objects.emplace_back(makeDictionary());
    objects.emplace_back(
        adopt(CFURLCreateWithFileSystemPath(nullptr, CFSTR("/a"), kCFURLPOSIXPathStyle, false)));
    objects.emplace_back(adopt(CFUUIDCreate(nullptr)));
    objects.emplace_back(adopt(CFErrorCreate(nullptr, CFSTR("d"), 1, nullptr)));
    objects.emplace_back(retain(CFRunLoopGetCurrent()));
    CFRunLoopSourceContext context{};
    objects.emplace_back(adopt(CFRunLoopSourceCreate(nullptr, 0, &context)));
    objects.emplace_back(adopt(CFRunLoopTimerCreate(nullptr, 0, 0, 0, 0, nullptr, nullptr)));
    objects.emplace_back(retain(CFNotificationCenterGetLocalCenter()));
    objects.emplace_back(retain(kCFNull));
    objects.emplace_back(retain(kCFAllocatorNull));
    return objects;
}

TEST(Object, EqualsItselfAndNoObjectOfAnotherType) {
    const auto objects = oneOfEach();
    for (size_t i = 0; i < objects.size(); ++i) {
        for (size_t j = 0; j < objects.size(); ++j) {
            EXPECT_EQ(CFEqual(objects[i].get(), objects[j].get()) != 0, i == j) << i << " " << j;
            EXPECT_EQ(CFGetTypeID(objects[i].get()) == CFGetTypeID(objects[j].get()), i == j);
        }
    }
}

TEST(Object, HasTheTypeThatItsFunctionTells) {
    const CFTypeID types[] = {CFStringGetTypeID(),       CFBooleanGetTypeID(),
                              CFNumberGetTypeID(),       CFDateGetTypeID(),
                              CFDataGetTypeID(),         CFArrayGetTypeID(),
                              CFDictionaryGetTypeID(),   CFURLGetTypeID(),
                              CFUUIDGetTypeID(),         CFErrorGetTypeID(),
                              CFRunLoopGetTypeID(),      CFRunLoopSourceGetTypeID(),
                              CFRunLoopTimerGetTypeID(), CFNotificationCenterGetTypeID(),
                              CFNullGetTypeID(),         CFAllocatorGetTypeID()};
    const auto objects = oneOfEach();
    ASSERT_EQ(std::size(types), objects.size());
    for (size_t i = 0; i < objects.size(); ++i) {
        EXPECT_EQ(CFGetTypeID(objects[i].get()), types[i]) << i;
    }
}

TEST(Object, HasADescription) {
    for (const auto& object : oneOfEach()) {
        auto description = adopt(CFCopyDescription(object.get()));
        EXPECT_GT(CFStringGetLength(description.get()), 0);
    }
}

TEST(Object, IsShownByItsDescription) {
    ::testing::internal::CaptureStderr();
    CFShow(makeString("caf\xC3\xA9").get());
    CFShow(makeInteger(5).get());
    CFShow(nullptr);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "caf\xC3\xA9\n5\n(null)\n");
}

TEST(Object, IsCountedByRetainAndRelease) {
    auto object = makeData("a");
    EXPECT_EQ(CFGetRetainCount(object.get()), 1);
    CFRetain(object.get());
    EXPECT_EQ(CFGetRetainCount(object.get()), 2);
    CFRelease(object.get());
    EXPECT_EQ(CFGetRetainCount(object.get()), 1);
}

TEST(Object, NullIsNeitherRetainedNorReleased) {
    EXPECT_EQ(CFRetain(nullptr), nullptr);
    CFRelease(nullptr);
}

TEST(Object, NullEqualsNullOnly) {
    EXPECT_TRUE(CFEqual(nullptr, nullptr));
    EXPECT_FALSE(CFEqual(nullptr, CFSTR("")));
    EXPECT_FALSE(CFEqual(CFSTR(""), nullptr));
}

TEST(Object, ConstantsAreImmortal) {
    for (CFTypeRef constant :
         {static_cast<CFTypeRef>(kCFBooleanTrue), static_cast<CFTypeRef>(kCFNull),
          static_cast<CFTypeRef>(kCFAllocatorMalloc)}) {
        CFRelease(constant);
        CFRelease(constant);
        EXPECT_GT(CFGetRetainCount(constant), 1000000);
    }
    EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue));
}

TEST(ObjectVectors, Equality) {
    const std::map<std::string, CFRef<CFTypeRef>> objects = [] {
        auto dictionary = [](std::initializer_list<std::pair<const char*, int>> pairs) {
            auto result = makeDictionary();
            for (const auto& [key, value] : pairs) {
                CFDictionarySetValue(result.get(), makeString(key).get(), makeInteger(value).get());
            }
            return result;
        };
        auto arrayOf = [](CFTypeRef value) {
            auto result = makeArray();
            CFArrayAppendValue(result.get(), value);
            return result;
        };
        const float half = 0.5F;
        return std::map<std::string, CFRef<CFTypeRef>>{
            {"int 0", makeInteger(0)},
            {"int 1", makeInteger(1)},
            {"double -0.0", makeReal(-0.0)},
            {"double 0.5", makeReal(0.5)},
            {"float 0.5", adopt(CFNumberCreate(nullptr, kCFNumberFloatType, &half))},
            {"true", retain(kCFBooleanTrue)},
            {"false", retain(kCFBooleanFalse)},
            {"string 1", makeString("1")},
            {"empty data", makeData("")},
            {"empty array", makeArray()},
            {"empty dict", makeDictionary()},
            {"array int 1", arrayOf(makeInteger(1).get())},
            {"array double 1.0", arrayOf(makeReal(1).get())},
            {"dict a1 b2", dictionary({{"a", 1}, {"b", 2}})},
            {"dict b2 a1", dictionary({{"b", 2}, {"a", 1}})},
            {"null", retain(kCFNull)},
        };
    }();
    for (const Json& row : loadVectors("hash_other.json", "equality")) {
        SCOPED_TRACE(row.dump());
        CFTypeRef a = objects.at(row.at("a")).get();
        CFTypeRef b = objects.at(row.at("b")).get();
        EXPECT_EQ(CFEqual(a, b) != 0, row.at("equal").get<bool>());
        if (CFEqual(a, b)) {
            EXPECT_EQ(CFHash(a), CFHash(b));
        }
    }
}

CFRef<CFTypeRef> numberOf(const Json& object) {
    const std::string type = object.at("cf_number_type");
    const std::string value = object.at("value");
    if (type.starts_with("Float")) {
        const double real =
            std::bit_cast<double>(std::stoull(object.at("bits").get<std::string>(), nullptr, 16));
        const auto single = static_cast<float>(real);
        return type == "Float32" ? adopt(CFNumberCreate(nullptr, kCFNumberFloat32Type, &single))
                                 : adopt(CFNumberCreate(nullptr, kCFNumberFloat64Type, &real));
    }
    const std::map<std::string, CFNumberType> types = {{"SInt8", kCFNumberSInt8Type},
                                                       {"SInt16", kCFNumberSInt16Type},
                                                       {"SInt32", kCFNumberSInt32Type},
                                                       {"SInt64", kCFNumberSInt64Type}};
    const int64_t integer = std::stoll(value); // its low bytes come first
    return adopt(CFNumberCreate(nullptr, types.at(type), &integer));
}

CFRef<CFTypeRef> objectOf(const std::string& kind, const Json& object) {
    if (kind == "number") {
        return numberOf(object);
    }
    if (kind == "boolean") {
        return retain(object.at("value").get<bool>() ? kCFBooleanTrue : kCFBooleanFalse);
    }
    if (kind == "data") {
        return makeData(decodeBase64(object.at("base64")));
    }
    if (kind == "date") {
        return adopt(
            CFDateCreate(nullptr, std::stod(object.at("absolute_time").get<std::string>())));
    }
    const int count = object.at("count");
    if (kind == "array") {
        auto array = makeArray();
        for (int i = 0; i < count; ++i) {
            CFArrayAppendValue(array.get(), kCFNull);
        }
        return array;
    }
    auto dictionary = makeDictionary();
    for (int i = 0; i < count; ++i) {
        CFDictionarySetValue(dictionary.get(), makeInteger(i).get(), kCFNull);
    }
    return dictionary;
}

TEST(ObjectVectors, Hash) {
    int tested = 0;
    for (const Json& row : loadVectors("hash_other.json", "hashes")) {
        if (row.value("unspecified", false)) {
            continue; // depends on the processor
        }
        SCOPED_TRACE(row.dump());
        auto object = objectOf(row.at("kind"), row.at("object"));
        EXPECT_EQ(std::to_string(CFHash(object.get())), row.at("hash").get<std::string>());
        ++tested;
    }
    EXPECT_GT(tested, 40);
}

TEST(Cast, GivesNullForAnotherType) {
    CFTypeRef object = CFSTR("a");
    EXPECT_EQ(cast<CFStringRef>(object), object);
    EXPECT_EQ(cast<CFNumberRef>(object), nullptr);
    EXPECT_EQ(cast<CFStringRef>(nullptr), nullptr);
}

TEST(Reference, CountsAsItIsCopiedAndMoved) {
    CFRef<CFStringRef> first = makeString("a");
    CFStringRef object = first.get();
    {
        CFRef<CFStringRef> second = first;
        EXPECT_EQ(CFGetRetainCount(object), 2);
        CFRef<CFTypeRef> general = second;
        EXPECT_EQ(CFGetRetainCount(object), 3);
        const CFRef<CFTypeRef> moved = std::move(general);
        EXPECT_EQ(CFGetRetainCount(object), 3);
    }
    EXPECT_EQ(CFGetRetainCount(object), 1);
    first = retain(object);
    EXPECT_EQ(CFGetRetainCount(object), 1);
    auto kept = adopt(first.leak());
    EXPECT_FALSE(first);
    EXPECT_EQ(first, nullptr);
    EXPECT_EQ(CFGetRetainCount(kept.get()), 1);
    kept.reset();
    EXPECT_FALSE(kept);
}

TEST(Reference, ReceivesWhatAFunctionHandsOut) {
    CFRef<CFStringRef> error = makeString("old");
    auto tree =
        adopt(CFPropertyListCreateFromXMLData(nullptr, makeData("").get(), 0, error.receive()));
    EXPECT_FALSE(tree);
    EXPECT_NE(textOf(error.get()), "old");
}

} // namespace
} // namespace krl::cf::test
