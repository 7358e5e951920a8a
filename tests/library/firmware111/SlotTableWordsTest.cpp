// The slot table with plain words for keys: their hash and their equality are the test's to say,
// and so is whether there is memory. That reaches what no string reaches: keys that look like
// markers, deleted slots, keys that become equal.

#include "library/firmware111/KRLFDInternal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <optional>
#include <random>
#include <vector>

namespace {

constexpr KRTUnsignedWord kMarker = 0xA1B1C1D3;
constexpr KRTUnsignedWord kDeleted = 0xFFFFFFFF5E4E3E2C;

/// What the table sees of the world. The calls that lead here are redirected by the linker.
struct World {
    std::function<KRTUnsignedWord(KRTUnsignedWord)> hash = [](KRTUnsignedWord key) { return key; };
    std::function<bool(KRTUnsignedWord, KRTUnsignedWord)> equal = std::equal_to<>();
    int equalCalls = 0;
    /// Allocations until one fails; the ones after it succeed again.
    std::optional<int> allocationsLeft;
};

World world;

} // namespace

// Visible, as shared libraries call functions of these names, too.
#pragma GCC visibility push(default)
extern "C" {
CFHashCode __wrap_CFHash(CFTypeRef object);
Boolean __wrap_CFEqual(CFTypeRef object1, CFTypeRef object2);
void* __wrap_malloc(size_t size);
void* __real_malloc(size_t size);

CFHashCode __wrap_CFHash(CFTypeRef object) {
    return world.hash(reinterpret_cast<KRTUnsignedWord>(object));
}

Boolean __wrap_CFEqual(CFTypeRef object1, CFTypeRef object2) {
    ++world.equalCalls;
    return world.equal(reinterpret_cast<KRTUnsignedWord>(object1),
                       reinterpret_cast<KRTUnsignedWord>(object2));
}

void* __wrap_malloc(size_t size) {
    if (world.allocationsLeft && (*world.allocationsLeft)-- == 0) {
        world.allocationsLeft.reset();
        return nullptr;
    }
    return __real_malloc(size);
}
}
#pragma GCC visibility pop

namespace {

using Words = std::vector<KRTUnsignedWord>;
using testing::ElementsAre;

const void* pointer(KRTUnsignedWord word) {
    return reinterpret_cast<const void*>(word);
}

class SlotTableOfWords : public testing::Test {
protected:
    SlotTableOfWords() { world = World(); }

    ~SlotTableOfWords() override {
        if (table_) {
            KRTDictionaryRelease(table_);
        }
    }

    KRTDictionary& make(KRTWord capacity) {
        table_ = KRTDictionaryWithCapacity(capacity);
        return *table_;
    }

    void set(KRTUnsignedWord key, KRTUnsignedWord value = 1) {
        KRTDictionarySetObjectForKey(table_, pointer(value), pointer(key));
    }

    struct Probe {
        KRTWord found;
        KRTWord freeSlot;
        bool operator==(const Probe&) const = default;
    };

    Probe probe(KRTUnsignedWord key) const {
        Probe result{-2, -2};
        KRTDictionaryFB2(table_, pointer(key), &result.found, &result.freeSlot);
        return result;
    }

    Words keys() const { return enumerate().first; }

    Words values() const { return enumerate().second; }

    Words slots() const { return {table_->_keys, table_->_keys + table_->_bucketsNum}; }

    /// A word whose search begins at this slot of so many, the n-th of them.
    static KRTUnsignedWord wordAt(KRTUnsignedWord slot, KRTWord slotCount, int n = 0) {
        for (KRTUnsignedWord word = 1;; ++word) {
            const auto start =
                __KRTDictionaryScrambleHash(word) % static_cast<KRTUnsignedWord>(slotCount);
            if (start == slot && n-- == 0) {
                return word;
            }
        }
    }

