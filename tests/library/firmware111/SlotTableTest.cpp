// The slot table with strings for keys, as the layout check uses it.

#include "library/firmware111/KRLFDInternal.h"
#include "tests/library/firmware111/Strings.h"

#include <KRLVesk/KRTError.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstddef>
#include <fstream>
#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace {

using krl::cf::CFRef;
using krl::cf::stringOf;
using krl::test::text;
using testing::ElementsAre;

static_assert(offsetof(KRTDictionary, _count) == 0);
static_assert(offsetof(KRTDictionary, _bucketsNum) == 8);
static_assert(offsetof(KRTDictionary, _bucketsUsed) == 16);
static_assert(offsetof(KRTDictionary, _bucketsCap) == 24);
static_assert(offsetof(KRTDictionary, _mutations) == 32);
static_assert(offsetof(KRTDictionary, _deletes) == 40);
static_assert(offsetof(KRTDictionary, _marker) == 48);
static_assert(offsetof(KRTDictionary, _keys) == 56);
static_assert(offsetof(KRTDictionary, _values) == 64);
static_assert(sizeof(KRTDictionary) == 72);

/// A table of strings that owns its keys. Values are numbers, made pointers.
class StringTable {
public:
    explicit StringTable(KRTWord capacity) : table_(KRTDictionaryWithCapacity(capacity)) {}

    ~StringTable() { KRTDictionaryRelease(table_); }

    StringTable(const StringTable&) = delete;
    StringTable& operator=(const StringTable&) = delete;

    KRTDictionary* operator->() { return table_; }

    KRTDictionary* get() { return table_; }

    CFStringRef set(const std::string& key, uintptr_t value = 1) {
        keys_.push_back(stringOf(key));
        KRTDictionarySetObjectForKey(table_, reinterpret_cast<const void*>(value),
                                     keys_.back().get());
        return keys_.back().get();
    }

    std::vector<std::pair<const void*, const void*>> pairs() {
        const auto count = static_cast<size_t>(KRTDictionaryGetCount(table_));
        std::vector<const void*> keys(count);
        std::vector<const void*> values(count);
        KRTDictionaryGetKeysAndValues(table_, keys.data(), values.data());
        std::vector<std::pair<const void*, const void*>> result;
        for (size_t i = 0; i < count; ++i) {
            result.emplace_back(keys[i], values[i]);
        }
        return result;
    }

    std::vector<std::string> order() {
        std::vector<std::string> names;
        for (const auto& [key, value] : pairs()) {
            names.push_back(text(static_cast<CFStringRef>(key)));
        }
        return names;
    }

    KRTWord slotOf(const std::string& key) {
        KRTWord found = -2;
        KRTDictionaryFB2(table_, stringOf(key).get(), &found, nullptr);
        return found;
    }

private:
    KRTDictionary* table_;
    std::vector<CFRef<CFStringRef>> keys_;
};

KRTWord startSlot(const std::string& name, KRTWord slots) {
    const KRTUnsignedWord hash = __KRTDictionaryScrambleHash(CFHash(stringOf(name).get()));
    return static_cast<KRTWord>(hash % static_cast<KRTUnsignedWord>(slots));
}

/// Different names whose search begins at one slot of so many.
std::vector<std::string> namesStartingAt(KRTWord slot, KRTWord slots, size_t count) {
    std::vector<std::string> names;
    for (int i = 0; names.size() < count; ++i) {
        std::string name = "N";
        name.append(std::to_string(i)).append(".m4r");
        if (startSlot(name, slots) == slot) {
            names.push_back(name);
        }
    }
    return names;
}

struct Recorded {
    int code;
    std::string file;
    bool isError;
    std::string output;
};

