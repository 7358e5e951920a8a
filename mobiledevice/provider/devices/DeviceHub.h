// Hears of phones from the mux and tells the subscriptions.
#pragma once

#include "mobiledevice/provider/devices/CallsUnderWay.h"
#include "mobiledevice/provider/devices/DeviceReference.h"
#include "mobiledevice/provider/devices/Subscription.h"
#include "mobiledevice/provider/wire/Channel.h"
#include "mobiledevice/provider/wire/MuxListener.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace krl::provider {

/// Listens while there is a subscription. Any thread.
class DeviceHub final : public MuxAudience {
public:
    /// Tells the subscription of the phones that are there, and of all news.
    int32_t add(const std::shared_ptr<Subscription>& subscription);

    /// Waits until all phones that are attached by now have been told to the subscriptions; 0, or a
    /// status as AMDeviceWaitForAttached.
    int32_t waitForAttached(std::chrono::milliseconds longest);

    /// Ends such waits.
    void cancelWaits() noexcept;

    /// Tells it nothing more.
    void remove(const std::shared_ptr<Subscription>& subscription);

    void attached(uint32_t muxId, const std::string& udid) noexcept override;
    void detached(uint32_t muxId) noexcept override;

private:
    /// While somebody waits it is kept in mind who has left.
    class Waiting {
    public:
        explicit Waiting(DeviceHub& hub);
        Waiting(const Waiting&) = delete;
        Waiting& operator=(const Waiting&) = delete;
        ~Waiting();

        uint64_t cancellations = 0; ///< as they were when it began

    private:
        DeviceHub& hub_;
    };

    void announce(uint32_t muxId, const std::string& udid);
    void withdraw(uint32_t muxId);
    int32_t listAttached(const Waiting& waiting, Channel::Clock::time_point end,
                         std::vector<uint32_t>& muxIds);
    bool wasHeardOf(uint32_t muxId) const;
    DeviceReference deviceFor(uint32_t muxId, const std::string& udid);

    // Orders the calls that begin and end listening. The listener's thread never takes it, for they
    // wait for that thread.
    std::mutex listening_;
    std::optional<MuxListener> listener_;

    std::mutex mutex_; // of what follows
    std::vector<std::shared_ptr<Subscription>> subscriptions_;
    std::map<uint32_t, DeviceReference> attached_;
    // The device of each plugging heard of, not held: while somebody else holds it, a subscription
    // that begins anew meets the same device.
    std::map<uint32_t, am_device*> pluggings_;

    std::condition_variable news_;
    size_t waiting_ = 0;
    std::set<uint32_t> gone_; // phones that have left while somebody waited
    CallsUnderWay questions_;
};

/// The process's hub. It outlives the listener's thread.
DeviceHub& deviceHub();

} // namespace krl::provider