    KRTDictionary* table_ = nullptr;

private:
    std::pair<Words, Words> enumerate() const {
        const auto count = static_cast<size_t>(KRTDictionaryGetCount(table_));
        std::vector<const void*> keys(count);
        std::vector<const void*> values(count);
        KRTDictionaryGetKeysAndValues(table_, keys.data(), values.data());
        std::pair<Words, Words> words;
        for (size_t i = 0; i < count; ++i) {
            words.first.push_back(reinterpret_cast<KRTUnsignedWord>(keys[i]));
            words.second.push_back(reinterpret_cast<KRTUnsignedWord>(values[i]));
        }
        return words;
    }
};

// ---------------------------------------------------------------------------- markers

TEST_F(SlotTableOfWords, MarkersAreNoValues) {
    make(0);
    EXPECT_EQ(KRTDictionaryHashKeyIsMagic(table_, kMarker), 1);
    EXPECT_EQ(KRTDictionaryHashKeyIsMagic(table_, kDeleted), 1);
    EXPECT_EQ(KRTDictionaryHashKeyIsMagic(table_, 7), 0);
    EXPECT_EQ(KRTDictionaryHashKeyIsMagic(table_, ~kMarker & 0xFFFFFFFF), 0);
    EXPECT_EQ(KRTDictionaryHashKeyIsValue(table_, kMarker), 0);
    EXPECT_EQ(KRTDictionaryHashKeyIsValue(table_, kDeleted), 0);
    EXPECT_EQ(KRTDictionaryHashKeyIsValue(table_, 7), 1);
    EXPECT_EQ(KRTDictionaryHashKeyIsValue(table_, 0), 1);
}

TEST_F(SlotTableOfWords, AKeyThatEqualsAMarkerMakesTheTableChooseAnother) {
    for (const KRTUnsignedWord key : {kMarker, kDeleted}) {
        make(0);
        set(7);
        set(key, 5);
        EXPECT_EQ(table_->_marker, kMarker - 1);
        EXPECT_EQ(table_->_count, 2);
        EXPECT_NE(probe(key).found, -1);
        EXPECT_THAT(keys(), testing::UnorderedElementsAre(7, key));
        EXPECT_THAT(slots(), testing::UnorderedElementsAre(7, key, kMarker - 1, kMarker - 1));
        KRTDictionaryRelease(table_);
        table_ = nullptr;
    }
}

TEST_F(SlotTableOfWords, TheMarkerSurvivesARebuild) {
    make(0);
    for (const KRTUnsignedWord key : {kMarker, KRTUnsignedWord{1}, kMarker - 1, kDeleted}) {
        set(key);
    }
    EXPECT_EQ(table_->_marker, kMarker - 2);
    EXPECT_EQ(table_->_bucketsNum, 8);
    EXPECT_THAT(keys(), testing::UnorderedElementsAre(kMarker, 1, kMarker - 1, kDeleted));
}

TEST_F(SlotTableOfWords, ANewMarkerIsOneThatNeitherWayIsAKey) {
    make(10);
    set(kMarker - 1);
    set(~(kMarker - 2));
    set(kMarker - 4);
    KRTDictionaryFindNewMarker(table_);
    EXPECT_EQ(table_->_marker, kMarker - 3);
    KRTDictionaryFindNewMarker(table_);
    EXPECT_EQ(table_->_marker, kMarker - 5);
}

TEST_F(SlotTableOfWords, ANewMarkerIsWrittenOverBothKindsOfSlots) {
    make(0);
    const KRTUnsignedWord key = wordAt(1, 4);
    set(key);
    table_->_keys[2] = kDeleted;
    KRTDictionaryFindNewMarker(table_);
    EXPECT_THAT(slots(), ElementsAre(kMarker - 1, key, ~(kMarker - 1), kMarker - 1));
}

TEST_F(SlotTableOfWords, OfTheMarkerTheProbeReadsThirtyTwoBits) {
    make(0);
    table_->_marker |= 0x1100000000;
    EXPECT_EQ(probe(wordAt(2, 4)), (Probe{-1, 2}));
    table_->_keys[2] = kDeleted;
    table_->_keys[3] = wordAt(2, 4);
    EXPECT_EQ(probe(wordAt(2, 4)), (Probe{3, 2}));
}

TEST_F(SlotTableOfWords, ReplacingTestsTheAddressOfTheRecordNotTheKey) {
    make(0);
    const KRTUnsignedWord key = 0x500000007; // beyond what the probe reads of a marker
    set(key, 1);
    const KRTWord slot = probe(key).found;
    const auto address = reinterpret_cast<KRTUnsignedWord>(table_);
    for (const KRTUnsignedWord marker : {address, ~address}) {
        table_->_marker = marker;
        set(key, 2);
        EXPECT_EQ(table_->_marker, marker - 1);
        EXPECT_EQ(table_->_keys[slot], key);
        EXPECT_EQ(table_->_values[slot], 2U);
    }
    for (const KRTUnsignedWord marker : {key, ~key}) {
        table_->_marker = marker;
        set(key, 3);
        EXPECT_EQ(table_->_marker, marker);
        EXPECT_EQ(table_->_keys[slot], key);
        EXPECT_EQ(table_->_values[slot], 3U);
    }
}

TEST_F(SlotTableOfWords, OnReplacingTheKeyIsOutOfItsSlotWhileAMarkerIsChosen) {
    make(0);
    world.hash = [](KRTUnsignedWord) { return 0; };
    const auto address = reinterpret_cast<KRTUnsignedWord>(table_);
    const KRTUnsignedWord key = address - 1;
    set(key, 1);
    const KRTWord slot = probe(key).found;
    table_->_marker = address;
    set(key, 2);
    EXPECT_EQ(table_->_marker, key); // nobody saw it
    EXPECT_EQ(table_->_keys[slot], key);
}

// ---------------------------------------------------------------------------- probing

TEST_F(SlotTableOfWords, TheSameKeyIsNotComparedEqualOnesAre) {
    make(0);
    world.hash = [](KRTUnsignedWord key) { return key / 10; };
    world.equal = [](KRTUnsignedWord a, KRTUnsignedWord b) { return a / 10 == b / 10; };
    set(70);
    world.equalCalls = 0;
    EXPECT_NE(probe(70).found, -1);
    EXPECT_EQ(world.equalCalls, 0);
    EXPECT_EQ(probe(71).found, probe(70).found);
    EXPECT_EQ(world.equalCalls, 1);
}

TEST_F(SlotTableOfWords, ADeletedSlotIsUsedAgainAndNoLongerCountedAsDeleted) {
    make(10);
    table_->_keys[4] = kDeleted;
    table_->_keys[5] = kDeleted;
    table_->_deletes = 2;
    const KRTUnsignedWord key = wordAt(4, 16);
    EXPECT_EQ(probe(key), (Probe{-1, 4})); // neither slot 5 nor the empty slot 6
    EXPECT_EQ(world.equalCalls, 0);        // a marker is no object to compare with

    set(key);
    EXPECT_EQ(table_->_keys[4], key);
    EXPECT_EQ(table_->_deletes, 1);
    EXPECT_EQ(table_->_bucketsUsed, 1);
    EXPECT_EQ(table_->_count, 1);
}

TEST_F(SlotTableOfWords, TheProbeLooksBeyondDeletedSlots) {
    make(10);
    const KRTUnsignedWord key = wordAt(4, 16);
    table_->_keys[4] = kDeleted;
    table_->_keys[5] = key;
    EXPECT_EQ(probe(key), (Probe{5, 4}));
    KRTWord found = -2;
    KRTDictionaryFB2(table_, pointer(key), &found, nullptr);
    EXPECT_EQ(found, 5);
}

TEST_F(SlotTableOfWords, TheProbeEndsAfterAFullCircle) {
    make(0);
    for (KRTUnsignedWord slot = 0; slot < 4; ++slot) {
        table_->_keys[slot] = 1000 + slot;
    }
    EXPECT_EQ(probe(wordAt(2, 4)), (Probe{-1, -1}));
    EXPECT_EQ(world.equalCalls, 4);
    table_->_keys[1] = kDeleted;
    EXPECT_EQ(probe(wordAt(2, 4)), (Probe{-1, 1}));
}

TEST_F(SlotTableOfWords, DeletedSlotsAreNotEnumerated) {
    make(0);
    set(wordAt(1, 4));
    table_->_keys[0] = kDeleted;
    table_->_keys[2] = kDeleted;
    EXPECT_THAT(keys(), ElementsAre(wordAt(1, 4)));
}

// ---------------------------------------------------------------------------- rebuilding

TEST_F(SlotTableOfWords, ARebuildDropsDeletedSlotsAndKeepsWhatWasUsed) {
    make(0);
    set(wordAt(0, 4));
    set(wordAt(1, 4));
    table_->_keys[2] = kDeleted;
    table_->_deletes = 1;
    KRTDictionaryGrow(table_, 5);
    EXPECT_EQ(table_->_bucketsCap, 12);
    EXPECT_EQ(table_->_bucketsNum, 16);
    EXPECT_EQ(table_->_deletes, 0);
    EXPECT_EQ(table_->_bucketsUsed, 2);
    EXPECT_EQ(table_->_count, 2);
    EXPECT_THAT(keys(), testing::UnorderedElementsAre(wordAt(0, 4), wordAt(1, 4)));
    EXPECT_EQ(std::count(table_->_keys, table_->_keys + 16, kMarker), 14);
}

TEST_F(SlotTableOfWords, KeysThatHaveBecomeEqualEndTheRebuildAndTheOldSlotsAreKept) {
    make(0);
    const KRTUnsignedWord first = wordAt(0, 4);
    const KRTUnsignedWord second = wordAt(1, 4);
    const KRTUnsignedWord third = wordAt(2, 4);
    set(first);
    set(second);
    set(third);
    KRTUnsignedWord* const oldKeys = table_->_keys;
    KRTUnsignedWord* const oldValues = table_->_values;

    world.hash = [](KRTUnsignedWord) { return 0; };
    world.equal = [=](KRTUnsignedWord a, KRTUnsignedWord b) { return a + b == first + second; };
    KRTDictionaryGrow(table_, 1);

    EXPECT_EQ(table_->_bucketsNum, 8);
    EXPECT_EQ(std::count(table_->_keys, table_->_keys + 8, kMarker), 7);
    EXPECT_EQ(std::count(table_->_keys, table_->_keys + 8, first), 1);
    EXPECT_THAT(Words(oldKeys, oldKeys + 4), ElementsAre(first, second, third, kMarker));
    std::free(oldKeys);
    std::free(oldValues);
}

// ---------------------------------------------------------------------------- memory

TEST_F(SlotTableOfWords, WithoutMemoryThereIsNoTable) {
    world.allocationsLeft = 0;
    EXPECT_EQ(KRTDictionaryWithCapacity(10), nullptr);
}

TEST_F(SlotTableOfWords, WithoutMemoryForSlotsTheNextInsertionMakesThem) {
    world.allocationsLeft = 1;
    make(10);
    EXPECT_EQ(table_->_keys, nullptr);
    EXPECT_EQ(table_->_values, nullptr);
    EXPECT_EQ(table_->_bucketsCap, 12);
    EXPECT_EQ(table_->_bucketsNum, 16);

    set(7);
    EXPECT_EQ(table_->_bucketsCap, 3);
    EXPECT_EQ(table_->_bucketsNum, 4);
    EXPECT_THAT(keys(), ElementsAre(7));
}

TEST_F(SlotTableOfWords, WithoutMemoryForValuesTheTableHasKeysOnly) {
    world.allocationsLeft = 2;
    make(10);
    EXPECT_NE(table_->_keys, nullptr);
    EXPECT_EQ(table_->_values, nullptr);
}

TEST_F(SlotTableOfWords, WithoutMemoryARebuildKeepsTheOldSlotsUnderNewCounts) {
    make(0);
    KRTUnsignedWord* const oldKeys = table_->_keys;
    KRTUnsignedWord* const oldValues = table_->_values;
    table_->_deletes = 1;

    world.allocationsLeft = 0;
    KRTDictionaryGrow(table_, 10);
    EXPECT_EQ(table_->_keys, oldKeys);
    EXPECT_EQ(table_->_values, oldValues);
    EXPECT_EQ(table_->_bucketsCap, 12);
    EXPECT_EQ(table_->_bucketsNum, 16);
    EXPECT_EQ(table_->_deletes, 0);
}

TEST_F(SlotTableOfWords, WithoutMemoryForValuesARebuildHasNewKeysAndOldValues) {
    make(0);
    KRTUnsignedWord* const oldKeys = table_->_keys;
    KRTUnsignedWord* const oldValues = table_->_values;
    world.allocationsLeft = 1;
    KRTDictionaryGrow(table_, 10);
    EXPECT_NE(table_->_keys, oldKeys);
    EXPECT_EQ(table_->_values, oldValues);
    std::free(oldKeys);
}

TEST_F(SlotTableOfWords, ATableThatNoMemoryCanHoldHasNoSlots) {
    make(KRTWord{1} << 60);
    EXPECT_EQ(table_->_keys, nullptr);
    set(7);
    EXPECT_THAT(keys(), ElementsAre(7));
}

// ---------------------------------------------------------------------------- against a model

/// The same table written the long way: a vector of slots and nothing clever.
class NaiveTable {
public:
    struct Slot {
        KRTUnsignedWord key;
        KRTUnsignedWord value;
    };