/// What an insertion with these arguments reports.
Recorded insertAndRecord(KRTDictionary* table, const void* value, const void* key) {
    KRTErrorClear();
    testing::internal::CaptureStdout();
    KRTDictionarySetObjectForKey(table, value, key);
    const std::string output = testing::internal::GetCapturedStdout();
    const char* const file = KRTErrorGetFile();
    Recorded recorded{KRTErrorGetCode(), file ? file : "", KRTError(), output};
    KRTErrorClear();
    return recorded;
}

// ---------------------------------------------------------------------------- known orders

/// What a dictionary of the time was filled with, and the order in which it gave its keys back.
struct KnownOrder {
    std::string group;
    bool isFromPropertyList; ///< such a dictionary begins with room for 10
    KRTWord initialCapacity;
    std::vector<std::string> inserted;
    std::vector<std::string> enumerated;

    friend void PrintTo(const KnownOrder& row, std::ostream* out) {
        *out << row.group << ", " << row.inserted.size() << " keys";
    }
};

std::vector<KnownOrder> knownOrders() {
    std::ifstream file(DICT_ORDER_VECTORS);
    const auto document = nlohmann::json::parse(file);
    std::vector<KnownOrder> orders;
    for (const auto& vector : document.at("vectors")) {
        orders.push_back({vector.at("group"), vector.at("built_by") == "property_list_read",
                          vector.at("initial_capacity"), vector.at("keys_in_insertion_order"),
                          vector.at("enumeration_order")});
    }
    return orders;
}

class SlotOrder : public testing::TestWithParam<KnownOrder> {};

TEST_P(SlotOrder, IsThatOfTheDictionariesOfTheTime) {
    const KnownOrder& known = GetParam();
    StringTable table(known.isFromPropertyList ? 10 : 0);
    ASSERT_EQ(table->_bucketsCap, known.initialCapacity);

    std::map<std::string, uintptr_t> lastValues;
    uintptr_t value = 0;
    for (const auto& key : known.inserted) {
        table.set(key, ++value);
        lastValues[key] = value;
    }

    EXPECT_EQ(table.order(), known.enumerated);
    for (const auto& [key, stored] : table.pairs()) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(stored),
                  lastValues.at(text(static_cast<CFStringRef>(key))));
    }
}

INSTANTIATE_TEST_SUITE_P(Known, SlotOrder, testing::ValuesIn(knownOrders()),
                         [](const testing::TestParamInfo<KnownOrder>& row) {
                             return std::to_string(row.index) + "_" + row.param.group;
                         });

TEST(SlotTable, KnownOrdersAreThere) {
    EXPECT_EQ(knownOrders().size(), 48U);
}

// ---------------------------------------------------------------------------- arithmetic

TEST(SlotTable, HighestSetBitIsCountedFromOne) {
    EXPECT_EQ(krl_flsl(0), 0);
    EXPECT_EQ(krl_flsl(1), 1);
    EXPECT_EQ(krl_flsl(2), 2);
    EXPECT_EQ(krl_flsl(3), 2);
    EXPECT_EQ(krl_flsl(4), 3);
    EXPECT_EQ(krl_flsl(12), 4);
    EXPECT_EQ(krl_flsl(KRTWord{1} << 40), 41);
    EXPECT_EQ(krl_flsl(INTPTR_MAX), 63);
    EXPECT_EQ(krl_flsl(-1), 64);
}

TEST(SlotTable, CapacityIsTheSmallestOfItsKindThatSuffices) {
    for (KRTWord n = -3; n <= 5000; ++n) {
        KRTWord capacity = 3;
        KRTWord slots = 4;
        while (capacity < n) {
            capacity *= 2;
            slots *= 2;
        }
        ASSERT_EQ(__KRTHashRoundUpCapacity(n), capacity) << n;
        ASSERT_EQ(__KRTHashNumBucketsForCapacity(n), slots) << n;
        ASSERT_EQ(__KRTHashNumBucketsForCapacity(capacity), slots) << n;
    }
}

