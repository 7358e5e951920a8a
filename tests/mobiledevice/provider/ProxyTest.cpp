// The notification proxy.

#include "tests/mobiledevice/provider/ProviderFixture.h"

namespace krl::provider::testing {
namespace {

using virtualphone::LogEntry;
using virtualphone::parseFault;

class Proxy : public ProviderTest {
protected:
    std::vector<std::string> proxyRequests() {
        std::vector<std::string> names;
        for (const LogEntry& entry : log().entries()) {
            if (entry.service == "notification_proxy") {
                names.push_back(entry.request + " " + entry.name);
            }
        }
        return names;
    }
};

TEST_F(Proxy, PostsInOrderAndDiesAfterItHasReadEverything) {
    am_service* proxy = openProxy();
    EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("first"), nullptr), 0);
    EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("second"), nullptr), 0);
    EXPECT_EQ(md.AMDShutdownNotificationProxy(proxy), 0);
    EXPECT_EQ(proxyRequests(), (std::vector<std::string>{"PostNotification first",
                                                         "PostNotification second", "Shutdown "}));
}

TEST_F(Proxy, OutlivesSessionAndConnection) {
    am_service* proxy = openProxy();
    EXPECT_EQ(md.AMDeviceDisconnect(device), 0);
    EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("x"), nullptr), 0);
    EXPECT_EQ(md.AMDShutdownNotificationProxy(proxy), 0);
}

TEST_F(Proxy, IsConnectedOnceByTheFirstPost) {
    am_service* proxy = openProxy();
    EXPECT_EQ(md.AMDeviceDisconnect(device), 0);
    ASSERT_TRUE(bus().waitForConnections(1)); // the listener
    EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("x"), nullptr), 0);
    EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("y"), nullptr), 0);
    EXPECT_EQ(bus().connectionCount(), 2u);
    EXPECT_EQ(md.AMDShutdownNotificationProxy(proxy), 0);
    EXPECT_TRUE(bus().waitForConnections(1));
}

TEST_F(Proxy, ThatWasNeverSpokenToHasNothingToConfirm) {
    am_service* proxy = openProxy();
    log().clear();
    EXPECT_EQ(md.AMDShutdownNotificationProxy(proxy), 0);
    EXPECT_TRUE(log().entries().empty());
}

TEST_F(Proxy, IsStaleAfterItsShutdown) {
    am_service* proxy = openProxy();
    EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("x"), nullptr), 0);
    EXPECT_EQ(md.AMDShutdownNotificationProxy(proxy), 0);
    EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("x"), nullptr), kAMDInvalidHandle);
    EXPECT_EQ(md.AMDShutdownNotificationProxy(proxy), kAMDInvalidHandle);
    afc_connection* files = nullptr;
    EXPECT_EQ(md.AFCConnectionOpen(proxy, 0, &files), kAFCNotConnected);
}

TEST_F(Proxy, IsStaleAlsoAfterAShutdownThatFailed) {
    const std::pair<const char*, int32_t> failures[] = {
        {"drop", kAMDNotConnected},
        {"silent", kAMDTimedOut},
        {"drop-unanswered", kAMDNotConnected},
        {"cut", kAMDNotConnected},
        {"stall", kAMDTimedOut},
        {"short", kAMDBadReply},
        {"long", kAMDBadReply},
        {"garbled", kAMDBadReply},
        {"tiny-length", kAMDBadReply},
        {"huge-length", kAMDBadReply},
    };
    for (const auto& [action, status] : failures) {
        SCOPED_TRACE(action);
        am_service* proxy = openProxy();
        EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("x"), nullptr), 0);
        phone().faults().add(parseFault("notification_proxy/Shutdown=" + std::string(action)));
        md.AMDeviceSetCallTimeout(status == kAMDTimedOut ? 50 : 0);
        EXPECT_EQ(md.AMDShutdownNotificationProxy(proxy), status);
        EXPECT_EQ(md.AMDShutdownNotificationProxy(proxy), kAMDInvalidHandle);
        md.AMDeviceSetCallTimeout(0);
    }
}

TEST_F(Proxy, OnceSpokenToIsNoFileConnection) {
    am_service* proxy = openProxy();
    EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("x"), nullptr), 0);
    afc_connection* files = nullptr;
    EXPECT_EQ(md.AFCConnectionOpen(proxy, 0, &files), kAFCNotConnected);
    EXPECT_EQ(files, nullptr);
}

TEST_F(Proxy, ThatCannotBeConnectedIsAStatus) {
    am_service* proxy = openProxy();
    bus().faults().add(parseFault("usbmux/Connect=status:3"));
    EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("x"), nullptr), kAMDNotConnected);
    EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("x"), nullptr), kAMDNotConnected);
    EXPECT_EQ(md.AMDShutdownNotificationProxy(proxy), kAMDNotConnected);
}

TEST_F(Proxy, NamesNeedToBeThere) {
    am_service* proxy = openProxy();
    EXPECT_EQ(md.AMDPostNotification(proxy, nullptr, nullptr), kAMDInvalidHandle);
}

TEST_F(Proxy, UnpluggedWhileItWaitsFailsAtOnce) {
    am_service* proxy = openProxy();
    EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("x"), nullptr), 0);
    phone().faults().add(parseFault("notification_proxy/Shutdown=silent"));
    std::thread puller([this] {
        log().waitFor([](const LogEntry& entry) { return entry.request == "Shutdown"; });
        bus().unplug(id());
    });
    // Before the deadline of ten seconds, whose status would be another one.
    EXPECT_EQ(md.AMDShutdownNotificationProxy(proxy), kAMDNotConnected);
    puller.join();
}

} // namespace
} // namespace krl::provider::testing
