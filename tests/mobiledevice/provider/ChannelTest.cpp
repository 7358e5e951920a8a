#include "tests/mobiledevice/provider/Descriptors.h"
#include "tests/mobiledevice/provider/SocketPair.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <utility>
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

/// More than any socket holds, on its way in parts.
class Bulk {
public:
    explicit Bulk(Channel& channel) : channel_(channel) {}

    IoResult sendUntilHeard() { return channel_.sendUntilHeard(rest_, hasGone_); }

    IoResult sendTheRest() { return channel_.send(rest_); }

    bool hasGone() const { return hasGone_; }

    const std::string& text() const { return text_; }

private:
    std::string text_ = bytesOf(8'000'000);
    std::array<iovec, 2> parts_{iovec{text_.data(), 100}, {text_.data() + 100, text_.size() - 100}};
    std::span<iovec> rest_ = parts_;
    bool hasGone_ = true;
    Channel& channel_;
};

/// What the peer makes of the text.
using Reads = std::string (*)(std::string);

void expectToStopForNews(SocketPair& pair, Reads encode) {
    Bulk bulk(*pair.channel());
    pair.say(encode("news"));
    EXPECT_EQ(bulk.sendUntilHeard(), IoResult::Done);
    EXPECT_FALSE(bulk.hasGone());
    EXPECT_EQ(pair.channel()->heldBytes(), 4u);
    pair.say(encode("more"));
    EXPECT_EQ(bulk.sendUntilHeard(), IoResult::Done);
    EXPECT_EQ(pair.channel()->heldBytes(), 8u);
    EXPECT_EQ(received(*pair.channel(), 8), "newsmore");

    std::string heard;
    std::thread listener([&] { heard = pair.hear(bulk.text().size()); });
    EXPECT_EQ(bulk.sendTheRest(), IoResult::Done);
    listener.join();
    EXPECT_TRUE(heard == encode(bulk.text()));
}

TEST(Channel, StopsSendingForNewsAndGoesOnWithTheRest) {
    SocketPair pair;
    expectToStopForNews(pair, [](std::string text) { return text; });
}

TEST(Channel, StopsForNoNewsWhileTheSocketTakesEverything) {
    SocketPair pair;
    pair.say("news");
    std::string text = "text";
    std::array<iovec, 1> parts{iovec{text.data(), text.size()}};
    std::span<iovec> rest = parts;
    bool hasGone = false;
    EXPECT_EQ(pair.channel()->sendUntilHeard(rest, hasGone), IoResult::Done);
    EXPECT_TRUE(hasGone);
    EXPECT_EQ(pair.hear(4), "text");
    EXPECT_EQ(received(*pair.channel(), 4), "news");
}

TEST(Channel, SilenceAndTheEndFailWhatIsSentUntilHeardToo) {
    const ShortTimeout timeout(30);
    SocketPair pair;
    Bulk bulk(*pair.channel());
    EXPECT_EQ(bulk.sendUntilHeard(), IoResult::TimedOut);
    pair.endSaying();
    EXPECT_EQ(bulk.sendUntilHeard(), IoResult::Closed);
}

