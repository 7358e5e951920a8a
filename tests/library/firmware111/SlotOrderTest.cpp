#include "library/firmware111/SlotOrder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <random>
#include <vector>

namespace {

using krl::SlotOrder;

/// Keys inserted one after the other into empty slots, as the firmware does it.
std::map<uint32_t, size_t> filledAnew(const std::map<uint32_t, KRTUnsignedWord>& hashes,
                                      size_t slotCount) {
    std::vector<bool> isFull(slotCount);
    std::map<uint32_t, size_t> places;
    for (const auto& [key, hash] : hashes) {
        size_t slot = __KRTDictionaryScrambleHash(hash) & (slotCount - 1);
        while (isFull[slot]) {
            slot = (slot + 1) % slotCount;
        }
        isFull[slot] = true;
        places[key] = slot;
    }
    return places;
}

TEST(SlotOrder, HasTheSlotsOfATableOfThatCapacity) {
    EXPECT_EQ(SlotOrder(10).slotCount(), 16u);
    EXPECT_EQ(SlotOrder(12).slotCount(), 16u);
    EXPECT_EQ(SlotOrder(13).slotCount(), 32u);
    EXPECT_EQ(SlotOrder(49).slotCount(), 128u);
}

TEST(SlotOrder, RemovingLeavesTheSlotsAsIfTheKeyHadNeverBeenInserted) {
    const unsigned seed = 51;
    std::cout << "seed " << seed << "\n";
    std::mt19937 random(seed);
    size_t movedKeys = 0;
    for (const unsigned capacity : {12u, 24u, 48u, 96u}) {
        for (int round = 0; round < 40; ++round) {
            // Few hashes make long rows, which also run over the last slot.
            const unsigned hashCount = round % 2 == 0 ? 1u << 30 : capacity / 4;
            SlotOrder order(capacity);
            std::map<uint32_t, KRTUnsignedWord> hashes;
            uint32_t next = 0;
            for (unsigned step = 0; step < 3 * capacity; ++step) {
                const bool isFull = hashes.size() == capacity;
                if (isFull || (!hashes.empty() && random() % 3 == 0)) {
                    const auto victim =
                        std::next(hashes.begin(), static_cast<ptrdiff_t>(random() % hashes.size()));
                    const auto before = filledAnew(hashes, order.slotCount());
                    std::vector<uint32_t> moved;
                    if (!order.remove(victim->first, moved)) {
                        break;
                    }
                    hashes.erase(victim);
                    const auto after = filledAnew(hashes, order.slotCount());
                    std::vector<uint32_t> expected;
                    for (const auto& [key, slot] : after) {
                        if (before.at(key) != slot) {
                            expected.push_back(key);
                        }
                    }
                    ASSERT_EQ(moved, expected);
                    movedKeys += moved.size();
                } else {
                    hashes[next] = random() % hashCount;
                    order.append(next, hashes[next]);
                    ++next;
                }
                for (const auto& [key, slot] : filledAnew(hashes, order.slotCount())) {
                    ASSERT_EQ(order.slotOf(key), slot) << "key " << key;
                }
            }
        }
    }
    EXPECT_GT(movedKeys, 1000u);
}

TEST(SlotOrder, GivesUpOnARemovalThatCostsMoreThanFillingAnew) {
    SlotOrder order(96);
    for (uint32_t key = 0; key < 96; ++key) {
        order.append(key, 7);
    }
    std::vector<uint32_t> moved;
    EXPECT_TRUE(order.remove(95, moved));
    EXPECT_TRUE(moved.empty());
    EXPECT_FALSE(order.remove(0, moved));
}

} // namespace
