#include "library/system/Clock.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace krl::system {
namespace {

void reallySleep(unsigned seconds) {
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
}

std::atomic<SleepFunction> sleepFunction{reallySleep};

} // namespace

void sleepSeconds(unsigned seconds) {
    sleepFunction.load()(seconds);
}

SleepFunction setSleepFunction(SleepFunction function) {
    return sleepFunction.exchange(function != nullptr ? function : reallySleep);
}

} // namespace krl::system
