// Bytes that have come and that nobody has taken yet.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>

namespace krl::provider {

/// Takes many small replies with one system call.
class ReceiveBuffer {
public:
    static constexpr size_t kCapacity = 4096;

    [[nodiscard]] size_t size() const { return held_.size(); }

    [[nodiscard]] bool isEmpty() const { return held_.empty(); }

    [[nodiscard]] std::byte front() const { return held_.front(); }

    /// Moves bytes to the target, as many as there are and it has room for, and says how many.
    size_t take(std::span<std::byte> target) {
        const size_t count = std::min(held_.size(), target.size());
        std::copy_n(held_.begin(), count, target.begin());
        held_ = held_.subspan(count);
        return count;
    }

    /// Where the next bytes may come; added() then says how many came.
    std::span<std::byte> room() {
        std::copy(held_.begin(), held_.end(), bytes_.begin());
        held_ = std::span(bytes_).first(held_.size());
        return std::span(bytes_).subspan(held_.size());
    }

    void added(size_t count) { held_ = {held_.data(), held_.size() + count}; }

    void clear() { held_ = std::span(bytes_).first(0); }

private:
    std::array<std::byte, kCapacity> bytes_;
    std::span<std::byte> held_ = std::span(bytes_).first(0);
};

} // namespace krl::provider