TEST(Channel, NewsThatNobodyTakesDoNotGrow) {
    SocketPair pair;
    Bulk bulk(*pair.channel());
    pair.say(bytesOf(20'000));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(bulk.sendUntilHeard(), IoResult::Done);
        EXPECT_FALSE(bulk.hasGone());
        EXPECT_EQ(pair.channel()->heldBytes(), ReceiveBuffer::kCapacity);
    }
    EXPECT_TRUE(received(*pair.channel(), 20'000) == bytesOf(20'000));
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

/// Says a byte again and again for as long as it lives.
class Drip {
public:
    explicit Drip(const Peer& peer)
        : thread_([this, &peer] {
              while (!isOver_) {
                  peer.say("x");
                  std::this_thread::sleep_for(std::chrono::milliseconds(10));
              }
          }) {}

    Drip(const Drip&) = delete;
    Drip& operator=(const Drip&) = delete;

    ~Drip() {
        isOver_ = true;
        thread_.join();
    }

private:
    std::atomic<bool> isOver_ = false;
    std::thread thread_;
};

TEST(Channel, AnExchangeEndsAsAWholeHoweverSteadilyItDrips) {
    const ShortTimeout timeout(200);
    SocketPair pair;
    const Drip drip(pair);
    pair.channel()->beginExchange();
    std::array<std::byte, 1000> target{};
    EXPECT_EQ(pair.channel()->receive(target), IoResult::TimedOut);
}

TEST(Channel, TheNextExchangeHasATimeOfItsOwn) {
    const ShortTimeout timeout(200);
    SocketPair pair;
    const Drip drip(pair);
    for (int i = 0; i < 4; ++i) {
        pair.channel()->beginExchange();
        EXPECT_EQ(received(*pair.channel(), 15), std::string(15, 'x'));
    }
}

TEST(Channel, AnExchangeThatMovesALotIsGivenTheTimeForIt) {
    const ShortTimeout timeout(500); // an exchange that moves nothing has twice that
    SocketPair pair;
    const std::string part(4096, 'x');
    std::thread speaker([&] {
        for (int i = 0; i < 16; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            pair.say(part);
        }
    });
    pair.channel()->beginExchange();
    EXPECT_TRUE(received(*pair.channel(), 16 * part.size()) == std::string(16 * part.size(), 'x'));
    speaker.join();
}

/// A handshake that is never content.
class EndlessHandshake final : public Encryption {
public:
    explicit EndlessHandshake(Channel& channel) : channel_(channel) {}

    Step handshake() override {
        std::byte one{};
        channel_.receiveNow(std::span(&one, 1));
        return Step::WantsToReceive;
    }

    Step send(std::span<const std::byte>, size_t&) override { return Step::Closed; }

    Step flush() override { return Step::Closed; }

    Step receive(std::span<std::byte>, size_t&) override { return Step::Closed; }

private:
    Channel& channel_;
};

TEST(Channel, AHandshakeEndsAsAWholeHoweverSteadilyItDrips) {
    const ShortTimeout timeout(200);
    SocketPair pair;
    const Drip drip(pair);
    EXPECT_EQ(pair.channel()->beginEncryption(std::make_unique<EndlessHandshake>(*pair.channel())),
              IoResult::TimedOut);
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
    const ManyDescriptors allowance;
    if (!allowance.areAllowed()) {
        GTEST_SKIP() << "so many descriptors are not allowed here";
    }
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
}

// ------------------------------------------------------------------ encryption

// Shifts every byte by one. Its handshake is a word each way, its end another.
class Shifted final : public Encryption {
public:
    explicit Shifted(Channel& channel) : channel_(channel) {}

    ~Shifted() override { channel_.sendNow(std::as_bytes(std::span(kEnd))); }

    Step handshake() override {
        channel_.sendNow(std::as_bytes(std::span(kHello).subspan(std::exchange(greeted_, 5))));
        std::array<std::byte, 5> answer{};
        size_t got = 0;
        const Step step = take(std::span(answer).first(5 - heard_), got);
        heard_ += got;
        return step != Step::Done || heard_ == 5 ? step : Step::WantsToReceive;
    }

    Step send(std::span<const std::byte> bytes, size_t& sent) override {
        for (const std::byte byte : bytes) {
            unsent_.push_back(static_cast<std::byte>(std::to_integer<int>(byte) + 1));
        }
        sent = bytes.size();
        return Step::Done;
    }

    Step flush() override {
        while (!unsent_.empty()) {
            const ssize_t count = channel_.sendNow(unsent_);
            if (count < 0) {
                return errno == EAGAIN ? Step::WantsToSend : Step::Closed;
            }
            unsent_.erase(unsent_.begin(), unsent_.begin() + count);
        }
        return Step::Done;
    }

    Step receive(std::span<std::byte> target, size_t& received) override {
        const Step step = take(target, received);
        for (std::byte& byte : target.first(step == Step::Done ? received : 0)) {
            byte = static_cast<std::byte>(std::to_integer<int>(byte) - 1);
        }
        return step;
    }

private:
    Step take(std::span<std::byte> target, size_t& received) {
        const ssize_t count = channel_.receiveNow(target);
        if (count <= 0) {
            return count < 0 && errno == EAGAIN ? Step::WantsToReceive : Step::Closed;
        }
        received = static_cast<size_t>(count);
        return Step::Done;
    }

    static constexpr std::array<char, 5> kHello = {'h', 'e', 'l', 'l', 'o'};
    static constexpr std::array<char, 3> kEnd = {'e', 'n', 'd'};

    Channel& channel_;
    size_t greeted_ = 0;
    size_t heard_ = 0;
    std::vector<std::byte> unsent_;
};

std::string shifted(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(c + 1);
    }
    return text;
}

class EncryptedChannel : public ::testing::Test {
protected:
    IoResult begin() { return channel.beginEncryption(std::make_unique<Shifted>(channel)); }

    void beginWell() {
        pair.say("HELLO");
        ASSERT_EQ(begin(), IoResult::Done);
        ASSERT_EQ(pair.hear(5), "hello");
    }

    // A TLS alert as the end of a stream is said with.
    const std::string alert = std::string("\x15\x03\x00\x00\x02\x01\x00", 7);

    SocketPair pair;
    Channel& channel = *pair.channel();
};

TEST_F(EncryptedChannel, CarriesEverythingEncryptedBothWays) {
    beginWell();
    EXPECT_EQ(send(channel, {"ab", "", "c"}), IoResult::Done);
    EXPECT_EQ(pair.hear(3), "bcd");
    pair.say(shifted("answer"));
    EXPECT_EQ(received(channel, 6), "answer");
}

TEST_F(EncryptedChannel, WaitsForAPeerThatIsSlowToTakeIt) {
    beginWell();
    const std::string bytes = bytesOf(3'000'001);
    std::string heard;
    std::thread listener([&] { heard = pair.hear(bytes.size()); });
    EXPECT_EQ(send(channel, {bytes}), IoResult::Done);
    listener.join();
    EXPECT_TRUE(heard == shifted(bytes));
}

TEST_F(EncryptedChannel, StopsSendingForNewsAndGoesOnWithTheRest) {
    beginWell();
    expectToStopForNews(pair, shifted);
}

TEST_F(EncryptedChannel, WhatWasNotTakenIsNotTakenForTheNextEncryptions) {
    beginWell();
    pair.say(shifted("farewell"));
    EXPECT_EQ(received(channel, 4), "fare");
    channel.endEncryption();
    EXPECT_EQ(pair.hear(3), "end");
    beginWell();
    pair.say(shifted("news"));
    EXPECT_EQ(received(channel, 4), "news");
}

TEST_F(EncryptedChannel, AHandshakeHasTheDeadlineToo) {
    const ShortTimeout timeout(30);
    EXPECT_EQ(begin(), IoResult::TimedOut);
    pair.say("HEL");
    EXPECT_EQ(begin(), IoResult::TimedOut);
}

TEST_F(EncryptedChannel, AHandshakeEndsWithTheStream) {
    pair.say("HEL");
    pair.endSaying();
    EXPECT_EQ(begin(), IoResult::Closed);
}

TEST_F(EncryptedChannel, ShutdownWakesAHandshake) {
    std::thread ender([&] {
        pair.hear(5); // the handshake has begun
        channel.shutdown();
    });
    EXPECT_EQ(begin(), IoResult::Closed);
    ender.join();
}

TEST_F(EncryptedChannel, IsInClearAgainAfterItsEnd) {
    beginWell();
    channel.endEncryption();
    EXPECT_EQ(pair.hear(3), "end");
    EXPECT_EQ(send(channel, {"clear"}), IoResult::Done);
    EXPECT_EQ(pair.hear(5), "clear");
    pair.say(std::string("\0\0clear", 7));
    EXPECT_EQ(received(channel, 7), std::string("\0\0clear", 7));
}

TEST_F(EncryptedChannel, PassesOverWhatThePeerSaysAboutTheEnd) {
    beginWell();
    channel.endEncryption();
    pair.say(alert + alert + std::string("\0first", 6) + alert);
    EXPECT_EQ(received(channel, 6), std::string("\0first", 6));
    EXPECT_EQ(received(channel, 7), alert) << "only what stands before the first message";
}

TEST_F(EncryptedChannel, AFarewellMayComeInPiecesOrBreakOff) {
    beginWell();
    channel.endEncryption();
    std::thread talker([&] {
        for (const char c : alert + std::string("\0x", 2)) {
            pair.say(std::string(1, c));
        }
    });
    EXPECT_EQ(received(channel, 2), std::string("\0x", 2));
    talker.join();

    SocketPair other;
    other.say("HELLO");
    ASSERT_EQ(other.channel()->beginEncryption(std::make_unique<Shifted>(*other.channel())),
              IoResult::Done);
    other.channel()->endEncryption();
    other.say(alert.substr(0, 3));
    other.endSaying();
    EXPECT_EQ(received(*other.channel(), 1), "(failed)");
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
