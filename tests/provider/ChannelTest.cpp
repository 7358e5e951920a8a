#include "SocketPair.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/resource.h>

#include <array>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace krl::provider::testing {
namespace {

std::string received(Channel& channel, size_t size) {
    std::string bytes(size, '\0');
    const IoResult result = channel.receive(std::as_writable_bytes(std::span(bytes)));
    return result == IoResult::Done ? bytes : "(failed)";
}

IoResult send(Channel& channel, std::vector<std::string> texts) {
    std::vector<iovec> parts;
    for (std::string& text : texts) {
        parts.push_back({text.data(), text.size()});
    }
    return channel.send(parts);
}

std::string bytesOf(size_t size) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>(i * 31 + i / 251);
    }
    return bytes;
}

TEST(Channel, SendsAllPartsInOrder) {
    SocketPair pair;
    EXPECT_EQ(send(*pair.channel(), {"head", "", "er", "payload"}), IoResult::Done);
    EXPECT_EQ(pair.hear(13), "headerpayload");
}

TEST(Channel, SendsNothingWhenThereIsNothing) {
    SocketPair pair;
    EXPECT_EQ(send(*pair.channel(), {"", ""}), IoResult::Done);
    EXPECT_EQ(send(*pair.channel(), {}), IoResult::Done);
    EXPECT_FALSE(pair.hearsSomething(std::chrono::milliseconds(0)));
}

TEST(Channel, SendsMoreThanTheSocketHolds) {
    SocketPair pair;
    const std::string first = bytesOf(3'000'001);
    const std::string second = bytesOf(1'999'999);
    std::string heard;
    std::thread listener([&] { heard = pair.hear(first.size() + second.size()); });
    EXPECT_EQ(send(*pair.channel(), {first, second}), IoResult::Done);
    listener.join();
    EXPECT_TRUE(heard == first + second);
}

TEST(Channel, ReceivesExactlyWhatIsAskedFor) {
    SocketPair pair;
    pair.say("abcdefghij");
    EXPECT_EQ(received(*pair.channel(), 3), "abc");
    EXPECT_EQ(received(*pair.channel(), 0), "");
    EXPECT_EQ(received(*pair.channel(), 7), "defghij");
}

TEST(Channel, ReceivesBulkBehindASmallHeader) {
    SocketPair pair;
    const std::string bulk = bytesOf(1'000'000);
    std::thread speaker([&] { pair.say("header" + bulk + "trailer"); });
    EXPECT_EQ(received(*pair.channel(), 6), "header");
    EXPECT_TRUE(received(*pair.channel(), bulk.size()) == bulk);
    EXPECT_EQ(received(*pair.channel(), 7), "trailer");
    speaker.join();
}

TEST(Channel, ReceivesBytesThatComeOneByOne) {
    SocketPair pair;
    const std::string text = bytesOf(300);
    std::thread speaker([&] {
        for (const char byte : text) {
            pair.say(std::string(1, byte));
            // The next byte comes once this one has been taken.
            for (int unread = 1; unread > 0;) {
                ::ioctl(pair.peer(), TIOCOUTQ, &unread);
                std::this_thread::yield();
            }
        }
    });
    EXPECT_TRUE(received(*pair.channel(), text.size()) == text);
    speaker.join();
}

TEST(Channel, TheDeadlineBoundsSilenceNotTheWholeReply) {
    const ShortTimeout timeout(1000);
    SocketPair pair;
    const auto begin = std::chrono::steady_clock::now();
    std::thread speaker([&] {
        for (int i = 0; i < 15; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            pair.say("x");
        }
    });
    EXPECT_EQ(received(*pair.channel(), 15), std::string(15, 'x'));
    EXPECT_GT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1000));
    speaker.join();
}

TEST(Channel, SilenceFailsAReceive) {
    const ShortTimeout timeout(30);
    SocketPair pair;
    pair.say("abc");
    std::array<std::byte, 4> target{};
    EXPECT_EQ(pair.channel()->receive(target), IoResult::TimedOut);
}

TEST(Channel, APeerThatTakesNothingFailsASend) {
    const ShortTimeout timeout(30);
    SocketPair pair;
    EXPECT_EQ(send(*pair.channel(), {bytesOf(8'000'000)}), IoResult::TimedOut);
}

TEST(Channel, TheEndOfTheStreamFailsAReceive) {
    SocketPair pair;
    pair.say("abc");
    pair.endSaying();
    std::array<std::byte, 4> target{};
    EXPECT_EQ(pair.channel()->receive(target), IoResult::Closed);
}

TEST(Channel, SendingToAClosedPeerFailsWithoutASignal) {
    SocketPair pair;
    pair.closePeer();
    EXPECT_EQ(send(*pair.channel(), {"abc"}), IoResult::Closed);
}

TEST(Channel, ShutdownWakesABlockedReceive) {
    SocketPair pair;
    std::thread ender([&] {
        pair.hear(1); // the receive comes right after this byte
        pair.channel()->shutdown();
    });
    ASSERT_EQ(send(*pair.channel(), {"x"}), IoResult::Done);
    std::array<std::byte, 4> target{};
    EXPECT_EQ(pair.channel()->receive(target), IoResult::Closed);
    ender.join();
}

TEST(Channel, ShutdownWakesABlockedSend) {
    SocketPair pair;
    std::thread ender([&] {
        pair.hear(1);
        pair.channel()->shutdown();
    });
    EXPECT_EQ(send(*pair.channel(), {bytesOf(8'000'000)}), IoResult::Closed);
    ender.join();
}

TEST(Channel, NothingIsReadOrSentAfterShutdown) {
    SocketPair pair;
    pair.say("abcdef");
    EXPECT_EQ(received(*pair.channel(), 3), "abc");
    pair.channel()->shutdown();
    std::array<std::byte, 3> target{};
    EXPECT_EQ(pair.channel()->receive(target), IoResult::Closed);
    EXPECT_EQ(send(*pair.channel(), {"abc"}), IoResult::Closed);
}

TEST(Channel, WorksOnDescriptorsBeyond1024) {
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    if (limit.rlim_max < 2100) {
        GTEST_SKIP() << "only " << limit.rlim_max << " descriptors are allowed here";
    }
    const rlimit before = limit;
    limit.rlim_cur = 2100;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const UniqueDescriptor low(ends[0]);
    const UniqueDescriptor peer(ends[1]);
    UniqueDescriptor high(::fcntl(low.get(), F_DUPFD_CLOEXEC, 2000));
    ASSERT_GE(high.get(), 2000);
    {
        const ShortTimeout timeout(30);
        Channel channel(std::move(high));
        EXPECT_EQ(send(channel, {"ping"}), IoResult::Done);
        ASSERT_EQ(::send(peer.get(), "pong", 4, 0), 4);
        EXPECT_EQ(received(channel, 4), "pong");
        std::array<std::byte, 1> target{};
        EXPECT_EQ(channel.receive(target), IoResult::TimedOut);
    }
    ::setrlimit(RLIMIT_NOFILE, &before);
}

TEST(CallTimeout, ZeroRestoresTheDefaultOfTenSeconds) {
    EXPECT_EQ(callTimeout(), std::chrono::seconds(10));
    setCallTimeout(200);
    EXPECT_EQ(callTimeout(), std::chrono::milliseconds(200));
    setCallTimeout(0);
    EXPECT_EQ(callTimeout(), std::chrono::seconds(10));
    setCallTimeout(UINT32_MAX);
    EXPECT_EQ(callTimeout(), std::chrono::milliseconds(UINT32_MAX));
    setCallTimeout(0);
}

} // namespace
} // namespace krl::provider::testing
