// The slot table as an object that owns copies of its keys and values.

#include "tests/library/objects/Values.h"

#include <KRLVesk/KRLFakeDict.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using krl::cf::adopt;
using krl::cf::CFRef;
using krl::test::str;
using krl::test::texts;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr KRTUnsignedWord kFirstMarker = 0xA1B1C1D3;

std::vector<std::string> orderOf(const KRLFakeDict& dictionary) {
    return texts(dictionary.keyEnumerator().get());
}

/// The number of slots, seen from outside: a key is in each, or would go there.
KRTWord slotCountOf(const KRLFakeDict& dictionary) {
    KRTWord highest = -1;
    const auto look = [&](CFTypeRef key) {
        KRTWord found = 0;
        KRTWord freeSlot = 0;
        dictionary.fb(key, &found, &freeSlot);
        highest = std::max({highest, found, freeSlot});
    };
    const auto keys = dictionary.keyEnumerator();
    for (CFIndex i = 0; i < CFArrayGetCount(keys.get()); ++i) {
        look(CFArrayGetValueAtIndex(keys.get(), i));
    }
    for (int i = 0; i < 5000; ++i) {
        look(str("absent" + std::to_string(i)).get());
    }
    return highest + 1;
}

void insert(KRLFakeDict& dictionary, const std::string& key) {
    dictionary.setObject(CFSTR("value"), str(key).get());
}

/// File names as the phone has them, drawn with a fixed seed.
std::vector<std::string> fileNames(size_t count) {
    std::mt19937 random(20071109);
    std::set<std::string> names;
    while (names.size() < count) {
        std::string name;
        for (int i = 0; i < 4; ++i) {
            name += static_cast<char>('A' + random() % 18);
        }
        names.insert(name + (random() % 2 == 0 ? ".m4r" : ".mp3"));
    }
    std::vector<std::string> shuffled(names.begin(), names.end());
    std::shuffle(shuffled.begin(), shuffled.end(), random);
    return shuffled;
}

std::vector<std::string> orderOfTable(KRTWord capacity, const std::vector<std::string>& names) {
    KRTDictionary* const table = KRTDictionaryWithCapacity(capacity);
    std::vector<CFRef<CFStringRef>> keys;
    for (const std::string& name : names) {
        keys.push_back(str(name));
        KRTDictionarySetObjectForKey(table, CFSTR("value"), keys.back().get());
    }
    std::vector<const void*> walked(names.size());
    std::vector<const void*> values(names.size());
    KRTDictionaryGetKeysAndValues(table, walked.data(), values.data());
    KRTDictionaryRelease(table);
    std::vector<std::string> order;
    for (const void* key : walked) {
        order.push_back(krl::test::text(key));
    }
    return order;
}

// ---------------------------------------------------------------------------- functions

TEST(FakeDictFunctions, EqualTheirTwinsOfTheTable) {
    for (KRTWord n = 0; n < 200; ++n) {
        EXPECT_EQ(flsl(n), krl_flsl(n));
        EXPECT_EQ(__KRLHashRoundUpCapacity(n), __KRTHashRoundUpCapacity(n));
        EXPECT_EQ(__KRLHashNumBucketsForCapacity(n), __KRTHashNumBucketsForCapacity(n));
        const auto word = static_cast<KRTUnsignedWord>(n) * 0x9E3779B97F4A7C15;
        EXPECT_EQ(__KRLDictionaryScrambleHash(word), __KRTDictionaryScrambleHash(word));
    }
    EXPECT_EQ(flsl(12), 4);
    EXPECT_EQ(__KRLDictionaryScrambleHash(0x1234), 0x74297DF92E7ECAA3U);
}

// ---------------------------------------------------------------------------- slots

TEST(FakeDict, InitMakesNoSlotsAndTheFirstInsertionFour) {
    const auto dictionary = KRLFakeDict::init();
    EXPECT_EQ(slotCountOf(*dictionary), 0);

    insert(*dictionary, "first");

    EXPECT_EQ(slotCountOf(*dictionary), 4);
}

TEST(FakeDict, InitHasRoomForThreeEntries) {
    const auto dictionary = KRLFakeDict::init();
    insert(*dictionary, "first");
    insert(*dictionary, "second");
    insert(*dictionary, "third");
    EXPECT_EQ(slotCountOf(*dictionary), 4);

    insert(*dictionary, "fourth");

    EXPECT_EQ(slotCountOf(*dictionary), 8);
}

