// One subscriber to arrivals and removals: a queue that the run loop of its thread empties.
#pragma once

#include "mobiledevice/provider/devices/DeviceReference.h"
#include "mobiledevice/provider/devices/Handles.h"

#include <CoreFoundation/CFRef.h>
#include <MobileDevice/MobileDevice.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

namespace krl::provider {

/// Holds one reference on each device from its arrival until its removal has been delivered.
class Subscription final : public Object {
public:
    /// Belongs to the thread that makes it.
    explicit Subscription(am_device_notification_callback callback);

    /// Has the thread's run loop deliver events from now on, while `self` is the handle of this.
    void schedule(am_device_notification* self);

    /// Queues an event, to be delivered later. Any thread.
    void enqueue(am_device* device, uint32_t message);

    /// Ends it: no callback begins any more, and one that runs on another thread has returned. Any
    /// thread, the callback included.
    void end();

private:
    struct Event {
        am_device* device; // one of attached_
        uint32_t message;
    };

    static void perform(void* handle);
    void deliver();

    const am_device_notification_callback callback_;
    const std::thread::id thread_ = std::this_thread::get_id();
    cf::CFRef<CFRunLoopSourceRef> source_;

    std::mutex mutex_; // of what follows
    std::condition_variable callbackReturned_;
    int callbacksRunning_ = 0; // more than one when a callback runs the run loop itself
    std::deque<Event> events_;
    std::vector<DeviceReference> attached_;
    bool ended_ = false;
};

} // namespace krl::provider
