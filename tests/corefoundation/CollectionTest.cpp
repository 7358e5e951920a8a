#include "tests/corefoundation/Support.h"

#include <CoreFoundation/CFValues.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>

namespace krl::cf::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

CFRef<CFMutableArrayRef> arrayOf(std::initializer_list<const char*> texts) {
    auto array = makeArray();
    for (const char* text : texts) {
        CFArrayAppendValue(array.get(), makeString(text).get());
    }
    return array;
}

CFRef<CFMutableDictionaryRef> dictionaryOf(std::initializer_list<const char*> keys) {
    auto dictionary = makeDictionary();
    for (const char* key : keys) {
        CFDictionarySetValue(dictionary.get(), makeString(key).get(), makeString(key).get());
    }
    return dictionary;
}

std::string valueOf(CFDictionaryRef dictionary, CFStringRef key) {
    return textOf(cast<CFStringRef>(CFDictionaryGetValue(dictionary, key)));
}

// ---------------------------------------------------------------------------- arrays

TEST(Array, HoldsItsValues) {
    auto a = makeString("a");
    const void* values[] = {a.get(), CFSTR("b")};
    auto array = adopt(CFArrayCreate(nullptr, values, 2, &kCFTypeArrayCallBacks));
    EXPECT_EQ(CFGetRetainCount(a.get()), 2);
    EXPECT_THAT(textsOf(array.get()), ElementsAre("a", "b"));
    array.reset();
    EXPECT_EQ(CFGetRetainCount(a.get()), 1);
}

TEST(Array, MayBeEmpty) {
    auto array = adopt(CFArrayCreate(nullptr, nullptr, 0, &kCFTypeArrayCallBacks));
    EXPECT_EQ(CFArrayGetCount(array.get()), 0);
}

TEST(Array, ACapacityIsNoLimit) {
    auto array = adopt(CFArrayCreateMutable(nullptr, 2, &kCFTypeArrayCallBacks));
    for (int i = 0; i < 100; ++i) {
        CFArrayAppendValue(array.get(), CFSTR("a"));
    }
    EXPECT_EQ(CFArrayGetCount(array.get()), 100);
}

TEST(Array, InsertsSetsAndRemoves) {
    auto array = arrayOf({"a", "c"});
    CFArrayInsertValueAtIndex(array.get(), 1, CFSTR("b"));
    CFArrayInsertValueAtIndex(array.get(), 3, CFSTR("d"));
    EXPECT_THAT(textsOf(array.get()), ElementsAre("a", "b", "c", "d"));
    CFArraySetValueAtIndex(array.get(), 0, CFSTR("A"));
    CFArraySetValueAtIndex(array.get(), 4, CFSTR("e"));
    CFArrayRemoveValueAtIndex(array.get(), 2);
    EXPECT_THAT(textsOf(array.get()), ElementsAre("A", "b", "d", "e"));
    CFArrayRemoveAllValues(array.get());
    EXPECT_EQ(CFArrayGetCount(array.get()), 0);
    CFArrayAppendValue(array.get(), CFSTR("z"));
    EXPECT_THAT(textsOf(array.get()), ElementsAre("z"));
}

TEST(Array, ReplacingAValueByItselfKeepsItAlive) {
    auto array = arrayOf({"a"});
    CFArraySetValueAtIndex(array.get(), 0, CFArrayGetValueAtIndex(array.get(), 0));
    EXPECT_THAT(textsOf(array.get()), ElementsAre("a"));
}

TEST(Array, FindsObjectsByEquality) {
    auto array = arrayOf({"a", "b", "a"});
    EXPECT_EQ(CFArrayGetFirstIndexOfValue(array.get(), wholeRange(array.get()), CFSTR("a")), 0);
    EXPECT_EQ(CFArrayGetFirstIndexOfValue(array.get(), CFRangeMake(1, 2), CFSTR("a")), 2);
    EXPECT_EQ(CFArrayGetFirstIndexOfValue(array.get(), wholeRange(array.get()), CFSTR("c")),
              kCFNotFound);
    EXPECT_TRUE(CFArrayContainsValue(array.get(), wholeRange(array.get()), CFSTR("b")));
    EXPECT_FALSE(CFArrayContainsValue(array.get(), CFRangeMake(0, 1), CFSTR("b")));
}

