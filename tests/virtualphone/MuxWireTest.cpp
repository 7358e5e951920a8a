// The mux socket, byte by byte.

#include "tests/support/VirtualPhoneFixture.h"
#include "tests/virtualphone/WireClient.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>

#include <cerrno>

namespace virtualphone::testing {
namespace {

using MuxWire = VirtualPhoneTest;

constexpr uint32_t kTag = 77;

TEST_F(MuxWire, AnswersRepeatTheTagInVersionOneLists) {
    const WireSocket socket(bus());
    const MuxReply reply = askMux(socket, {{"MessageType", text("ListDevices")}}, kTag);
    EXPECT_EQ(reply.version, 1U);
    EXPECT_EQ(reply.message, 8U);
    EXPECT_EQ(reply.tag, kTag);
}

TEST_F(MuxWire, ListDevicesDescribesEachPhoneAndBearsNoMessageType) {
    PhoneOptions pod{.deviceClass = "iPod"};
    const uint32_t podId = bus().plug(makePhone("pod", pod));
    const WireSocket socket(bus());
    const MuxReply reply = askMux(socket, {{"MessageType", text("ListDevices")}});
    EXPECT_FALSE(reply.list.contains("MessageType"));
    const nlohmann::json& list = reply.list.at("DeviceList");
    ASSERT_EQ(list.size(), 2U);
    const nlohmann::json& first = list[0];
    EXPECT_EQ(first.at("MessageType"), "Attached");
    EXPECT_EQ(first.at("DeviceID"), id());
    EXPECT_EQ(first.at("Properties").at("ConnectionType"), "USB");
    EXPECT_EQ(first.at("Properties").at("DeviceID"), id());
    EXPECT_EQ(first.at("Properties").at("SerialNumber"), phone().udid());
    EXPECT_EQ(first.at("Properties").at("ProductID"), 0x1290U);
    EXPECT_TRUE(first.at("Properties").contains("LocationID"));
    EXPECT_TRUE(first.at("Properties").contains("ConnectionSpeed"));
    EXPECT_EQ(list[1].at("DeviceID"), podId);
    EXPECT_EQ(list[1].at("Properties").at("ProductID"), 0x1291U);
}

TEST_F(MuxWire, OneConnectionAnswersManyQuestions) {
    const WireSocket socket(bus());
    EXPECT_TRUE(askMux(socket, {{"MessageType", text("ReadBUID")}}).list.contains("BUID"));
    EXPECT_TRUE(askMux(socket, {{"MessageType", text("ListDevices")}}).list.contains("DeviceList"));
    EXPECT_EQ(askMux(socket, {{"MessageType", text("ReadBUID")}}).list.at("BUID"),
              bus().systemBuid());
}

TEST_F(MuxWire, DeviceIdsAreNewEachTimeAndNeverZero) {
    const uint32_t before = id();
    EXPECT_NE(before, 0U);
    replug();
    EXPECT_NE(id(), before);
    EXPECT_NE(id(), 0U);
    EXPECT_EQ(bus().deviceId(phone()), id());
}

TEST_F(MuxWire, ConnectTakesThePortInNetworkOrder) {
    const WireSocket socket(bus());
    const MuxReply reply = askMux(socket, {{"MessageType", text("Connect")},
                                           {"DeviceID", number(id())},
                                           {"PortNumber", number(32498)}});
    EXPECT_EQ(reply.list.at("MessageType"), "Result");
    EXPECT_EQ(reply.result(), 0U);
    EXPECT_EQ(ask(socket, {{"Request", text("QueryType")}}).at("Type"),
              "com.apple.mobile.lockdown");
}

TEST_F(MuxWire, ConnectToAMissingDeviceIsResultTwoAndToADeafPortThree) {
    const WireSocket socket(bus());
    const MuxReply noDevice = askMux(socket, {{"MessageType", text("Connect")},
                                              {"DeviceID", number(id() + 100)},
                                              {"PortNumber", number(32498)}});
    EXPECT_EQ(noDevice.result(), 2U);
    const MuxReply noPort = askMux(socket, {{"MessageType", text("Connect")},
                                            {"DeviceID", number(id())},
                                            {"PortNumber", number(htons(62079))}});
    EXPECT_EQ(noPort.result(), 3U);
}

TEST_F(MuxWire, RequestsThatAreNoneAreResultOne) {
    const WireSocket socket(bus());
    EXPECT_EQ(askMux(socket, {{"MessageType", text("Nonsense")}}).result(), 1U);
    EXPECT_EQ(askMux(socket, {{"Type", text("ListDevices")}}).result(), 1U);
    EXPECT_EQ(askMux(socket, {{"MessageType", number(4)}}).result(), 1U);
    EXPECT_EQ(askMux(socket, {{"MessageType", text("Connect")}}).result(), 1U);
    socket.send(muxMessage("this is no list"));
    EXPECT_EQ(receiveMux(socket)->result(), 1U);
    socket.send(muxMessage(document(dictionary({{"MessageType", text("ListDevices")}})), 1, 1, 3));
    EXPECT_EQ(receiveMux(socket)->result(), 1U);
}

TEST_F(MuxWire, TheBinaryVersionIsAnsweredWithResultSixInBinary) {
    const WireSocket socket(bus());
    socket.send(u32(16) + u32(0) + u32(3) + u32(kTag));
    EXPECT_EQ(socket.receive(20), u32(20) + u32(0) + u32(1) + u32(kTag) + u32(6));
}

TEST_F(MuxWire, ListenersHearOfPhonesThatAreThereAndOfAllThatFollows) {
    const WireSocket listener(bus());
    EXPECT_EQ(askMux(listener, {{"MessageType", text("Listen")}}, kTag).result(), 0U);
    const MuxReply there = *receiveMux(listener);
    EXPECT_EQ(there.list.at("MessageType"), "Attached");
    EXPECT_EQ(there.list.at("DeviceID"), id());
    EXPECT_EQ(there.tag, 0U);

    const uint32_t left = id();
    replug();
    const MuxReply gone = *receiveMux(listener);
    EXPECT_EQ(gone.list, (nlohmann::json{{"MessageType", "Detached"}, {"DeviceID", left}}));
    const MuxReply back = *receiveMux(listener);
    EXPECT_EQ(back.list.at("MessageType"), "Attached");
    EXPECT_EQ(back.list.at("DeviceID"), id());
    EXPECT_EQ(back.list.at("Properties").at("SerialNumber"), phone().udid());
}

TEST_F(MuxWire, AListenerThatAsksAgainGetsResultOneAndIsClosed) {
    bus().unplug(id());
    const WireSocket listener(bus());
    askMux(listener, {{"MessageType", text("Listen")}});
    EXPECT_EQ(askMux(listener, {{"MessageType", text("ListDevices")}}).result(), 1U);
    EXPECT_TRUE(listener.isClosed());
}

TEST_F(MuxWire, AListenerThatNeverReadsDoesNotHoldThePhonesUp) {
    const WireSocket listener(bus());
    askMux(listener, {{"MessageType", text("Listen")}});
    ASSERT_TRUE(receiveMux(listener)); // it hears of everything from now on
    // More news than a socket holds.
    for (int i = 0; i < 1500; ++i) {
        replug();
    }
    EXPECT_TRUE(bus().waitForConnections(0));
}

TEST_F(MuxWire, ListListenersCountsThem) {
    const WireSocket listener(bus());
    askMux(listener, {{"MessageType", text("Listen")}});
    ASSERT_TRUE(receiveMux(listener)); // the phone that is there: from now on it is listed
    const WireSocket socket(bus());
    EXPECT_EQ(
        askMux(socket, {{"MessageType", text("ListListeners")}}).list.at("ListenerList").size(),
        1U);
}

TEST_F(MuxWire, APairedPhoneBringsARecordThatItTrusts) {
    const WireSocket socket(bus());
    const MuxReply reply = askMux(
        socket, {{"MessageType", text("ReadPairRecord")}, {"PairRecordID", text(phone().udid())}});
    const nlohmann::json record = parsedList(reply.list.at("PairRecordData").get<std::string>());
    EXPECT_EQ(record.at("HostID"), bus().hostId());
    EXPECT_EQ(record.at("SystemBUID"), bus().systemBuid());
    for (const char* const key : {"DeviceCertificate", "HostCertificate", "RootCertificate",
                                  "HostPrivateKey", "RootPrivateKey"}) {
        EXPECT_THAT(record.at(key).get<std::string>(), ::testing::StartsWith("-----BEGIN ")) << key;
    }
    EXPECT_TRUE(phone().trusts(bus().hostId()));
}

TEST_F(MuxWire, AMissingPairRecordIsResultTwoAndNeverAnEmptyAnswer) {
    const WireSocket socket(bus());
    const MuxReply reply =
        askMux(socket, {{"MessageType", text("ReadPairRecord")}, {"PairRecordID", text("nobody")}});
    EXPECT_EQ(reply.result(), uint64_t{ENOENT});
    EXPECT_FALSE(reply.list.contains("PairRecordData"));
}

TEST_F(MuxWire, RecordsAreSavedAndDeletedAndListenersHearOfPairing) {
    const WireSocket listener(bus());
    askMux(listener, {{"MessageType", text("Listen")}});
    ASSERT_TRUE(receiveMux(listener)); // the phone that is there

    const WireSocket socket(bus());
    const auto save = [&](const std::string& udid, const std::string& data) {
        return askMux(socket, {{"MessageType", text("SavePairRecord")},
                               {"PairRecordID", text(udid)},
                               {"PairRecordData", data},
                               {"DeviceID", number(id())}})
            .result();
    };
    const auto readBack = [&](const std::string& udid) {
        return askMux(socket,
                      {{"MessageType", text("ReadPairRecord")}, {"PairRecordID", text(udid)}});
    };
    const auto remove = [&](const std::string& udid) {
        return askMux(socket,
                      {{"MessageType", text("DeletePairRecord")}, {"PairRecordID", text(udid)}})
            .result();
    };
    EXPECT_EQ(save("other", "<data>aGVsbG8=</data>"), 0U);
    EXPECT_EQ(receiveMux(listener)->list,
              (nlohmann::json{{"MessageType", "Paired"}, {"DeviceID", id()}}));
    EXPECT_EQ(readBack("other").list.at("PairRecordData"), "hello");
    EXPECT_EQ(save("other", "<data></data>"), uint64_t{EINVAL});
    EXPECT_EQ(save("", "<data>aGVsbG8=</data>"), uint64_t{EINVAL});
    EXPECT_EQ(remove("other"), 0U);
    EXPECT_EQ(remove("other"), uint64_t{ENOENT});
    EXPECT_EQ(readBack("other").result(), uint64_t{ENOENT});
    EXPECT_FALSE(bus().hasPairRecord("other"));
    EXPECT_TRUE(bus().hasPairRecord(phone().udid()));
}

TEST_F(MuxWire, RecordsOutliveUnplugging) {
    bus().deletePairRecord(phone().udid());
    replug();
    EXPECT_FALSE(bus().hasPairRecord(phone().udid())) << "a forgotten phone is not paired again";
    EXPECT_TRUE(phone().trusts(bus().hostId()));
}

TEST_F(MuxWire, UnpluggingClosesTunnelsBeforeListenersHearOfIt) {
    const WireSocket listener(bus());
    askMux(listener, {{"MessageType", text("Listen")}});
    ASSERT_TRUE(receiveMux(listener));
    const WireSocket lockdown = connectLockdown(bus(), id());
    AfcWire files(bus(), id());

    bus().unplug(id());
    ASSERT_EQ(receiveMux(listener)->list.at("MessageType"), "Detached");
    // Whoever knows of the removal finds the tunnels closed already.
    EXPECT_FALSE(lockdown.isQuiet());
    EXPECT_TRUE(lockdown.isClosed());
    EXPECT_FALSE(files.socket.isQuiet());
    EXPECT_TRUE(files.socket.isClosed());
    EXPECT_FALSE(bus().unplug(id())) << "it is out already";
}

TEST_F(MuxWire, TwoPhonesOfOneUdidCannotBePluggedIn) {
    EXPECT_THROW(bus().plug(phonePointer()), std::invalid_argument);
}

TEST_F(MuxWire, RequestsAreLoggedWithWhatTheyAskFor) {
    connectLockdown(bus(), id());
    const auto connects =
        log().entries([](const LogEntry& entry) { return entry.request == "Connect"; });
    ASSERT_EQ(connects.size(), 1U);
    EXPECT_EQ(connects[0].service, "usbmux");
    EXPECT_EQ(connects[0].phone, phone().udid());
    EXPECT_EQ(connects[0].device, id());
    EXPECT_EQ(connects[0].port, 62078U);
    EXPECT_EQ(connects[0].status, 0U);
}

TEST(BusSocket, LongPathsAreRefusedWithTheLimit) {
    const TemporaryFolder folder;
    const std::filesystem::path path = folder.path() / std::string(108, 'x');
    try {
        const Bus bus(path);
        FAIL() << "no error";
    } catch (const std::invalid_argument& error) {
        EXPECT_THAT(error.what(), ::testing::HasSubstr("107"));
    }
}

TEST(BusSocket, ALeftoverSocketIsReplacedAndALiveOneIsNot) {
    const TemporaryFolder folder;
    const std::filesystem::path path = folder.path() / "socket";
    {
        const Bus first(path);
        EXPECT_THROW(Bus second(path), std::system_error);
        std::filesystem::rename(path, folder.path() / "kept");
    }
    std::filesystem::rename(folder.path() / "kept", path); // nobody listens on it any more
    const Bus third(path);
    const WireSocket socket(third);
    EXPECT_TRUE(askMux(socket, {{"MessageType", text("ReadBUID")}}).list.contains("BUID"));
}

TEST(BusSocket, AFileThatIsNoSocketIsLeftAlone) {
    const TemporaryFolder folder;
    const std::filesystem::path path = folder.path() / "file";
    std::ofstream(path) << "precious";
    EXPECT_THROW(Bus bus(path), std::system_error);
    EXPECT_EQ(std::filesystem::file_size(path), 8U);
}

TEST(BusSocket, NothingIsLeftBehind) {
    std::filesystem::path path;
    {
        const Bus bus;
        path = bus.socketPath();
        EXPECT_TRUE(std::filesystem::exists(path));
    }
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_FALSE(std::filesystem::exists(path.parent_path()));
}

} // namespace
} // namespace virtualphone::testing
