// Hears of phones from the mux and tells the subscriptions.
#ifndef KRL_PROVIDER_DEVICEHUB_H
#define KRL_PROVIDER_DEVICEHUB_H

#include "DeviceReference.h"
#include "Subscription.h"

#include <usbmuxd.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace krl::provider {

/** Listens while there is a subscription. Any thread. */
class DeviceHub {
public:
    /** Tells the subscription of the phones that are there, and of all news. */
    int32_t add(const std::shared_ptr<Subscription>& subscription);

    /** Tells it nothing more. */
    void remove(const std::shared_ptr<Subscription>& subscription);

    /** What libusbmuxd calls, on a thread of its own and while it holds locks. */
    static void onMuxEvent(const usbmuxd_event_t* event, void* hub);

private:
    void attached(uint32_t muxId, const std::string& udid);
    void detached(uint32_t muxId);
    DeviceReference deviceFor(uint32_t muxId, const std::string& udid);

    // Orders the calls that begin and end listening. libusbmuxd's thread never takes it, for they
    // wait for that thread.
    std::mutex listening_;
    usbmuxd_subscription_context_t context_ = nullptr;

    std::mutex mutex_; // of what follows
    std::vector<std::shared_ptr<Subscription>> subscriptions_;
    std::map<uint32_t, DeviceReference> attached_;
    // The device of each plugging heard of, not held: while somebody else holds it, a subscription
    // that begins anew meets the same device.
    std::map<uint32_t, am_device*> pluggings_;
};

/** The process's hub. It outlives libusbmuxd's thread. */
DeviceHub& deviceHub();

} // namespace krl::provider

#endif
