#include "engine/values/Digest.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>

namespace krl::engine {

std::optional<Digest> Digest::parse(std::string_view hex) {
    constexpr size_t kDigits = 64;
    const bool fits = hex.size() == kDigits && std::all_of(hex.begin(), hex.end(), [](char digit) {
                          return (digit >= '0' && digit <= '9') || (digit >= 'a' && digit <= 'f');
                      });
    return fits ? std::optional(Digest(std::string(hex))) : std::nullopt;
}

void Sha256::add(std::string_view bytes) {
    sha256_update(&context_, bytes.size(), reinterpret_cast<const uint8_t*>(bytes.data()));
}

Digest Sha256::digest() {
    std::array<uint8_t, SHA256_DIGEST_SIZE> digest{};
    sha256_digest(&context_, digest.size(), digest.data());
    return Digest(fmt::format("{:02x}", fmt::join(digest, "")));
}

Digest digestOf(std::string_view bytes) {
    Sha256 sha;
    sha.add(bytes);
    return sha.digest();
}

} // namespace krl::engine