TEST(FakeDict, CapacityTenHasRoomForTwelveInSixteenSlots) {
    const auto dictionary = KRLFakeDict::initWithCapacity(10);
    for (int i = 0; i < 12; ++i) {
        insert(*dictionary, "key" + std::to_string(i));
        EXPECT_EQ(slotCountOf(*dictionary), 16);
    }

    insert(*dictionary, "one more");

    EXPECT_EQ(slotCountOf(*dictionary), 32);
}

TEST(FakeDict, CapacitiesZeroAndOneMakeFourSlots) {
    EXPECT_EQ(slotCountOf(*KRLFakeDict::initWithCapacity(0)), 4);
    EXPECT_EQ(slotCountOf(*KRLFakeDict::initWithCapacity(1)), 4);
}

// ---------------------------------------------------------------------------- order

class FakeDictOrder : public testing::TestWithParam<size_t> {};

TEST_P(FakeDictOrder, IsThatOfTheTableFilledTheSameWay) {
    const auto names = fileNames(GetParam());
    const auto dictionary = KRLFakeDict::initWithCapacity(10);
    for (const std::string& name : names) {
        insert(*dictionary, name);
    }
    EXPECT_THAT(orderOf(*dictionary), ElementsAreArray(orderOfTable(10, names)));
}

INSTANTIATE_TEST_SUITE_P(Sizes, FakeDictOrder, testing::Values(0U, 1U, 12U, 13U, 100U, 3000U));

TEST(FakeDict, AFullDictionaryIsRebuiltBeforeAKeyIsFoundToBeThere) {
    const auto names = fileNames(12);
    const auto dictionary = KRLFakeDict::initWithCapacity(12);
    for (const std::string& name : names) {
        insert(*dictionary, name);
    }
    insert(*dictionary, names.front());
    EXPECT_EQ(slotCountOf(*dictionary), 32);
    EXPECT_EQ(orderOf(*dictionary).size(), 12U);
}

TEST(FakeDict, InsertingAKeyAgainKeepsItsPlaceAndItsFirstKeyObject) {
    const auto dictionary = KRLFakeDict::initWithCapacity(10);
    for (const std::string& name : fileNames(5)) {
        insert(*dictionary, name);
    }
    const auto before = dictionary->keyEnumerator();

    insert(*dictionary, fileNames(5).back());

    const auto after = dictionary->keyEnumerator();
    ASSERT_EQ(CFArrayGetCount(after.get()), 5);
    for (CFIndex i = 0; i < 5; ++i) {
        EXPECT_EQ(CFArrayGetValueAtIndex(before.get(), i), CFArrayGetValueAtIndex(after.get(), i));
    }
}

// ---------------------------------------------------------------------------- ownership

/// References to an object besides the caller's own.
CFIndex othersHolding(CFTypeRef object) {
    return CFGetRetainCount(object) - 1;
}

