// Clients that send broken bytes: the connection is closed cleanly and the phone serves the next
// one.

#include "tests/plist/BinaryList.h"
#include "tests/support/VirtualPhoneFixture.h"
#include "tests/virtualphone/WireClient.h"

#include <sys/socket.h>

#include <functional>
#include <memory>
#include <random>

namespace virtualphone::testing {
namespace {

class HostileClient : public VirtualPhoneTest {
protected:
    /// The phone is as good as before, and nothing of the attack is left.
    void TearDown() override {
        EXPECT_TRUE(bus().waitForConnections(0));
        AfcWire afc(bus(), id());
        EXPECT_TRUE(afc.ask(afc::kMakeDirectory, pathArgument("/alive")).isStatus(afc::kSuccess));
    }

    WireSocket proxy() {
        return connectService(bus(), id(), "com.apple.mobile.notification_proxy");
    }

    static std::string afcHeader(uint64_t entire, uint64_t inThis, uint64_t operation,
                                 std::string_view magic = afc::kMagic) {
        return std::string(magic) + u64(entire) + u64(inThis) + u64(1) + u64(operation);
    }
};

TEST_F(HostileClient, MuxLengthsThatCannotBe) {
    for (const uint32_t length : {0U, 1U, 15U, 16U + 64U * 1024U + 1U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        const WireSocket socket(bus());
        socket.send(u32(length) + u32(1) + u32(8) + u32(1));
        EXPECT_TRUE(socket.isClosed()) << length;
    }
}

TEST_F(HostileClient, MuxMessagesThatEndEarly) {
    const std::string message =
        muxMessage(document(dictionary({{"MessageType", text("ListDevices")}})));
    for (const size_t length :
         {size_t{0}, size_t{1}, size_t{15}, size_t{16}, size_t{17}, message.size() - 1}) {
        const WireSocket socket(bus());
        socket.send(message.substr(0, length));
        shutdown(socket.descriptor(), SHUT_WR);
        EXPECT_TRUE(socket.isClosed()) << length;
    }
}

TEST_F(HostileClient, ListsOfTheWrongTypesThroughout) {
    const std::string wrongs[] = {
        "<array/>",
        "<string>x</string>",
        "<integer>1</integer>",
        "<true/>",
        "<dict/>",
        "<dict><key>MessageType</key><dict/></dict>",
        "<dict><key>MessageType</key><string>Connect</string><key>DeviceID</key><string>x</string>"
        "<key>PortNumber</key><array/></dict>",
        "<dict><key>MessageType</key><string>Connect</string><key>DeviceID</key>"
        "<integer>18446744073709551615</integer><key>PortNumber</key><integer>99999999</integer>"
        "</dict>",
        "<dict><key>MessageType</key><string>SavePairRecord</string><key>PairRecordID</key>"
        "<string>x</string><key>PairRecordData</key><string>no data</string></dict>",
    };
    for (const std::string& wrong : wrongs) {
        const WireSocket socket(bus());
        socket.send(muxMessage(document(wrong)));
        const std::optional<MuxReply> reply = receiveMux(socket);
        ASSERT_TRUE(reply) << wrong;
        EXPECT_NE(reply->result(), 0U) << wrong;
    }
}

TEST_F(HostileClient, FramedLengthsThatCannotBe) {
    const std::string lengths[] = {std::string(4, '\0'), "\x00\x01\x00\x01", "\x7f\xff\xff\xff",
                                   "\xff\xff\xff\xff"};
    const std::string withNul("\x00\x01\x00\x01", 4);
    for (const std::string& length : {lengths[0], withNul, lengths[2], lengths[3]}) {
        const WireSocket lockdown = connectLockdown(bus(), id());
        lockdown.send(length + "xxxx");
        EXPECT_TRUE(lockdown.isClosed());
        const WireSocket notifications = proxy();
        notifications.send(length + "xxxx");
        EXPECT_TRUE(notifications.isClosed());
    }
}

TEST_F(HostileClient, FramesThatAreNoDictionaries) {
    const std::string bodies[] = {"x",
                                  "<?xml",
                                  document("<array/>"),
                                  document("<string>x</string>"),
                                  document("<dict><key>Request</key>"),
                                  "bplist00",
                                  std::string("bplist00") + std::string(40, '\xff')};
    for (const std::string& body : bodies) {
        const WireSocket lockdown = connectLockdown(bus(), id());
        lockdown.send(framedMessage(body));
        EXPECT_TRUE(lockdown.isClosed()) << body;
        const WireSocket notifications = proxy();
        notifications.send(framedMessage(body));
        EXPECT_TRUE(notifications.isClosed()) << body;
    }
}

TEST_F(HostileClient, ListsNestedAsDeepAsTheLengthAllows) {
    std::string deep;
    while (deep.size() < 60'000) {
        deep += "<array>";
    }
    const WireSocket lockdown = connectLockdown(bus(), id());
    lockdown.send(framedMessage(document(deep)));
    EXPECT_TRUE(lockdown.isClosed());

    // A binary list of arrays, each holding the next: two bytes an object and two its offset.
    constexpr size_t kObjects = 12'000;
    std::string binary = "bplist00";
    std::string offsets;
    const auto bigEndian16 = [](size_t value) {
        return std::string{static_cast<char>(value >> 8), static_cast<char>(value)};
    };
    for (size_t i = 0; i < kObjects; ++i) {
        offsets += bigEndian16(binary.size());
        binary += '\xa1' + bigEndian16(i + 1);
    }
    offsets += bigEndian16(binary.size());
    binary += '\xa0';
    const size_t table = binary.size();
    binary += offsets + std::string(6, '\0') + "\x02\x02" + std::string(6, '\0') +
              bigEndian16(kObjects + 1) + std::string(8, '\0') + std::string(6, '\0') +
              bigEndian16(table);
    ASSERT_LT(binary.size(), 64U * 1024U);
    const WireSocket other = connectLockdown(bus(), id());
    other.send(framedMessage(binary));
    EXPECT_TRUE(other.isClosed());
}

TEST_F(HostileClient, ListsOfFewBytesThatStandForMillionsOfValues) {
    const std::string bomb = krl::plist::testing::BinaryList::bomb(24, 2);
    const WireSocket lockdown = connectLockdown(bus(), id());
    lockdown.send(framedMessage(bomb));
    EXPECT_TRUE(lockdown.isClosed());
    const WireSocket mux(bus());
    mux.send(muxMessage(bomb));
    const std::optional<MuxReply> reply = receiveMux(mux);
    ASSERT_TRUE(reply);
    EXPECT_NE(reply->result(), 0U);
}

TEST_F(HostileClient, FileServiceHeadersThatCannotBe) {
    const std::string headers[] = {
        afcHeader(40, 40, afc::kDeviceInfo, "NOTMAGIC"),
        afcHeader(39, 39, afc::kDeviceInfo),
        afcHeader(0, 0, afc::kDeviceInfo),
        afcHeader(40, 48, afc::kDeviceInfo),
        afcHeader(UINT64_MAX, UINT64_MAX, afc::kDeviceInfo),
        afcHeader(UINT64_MAX, 40 + 64 * 1024 + 1, afc::kOpen),
    };
    for (const std::string& header : headers) {
        AfcWire afc(bus(), id());
        afc.socket.send(header);
        const std::optional<AfcReply> reply = afc.receive();
        ASSERT_TRUE(reply);
        EXPECT_TRUE(reply->isStatus(afc::kBadHeader));
        EXPECT_TRUE(afc.socket.isClosed());
    }
}

TEST_F(HostileClient, RequestsBeforeAHeaderThatCannotBeAreAnswered) {
    AfcWire afc(bus(), id());
    const std::string good = afc.packet(afc::kMakeDirectory, pathArgument("/a"));
    afc.socket.send(good + afcHeader(39, 39, afc::kDeviceInfo) + "and more");
    for (const uint64_t status : {afc::kSuccess, afc::kBadHeader}) {
        const std::optional<AfcReply> reply = afc.receive();
        ASSERT_TRUE(reply);
        EXPECT_TRUE(reply->isStatus(status));
    }
    EXPECT_TRUE(afc.socket.isClosed());
}

TEST_F(HostileClient, AWriteThatNeverEndsTakesNoMemory) {
    AfcWire afc(bus(), id());
    const uint64_t file = afc.open("/f", afc::kModeWrite);
    afc.socket.send(afcHeader(UINT64_MAX, 48, afc::kWrite) + u64(file));
    const std::string piece(1'000'000, 'x');
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(afc.socket.send(piece));
    }
    afc.socket.close();
    EXPECT_TRUE(log().waitFor([](const LogEntry& entry) { return entry.fault == "interrupted"; }));
    EXPECT_EQ(contents("/f").size(), 20U * 1'000'000U);
}

TEST_F(HostileClient, PayloadWhereNoneBelongsIsPassedOver) {
    AfcWire afc(bus(), id());
    EXPECT_TRUE(afc.ask(afc::kMakeDirectory, pathArgument("/d"), std::string(500'000, 'x'))
                    .isStatus(afc::kSuccess));
    EXPECT_TRUE(afc.ask(afc::kMakeDirectory, pathArgument("/d")).isStatus(afc::kObjectExists));
}

TEST_F(HostileClient, PacketsCutAnywhere) {
    AfcWire whole(bus(), id());
    const std::string packet =
        whole.packet(afc::kOpen, u64(afc::kModeReadWrite) + pathArgument("/file"));
    whole.socket.close();
    for (size_t length = 0; length < packet.size(); length += 7) {
        const AfcWire afc(bus(), id());
        afc.socket.send(packet.substr(0, length));
        shutdown(afc.socket.descriptor(), SHUT_WR);
        EXPECT_TRUE(afc.socket.isClosed());
    }
    EXPECT_FALSE(exists("/file"));
}

TEST_F(HostileClient, ClientsThatLeaveBeforeTheirAnswer) {
    for (int i = 0; i < 50; ++i) {
        AfcWire afc(bus(), id());
        afc.socket.send(afc.packet(afc::kReadDirectory, pathArgument("/")));
        afc.socket.close();
        const WireSocket lockdown = connectLockdown(bus(), id());
        tell(lockdown, {{"Request", text("GetValue")}});
    }
}

TEST_F(HostileClient, RandomBytes) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto noise = [&](size_t size) {
        std::string bytes(size, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(random());
        }
        return bytes;
    };
    const auto attack = [&](const WireSocket& socket, const std::string& bytes) {
        socket.send(bytes);
        shutdown(socket.descriptor(), SHUT_WR);
        while (!socket.receive(4096).empty()) {
        }
    };
    for (int i = 0; i < 100; ++i) {
        attack(WireSocket(bus()), noise(random() % 300));
        attack(connectLockdown(bus(), id()), framedMessage(noise(1 + random() % 300)));
        AfcWire afc(bus(), id());
        const std::string packet = afc.packet(random() % 0x30, noise(random() % 100));
        attack(afc.socket, packet + noise(random() % 100));
    }
}

} // namespace
} // namespace virtualphone::testing