    explicit NaiveTable(size_t entries) { resizeFor(entries); }

    void set(KRTUnsignedWord key, KRTUnsignedWord value) {
        ++mutations_;
        if (entries() == capacity_) {
            const auto old = slots_;
            resizeFor(capacity_ + 1);
            for (const auto& slot : old) {
                if (slot) {
                    place(*slot);
                }
            }
        }
        for (auto& slot : slots_) {
            if (slot && world.equal(slot->key, key)) {
                slot->value = value;
                return;
            }
        }
        place({key, value});
    }

    size_t entries() const {
        return static_cast<size_t>(std::count_if(
            slots_.begin(), slots_.end(), [](const auto& slot) { return slot.has_value(); }));
    }

    size_t capacity() const { return capacity_; }

    int mutations() const { return mutations_; }

    Words keys() const {
        Words result;
        for (const auto& slot : slots_) {
            if (slot) {
                result.push_back(slot->key);
            }
        }
        return result;
    }

    Words values() const {
        Words result;
        for (const auto& slot : slots_) {
            if (slot) {
                result.push_back(slot->value);
            }
        }
        return result;
    }

private:
    void resizeFor(size_t entries) {
        capacity_ = 3;
        while (capacity_ < entries) {
            capacity_ *= 2;
        }
        slots_.assign(capacity_ / 3 * 4, std::nullopt);
    }

