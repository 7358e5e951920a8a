#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace krl::engine {

/// The SHA-256 of a content, by which contents are told apart and found again.
class Digest {
public:
    /// From 64 hexadecimal digits in lower case; none for anything else.
    static std::optional<Digest> parse(std::string_view hex);

    /// 64 hexadecimal digits in lower case.
    const std::string& hex() const { return hex_; }

    friend auto operator<=>(const Digest&, const Digest&) = default;

private:
    friend class Sha256;

    explicit Digest(std::string hex) : hex_(std::move(hex)) {}

    std::string hex_;
};

/// Works out a digest of bytes that come one after the other. Our own, because the engine is also
/// built where there is no NSS.
class Sha256 {
public:
    void add(std::string_view bytes);

    /// The digest of all that was added. The last call to an object.
    Digest digest();

private:
    static constexpr size_t kBlock = 64;

    void mix(const uint8_t* block);

    std::array<uint32_t, 8> state_{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                   0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    std::array<uint8_t, kBlock> pending_{};
    size_t pendingCount_ = 0;
    uint64_t count_ = 0;
};

/// The digest of bytes that are all there.
Digest digestOf(std::string_view bytes);

} // namespace krl::engine