TEST(FakeDict, StoresCopiesOfMutableObjects) {
    const auto dictionary = KRLFakeDict::initWithCapacity(3);
    const auto key = adopt(CFStringCreateMutableCopy(nullptr, 0, CFSTR("key")));
    const auto element = str("a string that no other test has");
    const auto value = adopt(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
    CFArrayAppendValue(value.get(), element.get());
    dictionary->setObject(value.get(), key.get());

    CFStringAppend(key.get(), CFSTR(" changed"));
    CFArrayRemoveAllValues(value.get());

    EXPECT_THAT(orderOf(*dictionary), ElementsAre("key"));
    EXPECT_EQ(othersHolding(element.get()), 1) << "the copy still holds the element";
}

TEST(FakeDict, CopiesEachTypeOfContainer) {
    const auto element = str("an element of each container");
    const auto array = adopt(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
    CFArrayAppendValue(array.get(), element.get());
    const auto table = krl::test::dictionary();
    CFDictionarySetValue(table.get(), CFSTR("key"), element.get());
    const auto data = adopt(CFDataCreateMutable(nullptr, 0));
    const auto number = krl::test::number(int64_t{1} << 40);
    {
        const auto dictionary = KRLFakeDict::initWithCapacity(4);
        dictionary->setObject(array.get(), CFSTR("array"));
        dictionary->setObject(table.get(), CFSTR("dictionary"));
        dictionary->setObject(data.get(), CFSTR("data"));
        dictionary->setObject(number.get(), CFSTR("number"));
        EXPECT_EQ(othersHolding(array.get()), 0);
        EXPECT_EQ(othersHolding(table.get()), 0);
        EXPECT_EQ(othersHolding(data.get()), 0);
        EXPECT_EQ(othersHolding(number.get()), 1) << "a number is its own copy";
        EXPECT_EQ(othersHolding(element.get()), 4);
    }
    EXPECT_EQ(othersHolding(number.get()), 0);
    EXPECT_EQ(othersHolding(element.get()), 2);
}

TEST(FakeDict, ReplacingReleasesTheOldValueAndKeepsTheNewOne) {
    const auto dictionary = KRLFakeDict::initWithCapacity(3);
    const auto oldValue = str("the value that goes");
    const auto newValue = str("the value that comes");
    dictionary->setObject(oldValue.get(), CFSTR("key"));
    EXPECT_EQ(othersHolding(oldValue.get()), 1);

    dictionary->setObject(newValue.get(), CFSTR("key"));

    EXPECT_EQ(othersHolding(oldValue.get()), 0);
    EXPECT_EQ(othersHolding(newValue.get()), 1);
}

TEST(FakeDict, AValueCanBeReplacedByItself) {
    const auto dictionary = KRLFakeDict::initWithCapacity(3);
    auto value = str("a value of one reference");
    const CFStringRef lent = value.get();
    dictionary->setObject(lent, CFSTR("key"));
    value.reset(); // only the dictionary holds it now

    dictionary->setObject(lent, CFSTR("key"));

    EXPECT_EQ(CFGetRetainCount(lent), 1);
}

TEST(FakeDict, GivesEverythingBackWhenItGoes) {
    const auto key = str("a key that is counted");
    const auto value = str("a value that is counted");
    {
        const auto dictionary = KRLFakeDict::init();
        dictionary->setObject(value.get(), key.get());
        for (const std::string& name : fileNames(40)) {
            insert(*dictionary, name);
        }
        EXPECT_EQ(othersHolding(key.get()), 1);
    }
    EXPECT_EQ(othersHolding(key.get()), 0);
    EXPECT_EQ(othersHolding(value.get()), 0);
}

TEST(FakeDict, ArgumentsAreNotCheckedForNull) {
    const auto dictionary = KRLFakeDict::initWithCapacity(3);
    dictionary->setObject(nullptr, CFSTR("without a value"));
    dictionary->setObject(CFSTR("value"), nullptr);
    dictionary->setObject(CFSTR("another"), nullptr);
    EXPECT_THAT(orderOf(*dictionary), testing::UnorderedElementsAre("without a value", "(null)"));
}

// ---------------------------------------------------------------------------- description

TEST(FakeDict, DescriptionOfAnEmptyOneIsEmpty) {
    EXPECT_EQ(krl::test::text(KRLFakeDict::init()->description().get()), "");
    EXPECT_EQ(krl::test::text(KRLFakeDict::initWithCapacity(10)->description().get()), "");
}

TEST(FakeDict, DescriptionIsOneLineAKeyInSlotOrder) {
    const auto dictionary = KRLFakeDict::initWithCapacity(10);
    for (const std::string& name : fileNames(9)) {
        insert(*dictionary, name);
    }
    std::string expected;
    for (const std::string& key : orderOf(*dictionary)) {
        expected += key + "\n";
    }
    EXPECT_EQ(krl::test::text(dictionary->description().get()), expected);
}

TEST(FakeDict, KeysOfOtherTypesAreDescribed) {
    const auto dictionary = KRLFakeDict::init();
    dictionary->setObject(CFSTR("value"), krl::test::number(42).get());
    EXPECT_EQ(krl::test::text(dictionary->description().get()), "42\n");
}

// ---------------------------------------------------------------------------- markers

TEST(FakeDict, StartsWithTheMarkerOfTheTable) {
    const auto dictionary = KRLFakeDict::init();
    EXPECT_TRUE(dictionary->__hkm(kFirstMarker));
    EXPECT_TRUE(dictionary->__hkm(~kFirstMarker));
    EXPECT_TRUE(dictionary->__hkm(0xFFFFFFFF5E4E3E2C));
    EXPECT_FALSE(dictionary->__hkm(kFirstMarker - 1));
    EXPECT_FALSE(dictionary->__hkv(kFirstMarker));
    EXPECT_FALSE(dictionary->__hkv(~kFirstMarker));
    EXPECT_TRUE(dictionary->__hkv(0));
}

TEST(FakeDict, ANewMarkerIsLowerByTheWordSize) {
    const auto dictionary = KRLFakeDict::initWithCapacity(10);
    insert(*dictionary, "key");

    dictionary->fNM();

    EXPECT_TRUE(dictionary->__hkm(kFirstMarker - 8));
    EXPECT_FALSE(dictionary->__hkm(kFirstMarker));
    EXPECT_THAT(orderOf(*dictionary), ElementsAre("key"));
    EXPECT_EQ(slotCountOf(*dictionary), 16) << "empty slots have the new marker";
}

TEST(FakeDict, InsertionsGoOnAfterANewMarker) {
    const auto names = fileNames(30);
    const auto dictionary = KRLFakeDict::initWithCapacity(10);
    for (const std::string& name : names) {
        insert(*dictionary, name);
        dictionary->fNM();
    }
    EXPECT_THAT(orderOf(*dictionary), ElementsAreArray(orderOfTable(10, names)));
}

// ---------------------------------------------------------------------------- the probe

TEST(FakeDict, TheProbeTellsWhereAKeyIsOrWouldGo) {
    const auto dictionary = KRLFakeDict::initWithCapacity(10);
    KRTWord found = 7;
    KRTWord freeSlot = 7;
    dictionary->fb(CFSTR("key"), &found, &freeSlot);
    EXPECT_EQ(found, -1);
    EXPECT_EQ(freeSlot,
              static_cast<KRTWord>(__KRLDictionaryScrambleHash(CFHash(CFSTR("key"))) & 15));
    const KRTWord place = freeSlot;
    insert(*dictionary, "key");

    dictionary->fb(CFSTR("key"), &found, &freeSlot);

    EXPECT_EQ(found, place);
    EXPECT_EQ(freeSlot, -1);
}

TEST(FakeDict, TheProbeGoesWithoutAFreeSlotToTell) {
    const auto dictionary = KRLFakeDict::initWithCapacity(10);
    KRTWord found = 7;
    dictionary->fb(CFSTR("key"), &found, nullptr);
    EXPECT_EQ(found, -1);
}

// ---------------------------------------------------------------------------- exceptions

TEST(FakeDict, ThrowsOutOfMemoryWhenTheSlotsCannotBeMade) {
    for (const KRTWord capacity :
         {KRTWord{1} << 60, KRTWord{1} << 61, KRTWord{1} << 62, INTPTR_MAX}) {
        try {
            KRLFakeDict::initWithCapacity(capacity);
            ADD_FAILURE() << "nothing was thrown for " << capacity;
        } catch (const KRLException& exception) {
            EXPECT_EQ(exception.name(), "OutOfMemory");
            EXPECT_EQ(exception.reason(), "Couldn't allocate memory for dictionary");
            EXPECT_STREQ(exception.what(), "Couldn't allocate memory for dictionary");
        }
    }
}

TEST(FakeDict, KeepsItsEntriesWhenMemoryRunsOut) {
    const auto names = fileNames(5);
    const auto dictionary = KRLFakeDict::initWithCapacity(10);
    for (const std::string& name : names) {
        insert(*dictionary, name);
    }
    EXPECT_THROW(dictionary->_dg(KRTWord{1} << 61), KRLException);
    EXPECT_EQ(orderOf(*dictionary).size(), 5U);
    insert(*dictionary, "one more, which makes the slots anew");
    EXPECT_EQ(orderOf(*dictionary).size(), 6U);
}

/// A key that is equal to another one from the moment when its string is changed.
struct ChangingKey {
    explicit ChangingKey(const std::string& name)
        : string(adopt(CFStringCreateMutableCopy(nullptr, 0, str(name).get()))) {
        const void* element = string.get();
        array = adopt(CFArrayCreate(nullptr, &element, 1, &kCFTypeArrayCallBacks));
    }

    CFRef<CFMutableStringRef> string;
    CFRef<CFArrayRef> array;
};

TEST(FakeDict, ThrowsHashErrorWhenKeysHaveBecomeEqual) {
    ChangingKey first("same");
    ChangingKey second("");
    {
        const auto dictionary = KRLFakeDict::initWithCapacity(3);
        dictionary->setObject(CFSTR("value"), first.array.get());
        dictionary->setObject(CFSTR("value"), second.array.get());
        insert(*dictionary, "third");
        CFStringAppend(second.string.get(), CFSTR("same"));
        try {
            insert(*dictionary, "fourth, which makes the dictionary grow");
            ADD_FAILURE() << "nothing was thrown";
        } catch (const KRLException& exception) {
            EXPECT_EQ(exception.name(), "HashError");
            EXPECT_EQ(exception.reason(), "Two values now hash to the same slot");
        }
        EXPECT_LT(orderOf(*dictionary).size(), 3U) << "the new slots are filled in part";
    }
    EXPECT_EQ(othersHolding(first.array.get()), 0);
    EXPECT_EQ(othersHolding(second.array.get()), 0);
}

} // namespace
