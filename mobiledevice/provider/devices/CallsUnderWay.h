// The channels of calls that are under way, for whoever ends these calls from another thread.
#pragma once

#include "mobiledevice/provider/wire/Channel.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace krl::provider {

/// Not synchronised: its owner has a lock, which is never held while anybody waits for an answer.
class CallsUnderWay {
public:
    /// What a call keeps in mind of its beginning.
    [[nodiscard]] uint64_t cancellations() const { return cancellations_; }

    /// Takes in a channel of a call. Of a call that began before all were cancelled it is cancelled,
    /// and ended once all have been ended for good.
    void keep(const std::shared_ptr<Channel>& channel, uint64_t cancellations);

    /// Cancels all calls that have begun by now.
    void cancel() noexcept;

    /// Ends all calls, those to come included.
    void end() noexcept;

private:
    template <typename Action>
    void letGo(Action action) noexcept;

    std::vector<std::weak_ptr<Channel>> channels_;
    uint64_t cancellations_ = 0;
    bool isOver_ = false;
};

} // namespace krl::provider
