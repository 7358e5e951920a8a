#include "engine/values/Digest.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cstring>

namespace krl::engine {
namespace {

// The first 32 bits of the fractional parts of the cube roots of the first 64 primes.
constexpr std::array<uint32_t, 64> kRounds{
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

uint32_t bigEndian(const uint8_t* bytes) {
    return static_cast<uint32_t>(bytes[0]) << 24U | static_cast<uint32_t>(bytes[1]) << 16U |
           static_cast<uint32_t>(bytes[2]) << 8U | bytes[3];
}

} // namespace

std::optional<Digest> Digest::parse(std::string_view hex) {
    constexpr size_t kDigits = 64;
    const bool fits = hex.size() == kDigits && std::all_of(hex.begin(), hex.end(), [](char digit) {
                          return (digit >= '0' && digit <= '9') || (digit >= 'a' && digit <= 'f');
                      });
    return fits ? std::optional(Digest(std::string(hex))) : std::nullopt;
}

void Sha256::mix(const uint8_t* block) {
    std::array<uint32_t, 64> words;
    for (size_t i = 0; i < 16; ++i) {
        words[i] = bigEndian(block + 4 * i);
    }
    for (size_t i = 16; i < words.size(); ++i) {
        const uint32_t low = words[i - 15];
        const uint32_t high = words[i - 2];
        words[i] = words[i - 16] + words[i - 7] +
                   (std::rotr(low, 7) ^ std::rotr(low, 18) ^ (low >> 3U)) +
                   (std::rotr(high, 17) ^ std::rotr(high, 19) ^ (high >> 10U));
    }
    auto [a, b, c, d, e, f, g, h] = state_;
    for (size_t i = 0; i < words.size(); ++i) {
        const uint32_t first = h + (std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25)) +
                               ((e & f) ^ (~e & g)) + kRounds[i] + words[i];
        const uint32_t second =
            (std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
        h = g;
        g = f;
        f = e;
        e = d + first;
        d = c;
        c = b;
        b = a;
        a = first + second;
    }
    const std::array<uint32_t, 8> mixed{a, b, c, d, e, f, g, h};
    for (size_t i = 0; i < state_.size(); ++i) {
        state_[i] += mixed[i];
    }
}

void Sha256::add(std::string_view bytes) {
    count_ += bytes.size();
    while (!bytes.empty()) {
        const auto* const next = reinterpret_cast<const uint8_t*>(bytes.data());
        if (pendingCount_ == 0 && bytes.size() >= kBlock) {
            mix(next);
            bytes.remove_prefix(kBlock);
            continue;
        }
        const size_t taken = std::min(kBlock - pendingCount_, bytes.size());
        std::memcpy(pending_.data() + pendingCount_, next, taken);
        bytes.remove_prefix(taken);
        pendingCount_ += taken;
        if (pendingCount_ == kBlock) {
            mix(pending_.data());
            pendingCount_ = 0;
        }
    }
}

Digest Sha256::digest() {
    const uint64_t bits = count_ * 8;
    constexpr size_t kLength = sizeof bits;
    std::string padding(1, '\x80');
    padding.append((2 * kBlock - kLength - 1 - pendingCount_) % kBlock, '\0');
    for (size_t i = kLength; i-- > 0;) {
        padding += static_cast<char>(bits >> (8 * i) & 0xFFU);
    }
    add(padding);
    std::string hex;
    for (const uint32_t word : state_) {
        hex += fmt::format("{:08x}", word);
    }
    return Digest(hex);
}

Digest digestOf(std::string_view bytes) {
    Sha256 sha;
    sha.add(bytes);
    return sha.digest();
}

} // namespace krl::engine
