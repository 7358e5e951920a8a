#include "engine/files/QuietTimer.h"

#include "confined/OpenFile.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace krl::engine {
namespace {

class DescriptorTimer : public QuietTimer {
public:
    explicit DescriptorTimer(std::chrono::milliseconds length)
        : timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)), length_(length) {
        if (!timer_) {
            throw std::system_error(errno, std::generic_category(), "no descriptor for a timer");
        }
    }

    int descriptor() const override { return timer_.get(); }

    void start() override {
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(length_);
        itimerspec once{};
        once.it_value.tv_sec = seconds.count();
        once.it_value.tv_nsec = std::chrono::nanoseconds(length_ - seconds).count();
        timerfd_settime(timer_.get(), 0, &once, nullptr);
    }

    bool takeEnd() override {
        uint64_t times = 0;
        return read(timer_.get(), &times, sizeof times) == sizeof times;
    }

private:
    confined::OpenFile timer_;
    const std::chrono::milliseconds length_;
};

} // namespace

std::unique_ptr<QuietTimer> newQuietTimer(std::chrono::milliseconds length) {
    return std::make_unique<DescriptorTimer>(length);
}

} // namespace krl::engine