TEST(Array, WithoutCallBacksFindsPointersByIdentity) {
    auto array = adopt(CFArrayCreateMutable(nullptr, 0, nullptr));
    auto one = makeString("a");
    auto other = makeString("a");
    CFArrayAppendValue(array.get(), one.get());
    CFArrayAppendValue(array.get(), nullptr);
    EXPECT_EQ(CFGetRetainCount(one.get()), 1);
    EXPECT_TRUE(CFArrayContainsValue(array.get(), wholeRange(array.get()), one.get()));
    EXPECT_FALSE(CFArrayContainsValue(array.get(), wholeRange(array.get()), other.get()));
    EXPECT_EQ(CFArrayGetFirstIndexOfValue(array.get(), wholeRange(array.get()), nullptr), 1);
}

TEST(Array, UsesTheCallersCallBacks) {
    CFArrayCallBacks callBacks{};
    callBacks.equal = [](const void* left, const void* right) -> Boolean {
        return *static_cast<const int*>(left) == *static_cast<const int*>(right);
    };
    const int numbers[] = {1, 2, 2};
    auto array = adopt(CFArrayCreateMutable(nullptr, 0, &callBacks));
    callBacks.equal = nullptr; // the array has its own copy
    CFArrayAppendValue(array.get(), &numbers[0]);
    CFArrayAppendValue(array.get(), &numbers[1]);
    auto copy = adopt(CFArrayCreateCopy(nullptr, array.get()));
    array.reset();
    EXPECT_EQ(CFArrayGetFirstIndexOfValue(copy.get(), wholeRange(copy.get()), &numbers[2]), 1);
}

TEST(Array, CopiesDoNotFollowTheOriginal) {
    auto array = arrayOf({"a"});
    auto copy = adopt(CFArrayCreateCopy(nullptr, array.get()));
    auto mutableCopy = adopt(CFArrayCreateMutableCopy(nullptr, 1, array.get()));
    CFArrayAppendValue(array.get(), CFSTR("b"));
    CFArrayAppendValue(mutableCopy.get(), CFSTR("c"));
    EXPECT_THAT(textsOf(copy.get()), ElementsAre("a"));
    EXPECT_THAT(textsOf(mutableCopy.get()), ElementsAre("a", "c"));
    auto again = adopt(CFArrayCreateCopy(nullptr, copy.get()));
    EXPECT_EQ(again.get(), copy.get());
}

TEST(Array, AppendsARangeOfAnotherOrOfItself) {
    auto array = arrayOf({"a", "b", "c"});
    CFArrayAppendArray(array.get(), array.get(), CFRangeMake(1, 2));
    EXPECT_THAT(textsOf(array.get()), ElementsAre("a", "b", "c", "b", "c"));
}

TEST(Array, HandsOutRanges) {
    auto array = arrayOf({"a", "b", "c"});
    const void* values[2] = {};
    CFArrayGetValues(array.get(), CFRangeMake(1, 2), values);
    EXPECT_TRUE(CFEqual(values[0], CFSTR("b")));
    EXPECT_TRUE(CFEqual(values[1], CFSTR("c")));
    std::string seen;
    CFArrayApplyFunction(
        array.get(), CFRangeMake(0, 2),
        [](const void* value, void* context) {
            *static_cast<std::string*>(context) += textOf(static_cast<CFStringRef>(value));
        },
        &seen);
    EXPECT_EQ(seen, "ab");
}

