#pragma once

// A virtual phone in this process and the provider's functions, for benchmarks over the wire.

#include "tests/support/TemporaryFolder.h"

#include <CoreFoundation/CoreFoundation.h>
#include <MobileDevice/Provider.h>
#include <virtualphone/VirtualPhone.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace bench {

inline const MobileDeviceTable& provider() {
    return *MobileDeviceProviderTable();
}

/// Phones on a bus that both sides find, in the order in which they are plugged in.
enum PhoneIndex { kClear, kModern, kSsl3, kLongWire, kPhoneCount };

class World {
public:
    World() {
        setenv("USBMUXD_SOCKET_ADDRESS", bus_.environmentValue().c_str(), 1);
        bus_.log().keepAtMost(100);
        using virtualphone::SessionKind;
        for (const SessionKind kind :
             {SessionKind::Clear, SessionKind::Modern, SessionKind::Ssl3}) {
            plug({.session = kind});
        }
        plug({.wireDelay = std::chrono::milliseconds(1)});
    }

    World(const World&) = delete;
    World& operator=(const World&) = delete;

    const std::string& udid(PhoneIndex phone = kClear) const { return phones_[phone]->udid(); }

    const std::filesystem::path& root() const { return root_.path(); }

private:
    void plug(virtualphone::PhoneOptions options) {
        options.root = root() / std::to_string(phones_.size());
        phones_.push_back(std::make_shared<virtualphone::Phone>(options));
        bus_.plug(phones_.back());
    }

    virtualphone::testing::TemporaryFolder root_;
    virtualphone::Bus bus_;
    std::vector<std::shared_ptr<virtualphone::Phone>> phones_;
};

/// Hears of the phones' arrival.
class Subscription {
public:
    Subscription() {
        arrived().clear();
        provider().AMDeviceNotificationSubscribe(&heard, 0, 0, nullptr, &handle_);
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (arrived().size() < kPhoneCount) {
            if (std::chrono::steady_clock::now() > limit) {
                throw std::runtime_error("the phones did not arrive");
            }
            CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.05, true);
        }
    }

    ~Subscription() { provider().AMDShutdownNotificationProxy(handle_); }

    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;

    am_device* device(PhoneIndex phone = kClear) const { return arrived()[phone]; }

private:
    static std::vector<am_device*>& arrived() {
        static std::vector<am_device*> devices;
        return devices;
    }

    static void heard(am_device_notification_info* info) {
        if (info->message == kAMDeviceMessageConnected) {
            arrived().push_back(info->device);
        }
    }

    am_device_notification* handle_ = nullptr;
};

// On one bus, since clients look for the bus in the environment.
void registerTransfers(const std::shared_ptr<World>& world);
void registerObjectLayer(const std::shared_ptr<World>& world);

} // namespace bench
