// The notification proxy, byte by byte.

#include "tests/support/VirtualPhoneFixture.h"
#include "tests/virtualphone/WireClient.h"

namespace virtualphone::testing {
namespace {

using nlohmann::json;

constexpr const char* kStart = "com.apple.itunes-mobdev.syncWillStart";
constexpr const char* kCancel = "com.apple.itunes-client.syncCancelRequest";

class NotificationProxyWire : public VirtualPhoneTest {
protected:
    WireSocket connect() {
        return connectService(bus(), id(), "com.apple.mobile.notification_proxy");
    }

    void observe(const WireSocket& socket, const std::string& name) {
        tell(socket, {{"Command", text("ObserveNotification")}, {"Name", text(name)}});
        ASSERT_TRUE(log().waitFor([&](const LogEntry& entry) {
            return entry.request == "ObserveNotification" && entry.name == name;
        }));
    }

    // Posting has no answer; this one proves that what was sent before has been read.
    json shutDown(const WireSocket& socket) { return ask(socket, {{"Command", text("Shutdown")}}); }
};

json relayed(const std::string& name) {
    return {{"Command", "RelayNotification"}, {"Name", name}};
}

TEST_F(NotificationProxyWire, ShutdownIsAnsweredWithProxyDeathThenThePhoneCloses) {
    const WireSocket socket = connect();
    EXPECT_EQ(shutDown(socket), (json{{"Command", "ProxyDeath"}}));
    EXPECT_TRUE(socket.isClosed());
}

TEST_F(NotificationProxyWire, PostsAreReadInOrderAndNotAnswered) {
    const WireSocket socket = connect();
    for (const char* const name : {"one", "two", "three"}) {
        tell(socket, {{"Command", text("PostNotification")}, {"Name", text(name)}});
    }
    EXPECT_EQ(shutDown(socket).at("Command"), "ProxyDeath") << "the first answer there is";
    const auto posts =
        log().entries([](const LogEntry& entry) { return entry.request == "PostNotification"; });
    ASSERT_EQ(posts.size(), 3U);
    EXPECT_EQ(posts[0].name, "one");
    EXPECT_EQ(posts[1].name, "two");
    EXPECT_EQ(posts[2].name, "three");
    EXPECT_EQ(posts[0].service, "notification_proxy");
}

TEST_F(NotificationProxyWire, ObservedNamesAreRelayedWhoeverPosts) {
    const WireSocket observer = connect();
    const WireSocket poster = connect();
    observe(observer, kCancel);
    tell(poster, {{"Command", text("PostNotification")}, {"Name", text(kStart)}});
    tell(poster, {{"Command", text("PostNotification")}, {"Name", text(kCancel)}});
    EXPECT_EQ(parsedList(*receiveFramed(observer)), relayed(kCancel));
    tell(observer, {{"Command", text("PostNotification")}, {"Name", text(kCancel)}});
    EXPECT_EQ(parsedList(*receiveFramed(observer)), relayed(kCancel));
    phone().post(kCancel);
    EXPECT_EQ(parsedList(*receiveFramed(observer)), relayed(kCancel));
    EXPECT_EQ(shutDown(observer).at("Command"), "ProxyDeath") << "and nothing else was relayed";
}

TEST_F(NotificationProxyWire, ObservingTwiceIsObservingOnce) {
    const WireSocket observer = connect();
    observe(observer, kCancel);
    observe(observer, kCancel);
    tell(observer, {{"Command", text("PostNotification")}, {"Name", text(kCancel)}});
    EXPECT_EQ(parsedList(*receiveFramed(observer)), relayed(kCancel));
    EXPECT_EQ(shutDown(observer).at("Command"), "ProxyDeath");
}

TEST_F(NotificationProxyWire, AnUnknownCommandIsPassedOver) {
    const WireSocket socket = connect();
    tell(socket, {{"Command", text("Nonsense")}});
    EXPECT_EQ(shutDown(socket).at("Command"), "ProxyDeath");
}

TEST_F(NotificationProxyWire, AnObserverThatNeverReadsDoesNotHoldThePhoneUp) {
    const WireSocket observer = connect();
    const WireSocket poster = connect();
    observe(observer, kCancel);
    const std::string post = framedMessage(
        document(dictionary({{"Command", text("PostNotification")}, {"Name", text(kCancel)}})));
    for (int i = 0; i < 5000; ++i) {
        ASSERT_TRUE(poster.send(post));
    }
    EXPECT_EQ(shutDown(poster).at("Command"), "ProxyDeath");
}

TEST_F(NotificationProxyWire, NoNewsForObserversThatAreGone) {
    {
        const WireSocket observer = connect();
        observe(observer, kCancel);
    }
    ASSERT_TRUE(bus().waitForConnections(0));
    phone().post(kCancel);
}

} // namespace
} // namespace virtualphone::testing