TEST(Array, SortsARangeStably) {
    auto array = arrayOf({"z", "b1", "a", "b2"});
    CFArraySortValues(
        array.get(), CFRangeMake(1, 3),
        [](const void* left, const void* right, void*) -> CFComparisonResult {
            const UniChar one = CFStringGetCharacterAtIndex(static_cast<CFStringRef>(left), 0);
            const UniChar other = CFStringGetCharacterAtIndex(static_cast<CFStringRef>(right), 0);
            return one == other ? kCFCompareEqualTo
                                : (one < other ? kCFCompareLessThan : kCFCompareGreaterThan);
        },
        nullptr);
    EXPECT_THAT(textsOf(array.get()), ElementsAre("z", "a", "b1", "b2"));
}

TEST(Array, IsEqualInOrder) {
    EXPECT_TRUE(CFEqual(arrayOf({"a", "b"}).get(), arrayOf({"a", "b"}).get()));
    EXPECT_FALSE(CFEqual(arrayOf({"a", "b"}).get(), arrayOf({"b", "a"}).get()));
    EXPECT_FALSE(CFEqual(arrayOf({"a"}).get(), arrayOf({"a", "b"}).get()));
}

// ---------------------------------------------------------------------------- dictionaries

TEST(Dictionary, EnumeratesInTheOrderOfInsertion) {
    EXPECT_THAT(keysOf(dictionaryOf({"z", "a", "m"}).get()), ElementsAre("z", "a", "m"));
}

TEST(Dictionary, ReplacingKeepsThePlaceAndTheFirstKeyObject) {
    auto key = makeString("a");
    auto dictionary = makeDictionary();
    CFDictionarySetValue(dictionary.get(), key.get(), CFSTR("1"));
    CFDictionarySetValue(dictionary.get(), CFSTR("b"), CFSTR("2"));
    CFDictionarySetValue(dictionary.get(), makeString("a").get(), CFSTR("3"));
    EXPECT_THAT(keysOf(dictionary.get()), ElementsAre("a", "b"));
    EXPECT_EQ(valueOf(dictionary.get(), CFSTR("a")), "3");
    const void* keys[2] = {};
    CFDictionaryGetKeysAndValues(dictionary.get(), keys, nullptr);
    EXPECT_EQ(keys[0], key.get());
}

TEST(Dictionary, RemovingAndAddingAgainMovesToTheEnd) {
    auto dictionary = dictionaryOf({"a", "b", "c"});
    CFDictionaryRemoveValue(dictionary.get(), CFSTR("a"));
    EXPECT_THAT(keysOf(dictionary.get()), ElementsAre("b", "c"));
    CFDictionarySetValue(dictionary.get(), CFSTR("a"), CFSTR("1"));
    EXPECT_THAT(keysOf(dictionary.get()), ElementsAre("b", "c", "a"));
}

TEST(Dictionary, CopiesKeepTheOrder) {
    auto dictionary = dictionaryOf({"z", "a", "m", "b"});
    CFDictionaryRemoveValue(dictionary.get(), CFSTR("a"));
    auto copy = adopt(CFDictionaryCreateCopy(nullptr, dictionary.get()));
    auto mutableCopy = adopt(CFDictionaryCreateMutableCopy(nullptr, 1, dictionary.get()));
    CFDictionarySetValue(mutableCopy.get(), CFSTR("c"), CFSTR("c"));
    EXPECT_THAT(keysOf(copy.get()), ElementsAre("z", "m", "b"));
    EXPECT_THAT(keysOf(mutableCopy.get()), ElementsAre("z", "m", "b", "c"));
    auto again = adopt(CFDictionaryCreateCopy(nullptr, copy.get()));
    EXPECT_EQ(again.get(), copy.get());
}

TEST(Dictionary, ACapacityIsNoLimit) {
    auto dictionary = adopt(CFDictionaryCreateMutable(nullptr, 5, &kCFTypeDictionaryKeyCallBacks,
                                                      &kCFTypeDictionaryValueCallBacks));
    for (int i = 0; i < 100; ++i) {
        CFDictionarySetValue(dictionary.get(), makeInteger(i).get(), kCFNull);
    }
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 100);
}

