// The provider's functions over the wire: a phone on a bus, found and opened the usual way.
#pragma once

#include "tests/mobiledevice/provider/Descriptors.h"

#include "tests/support/VirtualPhoneFixture.h"

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>
#include <MobileDevice/Provider.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

namespace krl::provider::testing {

/// Of a row of a table of calls and one of a table of faults: "DirectoryCreate_short".
inline constexpr auto nameOfCallAndFault = [](const auto& rows) {
    std::string name =
        std::string(std::get<0>(rows.param).name) + "_" + std::get<1>(rows.param).action;
    std::replace_if(
        name.begin(), name.end(), [](char letter) { return !std::isalnum(letter); }, '_');
    return name;
};

inline const MobileDeviceTable& provider() {
    return *MobileDeviceProviderTable();
}

/// Runs this thread's loop until something is so; false when half a minute was not enough.
inline bool runUntil(const std::function<bool()>& isSo) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!isSo()) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.05, true);
    }
    return true;
}

/// Handles what is ready now.
inline void runOnce() {
    while (CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, true) == kCFRunLoopRunHandledSource) {
    }
}

/// Whether there are soon no more open descriptors than that; the phone, which is in this process,
/// closes its ends a moment after us.
inline bool descriptorsFallTo(size_t count) {
    return runUntil([count] { return openDescriptors() <= count; });
}

struct DeviceEvent {
    am_device* device;
    uint32_t message;

    bool operator==(const DeviceEvent&) const = default;
};

inline void PrintTo(const DeviceEvent& event, std::ostream* stream) {
    *stream << "{" << event.device << ", " << event.message << "}";
}

/// A subscription that writes down what it hears. The callback gets no cookie, so each of the
/// subscriptions that exist at once needs a slot of its own.
template <int Slot>
class Watcher {
public:
    Watcher() {
        current() = this;
        EXPECT_EQ(provider().AMDeviceNotificationSubscribe(&heard, 0, 0, nullptr, &handle), 0);
    }

    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    ~Watcher() {
        end();
        current() = nullptr;
    }

    int32_t end() {
        return provider().AMDShutdownNotificationProxy(std::exchange(handle, nullptr));
    }

    bool waitForEvents(size_t count) {
        return runUntil([&] { return events.size() >= count; });
    }

    am_device* waitForArrival() {
        const size_t before = events.size();
        runUntil(
            [&] { return !events.empty() && events.back().message == kAMDeviceMessageConnected; });
        EXPECT_FALSE(events.empty()) << "no phone arrived; events before: " << before;
        return events.empty() ? nullptr : events.back().device;
    }

    am_device_notification* handle = nullptr;
    std::vector<DeviceEvent> events;
    std::vector<std::thread::id> threads;
    std::function<void(const am_device_notification_info&)> onEvent;

private:
    static Watcher*& current() {
        static Watcher* watcher = nullptr;
        return watcher;
    }

    static void heard(am_device_notification_info* info) {
        Watcher& self = *current();
        self.events.push_back({info->device, info->message});
        self.threads.push_back(std::this_thread::get_id());
        if (self.onEvent) {
            self.onEvent(*info);
        }
    }
};

/// One healthy phone that has arrived.
class ProviderTest : public virtualphone::testing::VirtualPhoneTest {
protected:
    void SetUp() override {
        VirtualPhoneTest::SetUp();
        device = watcher.waitForArrival();
    }

    void TearDown() override { md.AMDeviceSetCallTimeout(0); }

    /// Connected, trusted, with a session.
    void openSession() {
        ASSERT_EQ(md.AMDeviceConnect(device), 0);
        ASSERT_NE(md.AMDeviceIsPaired(device), 0);
        ASSERT_EQ(md.AMDeviceValidatePairing(device), 0);
        ASSERT_EQ(md.AMDeviceStartSession(device), 0);
    }

    am_service* startService(const char* name) {
        const auto text =
            cf::adopt(CFStringCreateWithCString(nullptr, name, kCFStringEncodingUTF8));
        am_service* service = nullptr;
        EXPECT_EQ(md.AMDeviceStartService(device, text.get(), &service, nullptr), 0);
        return service;
    }

    /// A file-service connection, made the way that the library makes it.
    afc_connection* openFiles() {
        openSession();
        am_service* service = startService("com.apple.afc");
        EXPECT_EQ(md.AMDeviceStopSession(device), 0);
        afc_connection* connection = nullptr;
        EXPECT_EQ(md.AFCConnectionOpen(service, 0, &connection), 0);
        return connection;
    }

    /// A notification proxy.
    am_service* openProxy() {
        openSession();
        am_service* proxy = startService("com.apple.mobile.notification_proxy");
        EXPECT_EQ(md.AMDeviceStopSession(device), 0);
        return proxy;
    }

    afc_file_ref openFile(afc_connection* connection, const char* path, uint64_t mode) {
        afc_file_ref file = 0;
        EXPECT_EQ(md.AFCFileRefOpen(connection, path, mode, &file), 0) << path;
        return file;
    }

    std::vector<std::string> requests() {
        std::vector<std::string> names;
        for (const auto& entry : log().entries()) {
            names.push_back(entry.service + "/" + entry.request);
        }
        return names;
    }

    const MobileDeviceTable& md = provider();
    Watcher<0> watcher;
    am_device* device = nullptr;
};

} // namespace krl::provider::testing
