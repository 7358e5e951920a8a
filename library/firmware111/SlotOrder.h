// The order in which firmware 1.1.1 walks its dictionaries, kept while keys come and go.
#pragma once

#include <KRLVesk/KRTDictionary.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace krl {

/// Where keys stand in the slots of a KRTDictionary that they were inserted into in turn. Keys are
/// numbers and must be different ones; each is greater than all before it. Unlike the table, this
/// has a removal: it leaves the slots as if the key had never been inserted.
class SlotOrder {
public:
    /// No keys, and slots for as many as that without a rebuild.
    explicit SlotOrder(KRTWord capacity);

    /// How many slots such a table has.
    static size_t slotCountFor(KRTWord capacity);

    size_t slotCount() const { return slots_.size(); }

    /// @param hash  CFHash of the key
    void append(uint32_t key, KRTUnsignedWord hash);

    /// Takes a key out. Later keys that were in its way, or in the way of those, move up: they are
    /// added to moved.
    ///
    /// @return whether that was done; when more slots would have to be looked at than filling the
    ///         slots anew costs, nothing is true any more
    [[nodiscard]] bool remove(uint32_t key, std::vector<uint32_t>& moved);

    uint32_t slotOf(uint32_t key) const { return places_[key].slot; }

private:
    struct Place {
        KRTUnsignedWord scrambled;
        uint32_t slot;
    };

    uint32_t homeOf(uint32_t key) const;
    uint32_t distance(uint32_t from, uint32_t to) const;
    uint32_t firstFreeSlot(uint32_t from) const;
    void fill(uint32_t slot, uint32_t key);
    void vacate(uint32_t slot);

    std::vector<uint32_t> slots_;    ///< key or kFree
    std::vector<uint64_t> occupied_; ///< a bit a slot, so that long rows are passed quickly
    std::vector<Place> places_;      ///< by key
};

} // namespace krl