TEST(Dictionary, AddReplaceAndSet) {
    auto dictionary = dictionaryOf({"a"});
    CFDictionaryAddValue(dictionary.get(), CFSTR("a"), CFSTR("1"));
    EXPECT_EQ(valueOf(dictionary.get(), CFSTR("a")), "a");
    CFDictionaryReplaceValue(dictionary.get(), CFSTR("a"), CFSTR("2"));
    EXPECT_EQ(valueOf(dictionary.get(), CFSTR("a")), "2");
    CFDictionaryReplaceValue(dictionary.get(), CFSTR("b"), CFSTR("3"));
    EXPECT_FALSE(CFDictionaryContainsKey(dictionary.get(), CFSTR("b")));
    CFDictionaryAddValue(dictionary.get(), CFSTR("b"), CFSTR("4"));
    EXPECT_THAT(keysOf(dictionary.get()), ElementsAre("a", "b"));
}

TEST(Dictionary, AnAbsentKeyHasNoValue) {
    auto dictionary = dictionaryOf({"a"});
    const void* value = &value;
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), CFSTR("b")), nullptr);
    EXPECT_FALSE(CFDictionaryGetValueIfPresent(dictionary.get(), CFSTR("b"), &value));
    EXPECT_EQ(value, &value);
    EXPECT_TRUE(CFDictionaryGetValueIfPresent(dictionary.get(), CFSTR("a"), &value));
    EXPECT_TRUE(CFEqual(value, CFSTR("a")));
    EXPECT_TRUE(CFDictionaryGetValueIfPresent(dictionary.get(), CFSTR("a"), nullptr));
    CFDictionaryRemoveValue(dictionary.get(), CFSTR("b"));
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 1);
}

TEST(Dictionary, OfObjectsTakesNoNull) {
    auto dictionary = dictionaryOf({"a"});
    CFDictionarySetValue(dictionary.get(), CFSTR("a"), nullptr);
    CFDictionarySetValue(dictionary.get(), CFSTR("b"), nullptr);
    CFDictionarySetValue(dictionary.get(), nullptr, CFSTR("b"));
    EXPECT_THAT(keysOf(dictionary.get()), ElementsAre("a"));
    EXPECT_EQ(valueOf(dictionary.get(), CFSTR("a")), "a");
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), nullptr), nullptr);
    CFDictionaryRemoveValue(dictionary.get(), nullptr);
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 1);
}

TEST(Dictionary, WithoutCallBacksKnowsPointersByIdentity) {
    auto dictionary = adopt(CFDictionaryCreateMutable(nullptr, 0, nullptr, nullptr));
    auto one = makeString("a");
    auto other = makeString("a");
    CFDictionarySetValue(dictionary.get(), one.get(), one.get());
    CFDictionarySetValue(dictionary.get(), other.get(), nullptr);
    CFDictionarySetValue(dictionary.get(), nullptr, other.get());
    EXPECT_EQ(CFGetRetainCount(one.get()), 1);
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 3);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), one.get()), one.get());
    EXPECT_TRUE(CFDictionaryContainsKey(dictionary.get(), other.get()));
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), nullptr), other.get());
}

TEST(Dictionary, UsesTheCallersCallBacks) {
    CFDictionaryKeyCallBacks keyCallBacks{};
    keyCallBacks.equal = [](const void* left, const void* right) -> Boolean {
        return *static_cast<const int*>(left) == *static_cast<const int*>(right);
    };
    keyCallBacks.hash = [](const void* value) -> CFHashCode {
        return static_cast<CFHashCode>(*static_cast<const int*>(value)) % 3;
    };
    std::vector<int> numbers(100);
    auto dictionary = adopt(CFDictionaryCreateMutable(nullptr, 0, &keyCallBacks, nullptr));
    keyCallBacks = {}; // the dictionary has its own copy
    for (size_t i = 0; i < numbers.size(); ++i) {
        numbers[i] = static_cast<int>(i % 50);
        CFDictionarySetValue(dictionary.get(), &numbers[i], &numbers[i]);
    }
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 50);
    const int key = 7;
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), &key), &numbers[57]);
}

