/// The cable's speed, shared by all connections of a phone.
#pragma once

#include "virtualphone/wire/Channel.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace virtualphone {

class Link {
public:
    /// 0 is as fast as it goes.
    explicit Link(uint64_t bytesPerSecond) : bytesPerSecond_(bytesPerSecond) {}

    /// Waits until these bytes have travelled; false when the connection ended meanwhile.
    bool carry(Channel& channel, size_t bytes);

    /// The most to carry at once, so that progress is seen about every 20 ms.
    size_t pieceSize(size_t wanted) const;

private:
    const uint64_t bytesPerSecond_;
    std::mutex mutex_;
    std::chrono::steady_clock::time_point freeFrom_;
};

} // namespace virtualphone
