#pragma once

#include <KRLVesk/KRLVesk.h>

#include <chrono>
#include <memory>

namespace krl::engine {

/// Finds one phone through the library's phone manager and notices when it is pulled out. One at a
/// time, on one thread.
class PhoneWatch {
public:
    /// Begins to look for the phone that this device is.
    explicit PhoneWatch(am_device* device);

    /// Ends the manager, and with it all that it has found.
    ~PhoneWatch();

    PhoneWatch(const PhoneWatch&) = delete;
    PhoneWatch& operator=(const PhoneWatch&) = delete;

    /// The phone once it was announced, also when it is gone by now; null before.
    const std::shared_ptr<KRTPhone>& phone() const;

    /// Looks anew at all that is attached: the manager forgets a device that it could not open.
    void lookAnew();

    /// Waits for news of phones, no longer than this; whether there were some.
    bool wait(std::chrono::milliseconds longest);

    /// Whether the phone was pulled out. News of it may lag behind its failing calls.
    bool isGone();

private:
    class Delegate;

    std::shared_ptr<Delegate> delegate_;
};

} // namespace krl::engine