TEST(Dictionary, HasItsPairsInItsOwnOrderAndNullHasNone) {
    const auto dictionary = makeDictionary();
    CFDictionarySetValue(dictionary.get(), CFSTR("b"), CFSTR("1"));
    CFDictionarySetValue(dictionary.get(), CFSTR("a"), CFSTR("2"));
    std::vector<std::string> texts;
    for (const auto& [key, value] : pairsOf(dictionary.get())) {
        texts.push_back(textOf(static_cast<CFStringRef>(key)));
        texts.push_back(textOf(static_cast<CFStringRef>(value)));
    }
    EXPECT_EQ(texts, (std::vector<std::string>{"b", "1", "a", "2"}));
    EXPECT_TRUE(pairsOf(nullptr).empty());
}

TEST(Dictionary, HoldsKeysAndValues) {
    auto key = makeString("k");
    auto value = makeString("v");
    auto dictionary = makeDictionary();
    CFDictionarySetValue(dictionary.get(), key.get(), value.get());
    EXPECT_EQ(CFGetRetainCount(key.get()), 2);
    EXPECT_EQ(CFGetRetainCount(value.get()), 2);
    CFDictionarySetValue(dictionary.get(), key.get(), value.get());
    EXPECT_EQ(CFGetRetainCount(value.get()), 2);
    auto copy = adopt(CFDictionaryCreateCopy(nullptr, dictionary.get()));
    EXPECT_EQ(CFGetRetainCount(key.get()), 3);
    CFDictionaryRemoveValue(dictionary.get(), CFSTR("k"));
    EXPECT_EQ(CFGetRetainCount(key.get()), 2);
    copy.reset();
    EXPECT_EQ(CFGetRetainCount(key.get()), 1);
    EXPECT_EQ(CFGetRetainCount(value.get()), 1);
}

TEST(Dictionary, IsMadeOfArraysInWhichTheLastOfAKeyCounts) {
    const void* keys[] = {CFSTR("a"), CFSTR("b"), CFSTR("a")};
    const void* values[] = {CFSTR("1"), CFSTR("2"), CFSTR("3")};
    auto dictionary =
        adopt(CFDictionaryCreate(nullptr, keys, values, 3, &kCFTypeDictionaryKeyCallBacks,
                                 &kCFTypeDictionaryValueCallBacks));
    EXPECT_THAT(keysOf(dictionary.get()), ElementsAre("a", "b"));
    EXPECT_EQ(valueOf(dictionary.get(), CFSTR("a")), "3");
    auto empty = adopt(CFDictionaryCreate(nullptr, nullptr, nullptr, 0, nullptr, nullptr));
    EXPECT_EQ(CFDictionaryGetCount(empty.get()), 0);
}

TEST(Dictionary, RemovesAll) {
    auto dictionary = makeDictionary();
    for (int i = 0; i < 50; ++i) {
        CFDictionarySetValue(dictionary.get(), makeInteger(i).get(), kCFNull);
    }
    CFDictionaryRemoveAllValues(dictionary.get());
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 0);
    EXPECT_FALSE(CFDictionaryContainsKey(dictionary.get(), makeInteger(7).get()));
    CFDictionarySetValue(dictionary.get(), CFSTR("a"), CFSTR("1"));
    EXPECT_THAT(keysOf(dictionary.get()), ElementsAre("a"));
}

TEST(Dictionary, IsEqualWhateverTheOrder) {
    EXPECT_TRUE(CFEqual(dictionaryOf({"a", "b"}).get(), dictionaryOf({"b", "a"}).get()));
    EXPECT_FALSE(CFEqual(dictionaryOf({"a", "b"}).get(), dictionaryOf({"a", "c"}).get()));
    EXPECT_FALSE(CFEqual(dictionaryOf({"a"}).get(), dictionaryOf({"a", "b"}).get()));
    auto other = dictionaryOf({"a"});
    CFDictionarySetValue(other.get(), CFSTR("a"), CFSTR("x"));
    EXPECT_FALSE(CFEqual(other.get(), dictionaryOf({"a"}).get()));
}

