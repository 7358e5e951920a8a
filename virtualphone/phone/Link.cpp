#include "virtualphone/phone/Link.h"

#include <algorithm>

namespace virtualphone {

bool Link::carry(Channel& channel, size_t bytes) {
    if (bytesPerSecond_ == 0 || bytes == 0) {
        return true;
    }
    using Clock = std::chrono::steady_clock;
    const std::chrono::duration<double> time(static_cast<double>(bytes) /
                                             static_cast<double>(bytesPerSecond_));
    const Clock::time_point now = Clock::now();
    Clock::time_point arrival;
    {
        const std::lock_guard lock(mutex_);
        freeFrom_ = std::max(freeFrom_, now) + std::chrono::duration_cast<Clock::duration>(time);
        arrival = freeFrom_;
    }
    return channel.pause(arrival - now);
}

size_t Link::pieceSize(size_t wanted) const {
    constexpr uint64_t kPiecesPerSecond = 50;
    constexpr uint64_t kSmallest = 512;
    if (bytesPerSecond_ == 0) {
        return wanted;
    }
    const uint64_t piece = std::max(bytesPerSecond_ / kPiecesPerSecond, kSmallest);
    return static_cast<size_t>(std::min<uint64_t>(wanted, piece));
}

} // namespace virtualphone