TEST(SlotTable, ScrambleGivesKnownValues) {
    EXPECT_EQ(__KRTDictionaryScrambleHash(0), 0xC1A751CE0D282BEC);
    EXPECT_EQ(__KRTDictionaryScrambleHash(1), 0xC6CE5E15DD6C0814);
    EXPECT_EQ(__KRTDictionaryScrambleHash(0x1234), 0x74297DF92E7ECAA3);
    EXPECT_EQ(__KRTDictionaryScrambleHash(0xA1B1C1D3), 0x72027BBDB4A0F29A);
    EXPECT_EQ(__KRTDictionaryScrambleHash(0x8000000000000000), 0x1172D2B8ECC3782D);
    EXPECT_EQ(__KRTDictionaryScrambleHash(0xFFFFFFFFFFFFFFFF), 0xB1F71618372AACC1);
}

// ---------------------------------------------------------------------------- making

TEST(SlotTable, StartsEmpty) {
    StringTable table(10);
    EXPECT_EQ(table->_count, 0);
    EXPECT_EQ(table->_bucketsUsed, 0);
    EXPECT_EQ(table->_mutations, 1);
    EXPECT_EQ(table->_deletes, 0);
    EXPECT_EQ(table->_marker, 0xA1B1C1D3U);
    for (KRTWord slot = 0; slot < table->_bucketsNum; ++slot) {
        EXPECT_EQ(table->_keys[slot], 0xA1B1C1D3U);
        EXPECT_EQ(table->_values[slot], 0U);
    }
    EXPECT_EQ(KRTDictionaryGetCount(table.get()), 0);
    EXPECT_THAT(table.order(), ElementsAre());
}

TEST(SlotTable, CapacityOfTenGivesTwelveOfSixteenSlots) {
    StringTable table(10);
    EXPECT_EQ(table->_bucketsCap, 12);
    EXPECT_EQ(table->_bucketsNum, 16);
}

TEST(SlotTable, CapacityOfZeroOrOneGivesThreeOfFourSlots) {
    for (const KRTWord capacity : {0, 1}) {
        StringTable table(capacity);
        EXPECT_EQ(table->_bucketsCap, 3);
        EXPECT_EQ(table->_bucketsNum, 4);
    }
}

TEST(SlotTable, KeysAndValuesAreNeitherRetainedNorReleased) {
    const auto key = stringOf("KEY.m4r");
    const auto value = stringOf("value");
    const CFIndex keyReferences = CFGetRetainCount(key.get());
    const CFIndex valueReferences = CFGetRetainCount(value.get());
    KRTDictionary* const table = KRTDictionaryWithCapacity(0);
    KRTDictionarySetObjectForKey(table, value.get(), key.get());
    EXPECT_EQ(CFGetRetainCount(key.get()), keyReferences);
    EXPECT_EQ(CFGetRetainCount(value.get()), valueReferences);
    KRTDictionaryRelease(table);
    EXPECT_EQ(CFGetRetainCount(key.get()), keyReferences);
    EXPECT_EQ(CFGetRetainCount(value.get()), valueReferences);
}

// ---------------------------------------------------------------------------- inserting

TEST(SlotTable, CountsEveryInsertion) {
    StringTable table(10);
    table.set("A.m4r");
    table.set("B.m4r");
    EXPECT_EQ(KRTDictionaryGetCount(table.get()), 2);
    EXPECT_EQ(table->_bucketsUsed, 2);
    EXPECT_EQ(table->_mutations, 3);
}