TEST(Dictionary, AppliesInOrder) {
    auto dictionary = dictionaryOf({"z", "x", "a"});
    CFDictionaryRemoveValue(dictionary.get(), CFSTR("x"));
    std::string seen;
    CFDictionaryApplyFunction(
        dictionary.get(),
        [](const void* key, const void* value, void* context) {
            *static_cast<std::string*>(context) +=
                textOf(static_cast<CFStringRef>(key)) + textOf(static_cast<CFStringRef>(value));
        },
        &seen);
    EXPECT_EQ(seen, "zzaa");
}

/// The order by the simplest means: a list that is searched from its start.
class ListOfPairs {
public:
    void set(const std::string& key, int value) {
        for (auto& pair : pairs_) {
            if (pair.first == key) {
                pair.second = value;
                return;
            }
        }
        pairs_.emplace_back(key, value);
    }

    void remove(const std::string& key) {
        std::erase_if(pairs_, [&](const auto& pair) { return pair.first == key; });
    }

    const std::vector<std::pair<std::string, int>>& pairs() const { return pairs_; }

private:
    std::vector<std::pair<std::string, int>> pairs_;
};

TEST(Dictionary, KeepsItsOrderThroughAnyMixOfChanges) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        SCOPED_TRACE(seed);
        unsigned state = seed;
        const auto next = [&state](unsigned limit) {
            state = state * 1664525 + 1013904223;
            return (state >> 8) % limit;
        };
        auto dictionary = makeDictionary();
        ListOfPairs list;
        const unsigned keyCount = seed * 7;
        for (int step = 0; step < 500; ++step) {
            const std::string key = "k" + std::to_string(next(keyCount));
            if (next(3) == 0) {
                CFDictionaryRemoveValue(dictionary.get(), makeString(key).get());
                list.remove(key);
            } else {
                CFDictionarySetValue(dictionary.get(), makeString(key).get(),
                                     makeInteger(step).get());
                list.set(key, step);
            }
        }
        std::vector<std::pair<std::string, int>> pairs;
        CFDictionaryApplyFunction(
            dictionary.get(),
            [](const void* key, const void* value, void* context) {
                int number = 0;
                CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberIntType, &number);
                static_cast<decltype(pairs)*>(context)->emplace_back(
                    textOf(static_cast<CFStringRef>(key)), number);
            },
            &pairs);
        EXPECT_EQ(pairs, list.pairs());
    }
}

CFRef<CFStringRef> shortKey(CFIndex i) {
    return makeString("KEY" + std::to_string(i) + ".m4r");
}

/// How often keys were compared for equality while a dictionary of so many keys was filled,
/// searched and emptied from the front.
CFIndex comparisonsFor(CFIndex keyCount, CFRef<CFStringRef> (*key)(CFIndex)) {
    static CFIndex comparisons;
    comparisons = 0;
    CFDictionaryKeyCallBacks callBacks = kCFTypeDictionaryKeyCallBacks;
    callBacks.equal = [](const void* left, const void* right) {
        ++comparisons;
        return CFEqual(left, right);
    };
    auto dictionary = adopt(CFDictionaryCreateMutable(nullptr, 0, &callBacks, nullptr));
    for (CFIndex i = 0; i < keyCount; ++i) {
        CFDictionarySetValue(dictionary.get(), key(i).get(), nullptr);
    }
    for (CFIndex i = 0; i < keyCount; ++i) {
        CFDictionaryContainsKey(dictionary.get(), key(i).get());
        CFDictionaryContainsKey(dictionary.get(), key(i + keyCount).get());
    }
    for (CFIndex i = 0; i < keyCount; ++i) {
        CFDictionaryRemoveValue(dictionary.get(), key(i).get());
    }
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 0);
    return comparisons;
}

