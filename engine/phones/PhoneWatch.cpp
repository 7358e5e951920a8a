#include "engine/phones/PhoneWatch.h"

#include "engine/phones/MutedStandardError.h"

namespace krl::engine {
class PhoneWatch::Delegate : public KRTPhoneManagerDelegate {
public:
    explicit Delegate(am_device* device) : device_(device) {}

    void phoneConnected(const std::shared_ptr<KRTPhone>& connected) override {
        if (connected && connected->_rawDevice() == device_) {
            phone = connected;
        }
    }

    void phoneRemoved(const std::shared_ptr<KRTPhone>& removed) override {
        isGone = isGone || removed == phone;
    }

    std::shared_ptr<KRTPhone> phone;
    bool isGone = false;

private:
    am_device* const device_;
};

PhoneWatch::PhoneWatch(am_device* device) : delegate_(std::make_shared<Delegate>(device)) {
    KRTPhoneManager::sharedManager()->addDelegate(delegate_);
}

PhoneWatch::~PhoneWatch() {
    KRTPhoneManager::sharedManager()->shutdown();
}

const std::shared_ptr<KRTPhone>& PhoneWatch::phone() const {
    return delegate_->phone;
}

void PhoneWatch::lookAnew() {
    KRTPhoneManager::sharedManager()->shutdown();
    KRTPhoneManager::sharedManager()->addDelegate(delegate_);
}

bool PhoneWatch::wait(std::chrono::milliseconds longest) {
    // The manager opens all that is attached, and has a line to say on each device that does not
    // open or is no iPhone.
    const MutedStandardError muted;
    return CFRunLoopRunInMode(kCFRunLoopDefaultMode, std::chrono::duration<double>(longest).count(),
                              /*returnAfterSourceHandled=*/true) == kCFRunLoopRunHandledSource;
}

bool PhoneWatch::isGone() {
    constexpr std::chrono::milliseconds kLag{1000};
    const auto end = std::chrono::steady_clock::now() + kLag;
    while (!delegate_->isGone && std::chrono::steady_clock::now() < end) {
        wait(std::chrono::milliseconds{50});
    }
    return delegate_->isGone;
}

} // namespace krl::engine
