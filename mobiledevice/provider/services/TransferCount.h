// How far a file has come, for whoever watches.
#pragma once

#include <atomic>
#include <cstdint>

namespace krl::provider {

/// Bytes of the file that was opened last. One thread counts at a time, any may look.
class TransferCount {
public:
    void begin() { bytes_.store(0, std::memory_order_relaxed); }

    void add(uint64_t bytes) { bytes_.fetch_add(bytes, std::memory_order_relaxed); }

    [[nodiscard]] uint64_t bytes() const { return bytes_.load(std::memory_order_relaxed); }

private:
    std::atomic<uint64_t> bytes_ = 0;
};

} // namespace krl::provider
