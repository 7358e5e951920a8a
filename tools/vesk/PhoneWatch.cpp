#include "PhoneWatch.h"

#include "Cf.h"
#include "Device.h"
#include "Terminal.h"

#include <utility>

namespace vesk {
namespace {

std::string udidOf(const KRTPhone& phone) {
    const auto information = phone.phoneInformation();
    return cf::textAt(cf::dictionaryAt(information.get(), CFSTR("PhoneVersions")),
                      CFSTR("UniqueDeviceID"));
}

} // namespace

class PhoneWatch::Delegate : public KRTPhoneManagerDelegate {
public:
    explicit Delegate(std::string udid) : udid_(std::move(udid)) {}

    void phoneConnected(const std::shared_ptr<KRTPhone>& connected) override {
        if (connected && !phone && sameUdid(udidOf(*connected), udid_)) {
            phone = connected;
        }
    }

    void phoneRemoved(const std::shared_ptr<KRTPhone>& removed) override {
        isGone = isGone || removed == phone;
    }

    std::shared_ptr<KRTPhone> phone;
    bool isGone = false;

private:
    const std::string udid_;
};

PhoneWatch::PhoneWatch(std::string udid) : delegate_(std::make_shared<Delegate>(std::move(udid))) {
    KRTPhoneManager::sharedManager()->addDelegate(delegate_);
}

PhoneWatch::~PhoneWatch() {
    KRTPhoneManager::sharedManager()->shutdown();
}

const std::shared_ptr<KRTPhone>& PhoneWatch::phone() const {
    return delegate_->phone;
}

void PhoneWatch::wait(std::chrono::milliseconds longest) {
    // The manager opens all that is attached, and has a line to say on each device that does not
    // open or is no iPhone.
    const MutedStandardError muted;
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, std::chrono::duration<double>(longest).count(),
                       /*returnAfterSourceHandled=*/true);
}

bool PhoneWatch::isGone() {
    constexpr std::chrono::milliseconds kLag{1000};
    const auto end = std::chrono::steady_clock::now() + kLag;
    while (!delegate_->isGone && std::chrono::steady_clock::now() < end) {
        wait(std::chrono::milliseconds{50});
    }
    return delegate_->isGone;
}

} // namespace vesk
