#include "mobiledevice/provider/devices/CallsUnderWay.h"

#include "tests/mobiledevice/provider/SocketPair.h"

namespace krl::provider::testing {
namespace {

TEST(CallsUnderWay, AreCancelledAndThoseThatBeginAfterwardsAreNot) {
    CallsUnderWay calls;
    SocketPair before;
    calls.keep(before.channel(), calls.cancellations());
    EXPECT_FALSE(before.channel()->hasEnded());
    calls.cancel();
    EXPECT_EQ(before.channel()->endResult(), IoResult::Cancelled);
    SocketPair after;
    calls.keep(after.channel(), calls.cancellations());
    EXPECT_FALSE(after.channel()->hasEnded());
}

TEST(CallsUnderWay, ThatOpenAChannelOnlyAfterTheyWereCancelledAreCancelledAllTheSame) {
    CallsUnderWay calls;
    const uint64_t beginning = calls.cancellations();
    calls.cancel();
    SocketPair late;
    calls.keep(late.channel(), beginning);
    EXPECT_TRUE(late.channel()->hasEnded());
    EXPECT_EQ(late.channel()->endResult(), IoResult::Cancelled);
}

TEST(CallsUnderWay, EndForGood) {
    CallsUnderWay calls;
    SocketPair before;
    calls.keep(before.channel(), calls.cancellations());
    calls.end();
    EXPECT_EQ(before.channel()->endResult(), IoResult::Closed);
    SocketPair after;
    calls.keep(after.channel(), calls.cancellations());
    EXPECT_TRUE(after.channel()->hasEnded());
    EXPECT_EQ(after.channel()->endResult(), IoResult::Closed);
}

TEST(CallsUnderWay, KeepNoChannelAlive) {
    CallsUnderWay calls;
    std::weak_ptr<Channel> channel;
    {
        SocketPair pair;
        channel = pair.channel();
        calls.keep(pair.channel(), calls.cancellations());
    }
    EXPECT_TRUE(channel.expired());
    calls.cancel();
}

} // namespace
} // namespace krl::provider::testing
