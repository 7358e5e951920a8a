#include "corefoundation/values/SeededHash.h"

#include "corefoundation/values/CFStringInternal.h"

#include <array>
#include <cstring>
#include <unistd.h>

namespace krl::cf {
namespace {

__extension__ using UInt128 = unsigned __int128;

using Seed = std::array<uint64_t, 3>;

Seed drawSeed() {
    Seed seed = {0x9E3779B97F4A7C15, 0xC2B2AE3D27D4EB4F, 0x165667B19E3779F9};
    Seed random{};
    if (getentropy(random.data(), sizeof random) == 0) {
        seed = random;
    }
    return seed;
}

const Seed& seed() {
    static const Seed drawn = drawSeed();
    return drawn;
}

/// Both halves of the product, so that every bit of either factor counts.
uint64_t multiplied(uint64_t left, uint64_t right) {
    const UInt128 product = UInt128{left} * right;
    return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

uint64_t wordAt(const char* bytes, size_t size) {
    uint64_t word = 0;
    std::memcpy(&word, bytes, size);
    return word;
}

CFHashCode hashBytes(const char* bytes, size_t size) {
    const auto& [start, step, end] = seed();
    uint64_t hash = start ^ size;
    for (; size >= sizeof hash; size -= sizeof hash, bytes += sizeof hash) {
        hash = multiplied(hash ^ wordAt(bytes, sizeof hash), step);
    }
    if (size > 0) {
        hash = multiplied(hash ^ wordAt(bytes, size), step);
    }
    return multiplied(hash, end);
}

} // namespace

CFHashCode seededHash(CFStringRef string) {
    const Text text(string);
    const auto length = static_cast<size_t>(text.length());
    // Whole strings of different widths are never equal, so the bytes may stand for the units.
    return hashBytes(text.narrow(), text.isWide() ? length * sizeof(UniChar) : length);
}

} // namespace krl::cf
