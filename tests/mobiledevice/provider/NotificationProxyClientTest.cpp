#include "mobiledevice/provider/services/NotificationProxyClient.h"

#include "tests/mobiledevice/provider/PlistMessages.h"
#include "tests/mobiledevice/provider/SocketPair.h"

#include <MobileDevice/MobileDevice.h>

namespace krl::provider::testing {
namespace {

class NotificationProxy : public ::testing::Test {
protected:
    SocketPair pair;
    NotificationProxyClient client{pair.channel()};
};

TEST_F(NotificationProxy, PostingIsOneMessageWithoutAnAnswer) {
    EXPECT_EQ(client.post("com.apple.itunes-mobdev.syncWillStart"), 0);
    const PlistRef command = heardMessage(pair);
    EXPECT_EQ(stringAt(command, "Command"), "PostNotification");
    EXPECT_EQ(stringAt(command, "Name"), "com.apple.itunes-mobdev.syncWillStart");
    EXPECT_FALSE(pair.hearsSomething(std::chrono::milliseconds(0)));
}

TEST_F(NotificationProxy, PostingToAPhoneThatIsGoneFails) {
    pair.closePeer();
    EXPECT_EQ(client.post("x"), kAMDNotConnected);
}

TEST_F(NotificationProxy, ShutdownWaitsForTheProxysDeath) {
    pair.say(message({{"Command", xmlString("ProxyDeath")}}));
    EXPECT_EQ(client.shutdown(), 0);
    EXPECT_EQ(stringAt(heardMessage(pair), "Command"), "Shutdown");
}

TEST_F(NotificationProxy, ShutdownFailsWithoutTheProxysDeath) {
    for (const std::string& answer :
         {message({{"Command", xmlString("RelayNotification")}, {"Name", xmlString("x")}}),
          message({{"Command", "<integer>1</integer>"}}), message({}), framed("ProxyDeath")}) {
        SocketPair other;
        NotificationProxyClient otherClient(other.channel());
        other.say(answer);
        EXPECT_EQ(otherClient.shutdown(), kAMDBadReply);
        EXPECT_EQ(otherClient.post("x"), kAMDNotConnected);
    }
}

TEST_F(NotificationProxy, ShutdownFailsWhenTheConnectionEndsInsteadAtAnyByte) {
    const std::string death = message({{"Command", xmlString("ProxyDeath")}});
    for (size_t length = 0; length < death.size(); ++length) {
        SCOPED_TRACE(length);
        SocketPair cut;
        NotificationProxyClient cutClient(cut.channel());
        cut.say(death.substr(0, length));
        cut.endSaying();
        EXPECT_EQ(cutClient.shutdown(), kAMDNotConnected);
    }
}

TEST_F(NotificationProxy, ShutdownFailsWhenThePhoneIsSilent) {
    const ShortTimeout timeout(30);
    EXPECT_EQ(client.shutdown(), kAMDTimedOut);
}

} // namespace
} // namespace krl::provider::testing
