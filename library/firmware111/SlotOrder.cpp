#include "library/firmware111/SlotOrder.h"

#include <algorithm>
#include <bit>

namespace krl {
namespace {

constexpr uint32_t kFree = UINT32_MAX;
constexpr uint32_t kBits = 64;

} // namespace

size_t SlotOrder::slotCountFor(KRTWord capacity) {
    return static_cast<size_t>(__KRTHashNumBucketsForCapacity(__KRTHashRoundUpCapacity(capacity)));
}

SlotOrder::SlotOrder(KRTWord capacity)
    : slots_(slotCountFor(capacity), kFree), occupied_((slots_.size() + kBits - 1) / kBits) {}

uint32_t SlotOrder::homeOf(uint32_t key) const {
    return static_cast<uint32_t>(places_[key].scrambled & (slots_.size() - 1));
}

/// Steps of a probe that begins at one slot and gets to another.
uint32_t SlotOrder::distance(uint32_t from, uint32_t to) const {
    return static_cast<uint32_t>((to - from) & (slots_.size() - 1));
}

uint32_t SlotOrder::firstFreeSlot(uint32_t from) const {
    // A quarter of the slots is free at least, so one is found.
    uint32_t slot = from;
    while (true) {
        const uint64_t row = occupied_[slot / kBits] >> (slot % kBits);
        const auto passed = static_cast<uint32_t>(std::countr_one(row));
        const uint32_t next = slot + passed;
        if (next >= slots_.size()) {
            slot = 0;
        } else if (passed < kBits - slot % kBits) {
            return next;
        } else {
            slot = next;
        }
    }
}

void SlotOrder::fill(uint32_t slot, uint32_t key) {
    slots_[slot] = key;
    occupied_[slot / kBits] |= uint64_t{1} << (slot % kBits);
    places_[key].slot = slot;
}

void SlotOrder::vacate(uint32_t slot) {
    slots_[slot] = kFree;
    occupied_[slot / kBits] &= ~(uint64_t{1} << (slot % kBits));
}

void SlotOrder::append(uint32_t key, KRTUnsignedWord hash) {
    places_.resize(std::max(places_.size(), size_t{key} + 1));
    places_[key].scrambled = __KRTDictionaryScrambleHash(hash);
    fill(firstFreeSlot(homeOf(key)), key);
}

bool SlotOrder::remove(uint32_t key, std::vector<uint32_t>& moved) {
    size_t looks = slots_.size();
    uint32_t hole = places_[key].slot;
    // The hole has been there for all that came after its last key. The first of them that probed
    // it would have stayed in it, and leaves a hole of its own for what came after itself.
    uint32_t last = key;
    while (true) {
        uint32_t heir = kFree;
        for (uint32_t slot = hole;;) {
            slot = static_cast<uint32_t>((slot + 1) & (slots_.size() - 1));
            const uint32_t other = slots_[slot];
            if (other == kFree) {
                break;
            }
            if (--looks == 0) {
                return false;
            }
            const bool hasProbedHole = distance(homeOf(other), slot) >= distance(hole, slot);
            if (other > last && other < heir && hasProbedHole) {
                heir = other;
            }
        }
        if (heir == kFree) {
            vacate(hole);
            return true;
        }
        const uint32_t left = places_[heir].slot;
        fill(hole, heir);
        moved.push_back(heir);
        hole = left;
        last = heir;
    }
}

} // namespace krl
