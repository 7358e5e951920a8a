#include "mobiledevice/provider/devices/CallsUnderWay.h"

namespace krl::provider {

void CallsUnderWay::keep(const std::shared_ptr<Channel>& channel, uint64_t cancellations) {
    if (isOver_) {
        channel->shutdown();
    } else if (cancellations != cancellations_) {
        channel->cancel();
    }
    std::erase_if(channels_, [](const auto& known) { return known.expired(); });
    channels_.push_back(channel);
}

void CallsUnderWay::cancel() noexcept {
    ++cancellations_;
    letGo([](Channel& channel) { channel.cancel(); });
}

void CallsUnderWay::end() noexcept {
    isOver_ = true;
    letGo([](Channel& channel) { channel.shutdown(); });
}

template <typename Action>
void CallsUnderWay::letGo(Action action) noexcept {
    for (const auto& known : channels_) {
        if (const auto channel = known.lock()) {
            action(*channel);
        }
    }
    channels_.clear();
}

} // namespace krl::provider