TEST(SlotTable, TheThirteenthKeyRebuildsInOldSlotOrder) {
    StringTable table(10);
    // All meet in one slot of both sizes, so that their order is nothing but that of re-insertion;
    // the old slots wrap round, so that it differs from the order of insertion.
    const auto names = namesStartingAt(30, 32, 13);
    ASSERT_EQ(startSlot(names[0], 16), 14);
    for (size_t i = 0; i < 12; ++i) {
        table.set(names[i]);
    }
    ASSERT_EQ(table->_bucketsCap, 12);
    EXPECT_THAT(table.order(),
                ElementsAre(names[2], names[3], names[4], names[5], names[6], names[7], names[8],
                            names[9], names[10], names[11], names[0], names[1]));

    table.set(names[12]);
    EXPECT_EQ(table->_bucketsCap, 24);
    EXPECT_EQ(table->_bucketsNum, 32);
    EXPECT_EQ(table->_bucketsUsed, 13);
    EXPECT_EQ(KRTDictionaryGetCount(table.get()), 13);
    // Slots 30, 31, then from 0 on.
    EXPECT_THAT(table.order(),
                ElementsAre(names[4], names[5], names[6], names[7], names[8], names[9], names[10],
                            names[11], names[0], names[1], names[12], names[2], names[3]));
}

TEST(SlotTable, ReplacingKeepsTheCountTheOrderAndTheFirstKey) {
    StringTable table(10);
    const void* const firstKey = table.set("A.m4r", 1);
    table.set("B.m4r", 2);
    table.set("C.m4r", 3);
    const auto order = table.order();

    const void* const equalKey = table.set("A.m4r", 4);
    ASSERT_NE(firstKey, equalKey);
    EXPECT_EQ(KRTDictionaryGetCount(table.get()), 3);
    EXPECT_EQ(table->_bucketsUsed, 3);
    EXPECT_EQ(table->_mutations, 5);
    EXPECT_EQ(table.order(), order);
    EXPECT_THAT(table.pairs(),
                testing::Contains(testing::Pair(firstKey, reinterpret_cast<const void*>(4))));
}

TEST(SlotTable, AFullTableIsRebuiltAlsoForAKeyThatIsPresent) {
    StringTable table(0);
    table.set("A.m4r");
    table.set("B.m4r");
    table.set("C.m4r");
    ASSERT_EQ(table->_bucketsCap, 3);

    table.set("B.m4r", 9);
    EXPECT_EQ(table->_bucketsCap, 6);
    EXPECT_EQ(table->_bucketsNum, 8);
    EXPECT_EQ(table->_bucketsUsed, 3);
    EXPECT_EQ(KRTDictionaryGetCount(table.get()), 3);
}

TEST(SlotTable, LaterKeyOfOneSlotTakesTheNextFreeOne) {
    StringTable table(10);
    const auto names = namesStartingAt(5, 16, 2);
    table.set(names[0]);
    table.set(names[1]);
    EXPECT_EQ(table.slotOf(names[0]), 5);
    EXPECT_EQ(table.slotOf(names[1]), 6);
}

TEST(SlotTable, SearchGoesOnFromTheLastSlotToTheFirst) {
    StringTable table(10);
    const auto names = namesStartingAt(15, 16, 3);
    for (const auto& name : names) {
        table.set(name);
    }
    EXPECT_EQ(table.slotOf(names[0]), 15);
    EXPECT_EQ(table.slotOf(names[1]), 0);
    EXPECT_EQ(table.slotOf(names[2]), 1);
    EXPECT_THAT(table.order(), ElementsAre(names[1], names[2], names[0]));
}

TEST(SlotTable, TheProbeTellsTheSlotOfEveryKey) {
    StringTable table(10);
    for (int i = 0; i < 100; ++i) {
        table.set("NAME" + std::to_string(i));
    }
    KRTWord last = -1;
    for (const auto& name : table.order()) {
        const KRTWord slot = table.slotOf(name);
        EXPECT_GT(slot, last) << name;
        EXPECT_LT(slot, table->_bucketsNum) << name;
        last = slot;
    }
}

