#pragma once

// A virtual phone in this process and the provider's functions, for benchmarks over the wire.

#include <CoreFoundation/CoreFoundation.h>
#include <MobileDevice/Provider.h>
#include <virtualphone/VirtualPhone.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

namespace bench {

inline const MobileDeviceTable& provider() {
    return *MobileDeviceProviderTable();
}

/// A phone on a bus that both sides find.
class World {
public:
    World() {
        std::string name = (std::filesystem::temp_directory_path() / "krl-bench-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
        root_ = name;
        setenv("USBMUXD_SOCKET_ADDRESS", bus_.environmentValue().c_str(), 1);
        bus_.log().keepAtMost(100);
        phone_ = std::make_shared<virtualphone::Phone>(virtualphone::PhoneOptions{.root = root_});
        bus_.plug(phone_);
    }

    ~World() {
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }

    World(const World&) = delete;
    World& operator=(const World&) = delete;

    const std::string& udid() const { return phone_->udid(); }

    const std::filesystem::path& root() const { return root_; }

private:
    std::filesystem::path root_;
    virtualphone::Bus bus_;
    std::shared_ptr<virtualphone::Phone> phone_;
};

/// Hears of the phone's arrival.
class Subscription {
public:
    Subscription() {
        arrived() = nullptr;
        provider().AMDeviceNotificationSubscribe(&heard, 0, 0, nullptr, &handle_);
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (arrived() == nullptr) {
            if (std::chrono::steady_clock::now() > limit) {
                throw std::runtime_error("the phone did not arrive");
            }
            CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.05, true);
        }
    }

    ~Subscription() { provider().AMDShutdownNotificationProxy(handle_); }

    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;

    am_device* device() const { return arrived(); }

private:
    static am_device*& arrived() {
        static am_device* device = nullptr;
        return device;
    }

    static void heard(am_device_notification_info* info) {
        if (info->message == kAMDeviceMessageConnected) {
            arrived() = info->device;
        }
    }

    am_device_notification* handle_ = nullptr;
};

// On one phone, since clients look for the bus in the environment.
void registerTransfers(const std::shared_ptr<World>& world);
void registerObjectLayer(const std::shared_ptr<World>& world);

} // namespace bench
