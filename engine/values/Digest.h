#pragma once

#include <nettle/sha2.h>

#include <compare>
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

/// Works out a digest of bytes that come one after the other.
class Sha256 {
public:
    Sha256() { sha256_init(&context_); }

    void add(std::string_view bytes);

    /// The digest of all that was added. The last call to an object.
    Digest digest();

private:
    sha256_ctx context_;
};

/// The digest of bytes that are all there.
Digest digestOf(std::string_view bytes);

} // namespace krl::engine