TEST(SlotTable, TheProbeOfAMissingKeyTellsItsPlace) {
    StringTable table(10);
    const auto names = namesStartingAt(5, 16, 2);
    table.set(names[0]);
    KRTWord found = -2;
    KRTWord freeSlot = -2;
    KRTDictionaryFB2(table.get(), stringOf(names[1]).get(), &found, &freeSlot);
    EXPECT_EQ(found, -1);
    EXPECT_EQ(freeSlot, 6);
    KRTDictionaryFB2(table.get(), stringOf(names[0]).get(), &found, &freeSlot);
    EXPECT_EQ(found, 5);
    EXPECT_EQ(freeSlot, -1);
}

TEST(SlotTable, TheProbeOfANullKeyFindsNothing) {
    StringTable table(10);
    KRTWord found = -2;
    KRTWord freeSlot = -2;
    KRTDictionaryFB2(table.get(), nullptr, &found, &freeSlot);
    EXPECT_EQ(found, -1);
    EXPECT_EQ(freeSlot, -1);
    found = -2;
    KRTDictionaryFB2(table.get(), nullptr, &found, nullptr);
    EXPECT_EQ(found, -1);
}

// ---------------------------------------------------------------------------- missing arguments

TEST(SlotTable, ANullKeyIsReportedAsCodeZero) {
    StringTable table(10);
    const Recorded recorded = insertAndRecord(table.get(), CFSTR("value"), nullptr);
    EXPECT_TRUE(recorded.isError);
    EXPECT_EQ(recorded.code, 0);
    EXPECT_EQ(recorded.file, "KRLFDInternal");
    EXPECT_EQ(recorded.output, "Key was NULL!\n");
    EXPECT_EQ(table->_mutations, 1);
    EXPECT_EQ(table->_count, 0);
}

TEST(SlotTable, ANullKeyWithANullValueWritesBothMessagesTheKeyFirst) {
    StringTable table(10);
    const Recorded recorded = insertAndRecord(table.get(), nullptr, nullptr);
    EXPECT_TRUE(recorded.isError);
    EXPECT_EQ(recorded.code, 0);
    EXPECT_EQ(recorded.output, "Key was NULL!\nValue was NULL!\n");
}

TEST(SlotTable, ANullValueIsReportedAsCodeOne) {
    StringTable table(10);
    table.set("A.m4r", 1);
    const Recorded recorded = insertAndRecord(table.get(), nullptr, CFSTR("A.m4r"));
    EXPECT_TRUE(recorded.isError);
    EXPECT_EQ(recorded.code, 1);
    EXPECT_EQ(recorded.file, "KRLFDInternal");
    EXPECT_EQ(recorded.output, "Value was NULL!\n");
    EXPECT_EQ(table->_mutations, 2);
    EXPECT_EQ(table.pairs().at(0).second, reinterpret_cast<const void*>(1));
}

TEST(SlotTable, ANullTableIsReportedAsCodeTwoInSilence) {
    const Recorded recorded = insertAndRecord(nullptr, CFSTR("value"), CFSTR("key"));
    EXPECT_TRUE(recorded.isError);
    EXPECT_EQ(recorded.code, 2);
    EXPECT_EQ(recorded.file, "KRLFDInternal");
    EXPECT_EQ(recorded.output, "");
}

TEST(SlotTable, TheFirstMissingArgumentIsTheOneReported) {
    EXPECT_EQ(insertAndRecord(nullptr, CFSTR("value"), nullptr).code, 0);
    EXPECT_EQ(insertAndRecord(nullptr, nullptr, CFSTR("key")).code, 1);
    EXPECT_EQ(insertAndRecord(nullptr, nullptr, nullptr).output,
              "Key was NULL!\nValue was NULL!\n");
}

TEST(SlotTable, AnInsertionThatSucceedsReportsNothing) {
    StringTable table(10);
    const Recorded recorded = insertAndRecord(table.get(), CFSTR("value"), CFSTR("key"));
    EXPECT_FALSE(recorded.isError);
    EXPECT_EQ(recorded.file, "");
    EXPECT_EQ(recorded.output, "");
}

} // namespace