TEST(Dictionary, LooksAtOneKeyForEachOperationHoweverManyThereAre) {
    // One to find a key that is there, one to remove it; nearly all others are told apart by their
    // hashes.
    for (const CFIndex keyCount : {CFIndex{10}, CFIndex{1000}, CFIndex{20000}}) {
        EXPECT_LE(comparisonsFor(keyCount, shortKey), 2 * keyCount + keyCount / 10);
    }
}

/// All of one CFHash, which does not look at the place where they differ.
CFRef<CFStringRef> longKey(CFIndex i) {
    const std::string number = std::to_string(i);
    return makeString(std::string(40, 'k') + std::string(10 - number.size(), '0') + number +
                      std::string(350, 'k'));
}

/// All of one CFHash, too: in each four units 257 steps of the last make one of the last but one.
CFRef<CFStringRef> wideKey(CFIndex i) {
    std::vector<UniChar> units;
    for (int bit = 0; bit < 20; ++bit) {
        const bool isSet = (i >> bit & 1) != 0;
        units.insert(units.end(), {'k', 'k', UniChar(isSet ? 0x500 : 0x501),
                                   UniChar(isSet ? 0x600 : 0x600 - 257)});
    }
    return adopt(
        CFStringCreateWithCharacters(nullptr, units.data(), static_cast<CFIndex>(units.size())));
}

TEST(Dictionary, LooksAtOneKeyForEachOperationAlsoWhenAllKeysHaveOneHash) {
    for (auto* key : {longKey, wideKey}) {
        ASSERT_EQ(CFHash(key(0).get()), CFHash(key(19999).get()));
        ASSERT_EQ(CFHash(key(0).get()), CFHash(key(12345).get()));
        for (const CFIndex keyCount : {CFIndex{10}, CFIndex{1000}, CFIndex{20000}}) {
            EXPECT_LE(comparisonsFor(keyCount, key), 2 * keyCount + keyCount / 10);
        }
    }
}

TEST(Dictionary, AQueueOfKeysStaysSmallAndOrdered) {
    auto dictionary = makeDictionary();
    for (int i = 0; i < 100000; ++i) {
        CFDictionarySetValue(dictionary.get(), makeInteger(i).get(), kCFNull);
        if (i >= 10) {
            CFDictionaryRemoveValue(dictionary.get(), makeInteger(i - 10).get());
        }
    }
    ASSERT_EQ(CFDictionaryGetCount(dictionary.get()), 10);
    const void* keys[10] = {};
    CFDictionaryGetKeysAndValues(dictionary.get(), keys, nullptr);
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(CFEqual(keys[i], makeInteger(99990 + i).get()));
    }
}

/// A value whose end looks at the collection that it leaves.
TEST(Collections, MayBeLookedAtWhileTheyLoseTheirValues) {
    static CFMutableDictionaryRef watched;
    static CFIndex countAtTheEnd;
    CFDictionaryValueCallBacks callBacks{};
    callBacks.release = [](CFAllocatorRef, const void*) {
        countAtTheEnd = CFDictionaryGetCount(watched);
        CFDictionaryContainsKey(watched, CFSTR("a"));
    };
    auto dictionary =
        adopt(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &callBacks));
    watched = dictionary.get();
    CFDictionarySetValue(dictionary.get(), CFSTR("a"), &callBacks);
    CFDictionarySetValue(dictionary.get(), CFSTR("b"), &callBacks);
    CFDictionaryRemoveValue(dictionary.get(), CFSTR("a"));
    EXPECT_EQ(countAtTheEnd, 1);
    CFDictionaryRemoveAllValues(dictionary.get());
    EXPECT_EQ(countAtTheEnd, 0);
}

TEST(Collections, DescribeTheirContents) {
    auto dictionary = makeDictionary();
    CFDictionarySetValue(dictionary.get(), CFSTR("a"), arrayOf({"x", "y"}).get());
    CFDictionarySetValue(dictionary.get(), CFSTR("b"), makeInteger(5).get());
    auto description = adopt(CFCopyDescription(dictionary.get()));
    EXPECT_EQ(textOf(description.get()), "{a = (x, y); b = 5}");
}

} // namespace
} // namespace krl::cf::test
