#include "mobiledevice/provider/wire/CallTimeout.h"

#include <atomic>

namespace krl::provider {

namespace {
std::atomic<std::chrono::milliseconds> timeout{kDefaultCallTimeout};
}

std::chrono::milliseconds callTimeout() {
    return timeout.load(std::memory_order_relaxed);
}

void setCallTimeout(uint32_t timeoutMs) {
    timeout.store(timeoutMs == 0 ? kDefaultCallTimeout : std::chrono::milliseconds(timeoutMs),
                  std::memory_order_relaxed);
}

} // namespace krl::provider