    void place(Slot slot) {
        size_t i = __KRTDictionaryScrambleHash(world.hash(slot.key)) % slots_.size();
        while (slots_[i]) {
            i = (i + 1) % slots_.size();
        }
        slots_[i] = slot;
    }

    size_t capacity_ = 0;
    int mutations_ = 1;
    std::vector<std::optional<Slot>> slots_;
};

TEST_F(SlotTableOfWords, DoesWhatANaiveTableDoes) {
    const unsigned seed = 20071;
    std::cout << "seed " << seed << "\n";
    std::mt19937_64 random(seed);
    // Ten words each are equal, and equal words hash alike; with few hashes many keys meet.
    world.equal = [](KRTUnsignedWord a, KRTUnsignedWord b) { return a / 10 == b / 10; };
    for (const KRTUnsignedWord hashes : {2U, 17U, 1000000U}) {
        world.hash = [hashes](KRTUnsignedWord key) { return key / 10 % hashes; };
        for (int round = 0; round < 60; ++round) {
            const auto capacity = random() % 40;
            make(static_cast<KRTWord>(capacity));
            NaiveTable model(capacity);
            const auto insertions = random() % 200;
            for (unsigned long i = 1; i <= insertions; ++i) {
                const KRTUnsignedWord key = 10 + random() % 1500;
                set(key, i);
                model.set(key, i);
            }
            ASSERT_EQ(static_cast<size_t>(table_->_count), model.entries());
            ASSERT_EQ(static_cast<size_t>(table_->_bucketsUsed), model.entries());
            ASSERT_EQ(static_cast<size_t>(table_->_bucketsCap), model.capacity());
            ASSERT_EQ(table_->_mutations, model.mutations());
            ASSERT_EQ(keys(), model.keys());
            ASSERT_EQ(values(), model.values());
            KRTDictionaryRelease(table_);
            table_ = nullptr;
        }
    }
}

} // namespace
