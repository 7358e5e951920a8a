// Each fault, on each service that it is possible on.

#include "tests/support/VirtualPhoneFixture.h"
#include "tests/virtualphone/WireClient.h"

#include <gmock/gmock.h>

#include <chrono>
#include <stdexcept>

namespace virtualphone::testing {
namespace {

using nlohmann::json;

class FaultTest : public VirtualPhoneTest {
protected:
    void add(const std::string& fault) { phone().faults().add(parseFault(fault)); }

    static std::string folder(int number) { return pathArgument("/d" + std::to_string(number)); }

    std::string faultLoggedFor(const std::string& request) {
        const auto entry =
            log().waitFor([&](const LogEntry& candidate) { return candidate.request == request; });
        return entry ? entry->fault : "no entry";
    }
};

TEST_F(FaultTest, StatusMeetsTheNthRequestOfItsKindAlone) {
    AfcWire afc(bus(), id());
    add("afc/MakeDirectory#2=status:18");
    EXPECT_TRUE(afc.ask(afc::kMakeDirectory, folder(1)).isStatus(afc::kSuccess));
    EXPECT_EQ(afc.ask(afc::kReadDirectory, pathArgument("/")).header.operation, afc::kData);
    EXPECT_TRUE(afc.ask(afc::kMakeDirectory, folder(2)).isStatus(afc::kNoSpaceLeft));
    EXPECT_FALSE(exists("/d2")) << "it is not carried out";
    EXPECT_TRUE(afc.ask(afc::kMakeDirectory, folder(2)).isStatus(afc::kSuccess));
    const auto failed =
        log().entries([](const LogEntry& entry) { return entry.fault == "status"; });
    ASSERT_EQ(failed.size(), 1U);
    EXPECT_EQ(failed[0].path, "/d2");
    EXPECT_EQ(failed[0].status, 18U);
}

TEST_F(FaultTest, WithPlusItMeetsAllLaterOnesToo) {
    AfcWire afc(bus(), id());
    add("afc/MakeDirectory#2+=status:20");
    EXPECT_TRUE(afc.ask(afc::kMakeDirectory, folder(1)).isStatus(afc::kSuccess));
    EXPECT_TRUE(afc.ask(afc::kMakeDirectory, folder(2)).isStatus(afc::kIoError));
    EXPECT_TRUE(afc.ask(afc::kMakeDirectory, folder(3)).isStatus(afc::kIoError));
    phone().faults().clear();
    EXPECT_TRUE(afc.ask(afc::kMakeDirectory, folder(3)).isStatus(afc::kSuccess));
}

TEST_F(FaultTest, WithoutARequestItCountsAllOfTheService) {
    AfcWire afc(bus(), id());
    add("afc#3=status:1");
    EXPECT_TRUE(afc.ask(afc::kMakeDirectory, folder(1)).isStatus(afc::kSuccess));
    EXPECT_EQ(afc.ask(afc::kReadDirectory, pathArgument("/")).header.operation, afc::kData);
    EXPECT_TRUE(afc.ask(afc::kMakeDirectory, folder(2)).isStatus(afc::kUnknownError));
}

TEST_F(FaultTest, CountsGoAcrossConnections) {
    add("afc/MakeDirectory#2=status:10");
    EXPECT_TRUE(AfcWire(bus(), id()).ask(afc::kMakeDirectory, folder(1)).isStatus(afc::kSuccess));
    EXPECT_TRUE(
        AfcWire(bus(), id()).ask(afc::kMakeDirectory, folder(2)).isStatus(afc::kPermissionDenied));
}

TEST_F(FaultTest, AFailedWriteIsDrainedAndNotWritten) {
    AfcWire afc(bus(), id());
    const uint64_t file = afc.open("/f", afc::kModeWrite);
    phone().faults().failAfc("Write", afc::kNoSpaceLeft, 2);
    EXPECT_EQ(afc.write(file, std::string(100'000, 'a')), afc::kSuccess);
    EXPECT_EQ(afc.write(file, std::string(100'000, 'b')), afc::kNoSpaceLeft);
    EXPECT_EQ(afc.write(file, "c"), afc::kSuccess);
    EXPECT_EQ(contents("/f"), std::string(100'000, 'a') + "c");
}

TEST_F(FaultTest, LockdownErrors) {
    const WireSocket lockdown = connectLockdown(bus(), id());
    phone().faults().failLockdown("ValidatePair", "InvalidHostID");
    add("lockdown/StartService=error:ServiceProhibited");
    const json refused = ask(
        lockdown, {{"Request", text("ValidatePair")}, {"PairRecord", pairRecord(bus().hostId())}});
    EXPECT_EQ(
        refused,
        (json{{"Request", "ValidatePair"}, {"Result", "Failure"}, {"Error", "InvalidHostID"}}));
    EXPECT_FALSE(startSession(lockdown, bus()).empty()) << "the second validation is accepted";
    EXPECT_EQ(ask(lockdown, {{"Request", text("StartService")}, {"Service", text("com.apple.afc")}})
                  .at("Error"),
              "ServiceProhibited");
    EXPECT_EQ(faultLoggedFor("StartService"), "error");
}

TEST_F(FaultTest, ResultsOfTheBusBelongToTheBus) {
    bus().faults().add(parseFault("usbmux/Connect#2=status:3"));
    EXPECT_NO_THROW(connectLockdown(bus(), id()));
    EXPECT_THROW(connectLockdown(bus(), id()), std::runtime_error);
    EXPECT_NO_THROW(connectLockdown(bus(), id()));
}

TEST_F(FaultTest, DropClosesWithoutDoing) {
    AfcWire afc(bus(), id());
    add("afc/MakeDirectory=drop");
    EXPECT_FALSE(afc.tryAsk(afc::kMakeDirectory, folder(1)));
    EXPECT_FALSE(exists("/d1"));
    EXPECT_EQ(faultLoggedFor("MakeDirectory"), "drop");
}

TEST_F(FaultTest, DropUnansweredClosesAfterDoing) {
    AfcWire afc(bus(), id());
    add("afc/MakeDirectory=drop-unanswered");
    EXPECT_FALSE(afc.tryAsk(afc::kMakeDirectory, folder(1)));
    EXPECT_TRUE(exists("/d1"));
}

TEST_F(FaultTest, DropAfterAnswerClosesAfterAnswering) {
    AfcWire afc(bus(), id());
    add("afc/MakeDirectory=drop-after-answer");
    EXPECT_TRUE(afc.ask(afc::kMakeDirectory, folder(1)).isStatus(afc::kSuccess));
    EXPECT_TRUE(afc.socket.isClosed());
}

TEST_F(FaultTest, DroppedConnectionsOfEveryService) {
    add("lockdown/QueryType=drop");
    const WireSocket lockdown = connectLockdown(bus(), id());
    EXPECT_TRUE(ask(lockdown, {{"Request", text("QueryType")}}).is_null());

    const WireSocket proxy = connectService(bus(), id(), "com.apple.mobile.notification_proxy");
    add("notification_proxy/PostNotification=drop-unanswered");
    tell(proxy, {{"Command", text("PostNotification")}, {"Name", text("x")}});
    EXPECT_TRUE(proxy.isClosed());

    bus().faults().add(parseFault("usbmux/ListDevices=drop"));
    const WireSocket socket(bus());
    socket.send(muxMessage(document(dictionary({{"MessageType", text("ListDevices")}}))));
    EXPECT_TRUE(socket.isClosed());
}

TEST_F(FaultTest, SilentNeverAnswersAndEndsWithTheClient) {
    add("afc/MakeDirectory=silent");
    {
        AfcWire afc(bus(), id());
        afc.socket.send(afc.packet(afc::kMakeDirectory, folder(1)));
        EXPECT_EQ(faultLoggedFor("MakeDirectory"), "silent");
        EXPECT_TRUE(afc.socket.isQuiet());
        AfcWire other(bus(), id());
        EXPECT_TRUE(other.ask(afc::kMakeDirectory, folder(2)).isStatus(afc::kSuccess))
            << "other connections are served";
    }
    EXPECT_TRUE(bus().waitForConnections(0));
    EXPECT_FALSE(exists("/d1"));
}

TEST_F(FaultTest, ASilencedConnectionEndsWithThePlugging) {
    add("afc/MakeDirectory=silent");
    AfcWire afc(bus(), id());
    afc.socket.send(afc.packet(afc::kMakeDirectory, folder(1)));
    EXPECT_EQ(faultLoggedFor("MakeDirectory"), "silent");
    EXPECT_TRUE(bus().unplug(id()));
    EXPECT_TRUE(afc.socket.isClosed());
}

TEST_F(FaultTest, ASilentPhoneAnswersWhenTheSilenceEnds) {
    AfcWire afc(bus(), id());
    const WireSocket lockdown = connectLockdown(bus(), id());
    phone().faults().goSilent();
    phone().faults().goSilent();
    afc.socket.send(afc.packet(afc::kMakeDirectory, folder(1)));
    tell(lockdown, {{"Request", text("QueryType")}});
    ASSERT_TRUE(log().waitFor([](const LogEntry& entry) { return entry.request == "QueryType"; }));
    ASSERT_TRUE(
        log().waitFor([](const LogEntry& entry) { return entry.request == "MakeDirectory"; }));
    EXPECT_TRUE(afc.socket.isQuiet());
    EXPECT_TRUE(lockdown.isQuiet());
    EXPECT_NO_THROW(connectLockdown(bus(), id())) << "the bus is not the phone";
    phone().faults().endSilence();
    EXPECT_TRUE(afc.receive()->isStatus(afc::kSuccess));
    EXPECT_EQ(parsedList(*receiveFramed(lockdown)).at("Request"), "QueryType");
    EXPECT_TRUE(afc.ask(afc::kMakeDirectory, folder(2)).isStatus(afc::kSuccess));
}

TEST_F(FaultTest, ASilentPhoneRelaysNothing) {
    const WireSocket proxy = connectService(bus(), id(), "com.apple.mobile.notification_proxy");
    tell(proxy, {{"Command", text("ObserveNotification")}, {"Name", text("x")}});
    ASSERT_TRUE(log().waitFor(
        [](const LogEntry& entry) { return entry.request == "ObserveNotification"; }));
    phone().faults().goSilent();
    phone().post("x");
    EXPECT_TRUE(proxy.isQuiet());
    phone().faults().endSilence();
    phone().post("x");
    EXPECT_EQ(parsedList(*receiveFramed(proxy)).at("Name"), "x");
}

TEST_F(FaultTest, UnplugPullsThePhoneOut) {
    const WireSocket listener(bus());
    askMux(listener, {{"MessageType", text("Listen")}});
    ASSERT_TRUE(receiveMux(listener));
    AfcWire afc(bus(), id());
    add("afc/MakeDirectory#2=unplug");
    EXPECT_TRUE(afc.ask(afc::kMakeDirectory, folder(1)).isStatus(afc::kSuccess));
    EXPECT_FALSE(afc.tryAsk(afc::kMakeDirectory, folder(2)));
    EXPECT_EQ(receiveMux(listener)->list.at("MessageType"), "Detached");
    EXPECT_EQ(bus().deviceId(phone()), 0U);
    EXPECT_FALSE(exists("/d2"));
    EXPECT_NE(bus().plug(phonePointer()), 0U) << "and it can be plugged in again";
}

TEST_F(FaultTest, DelayAnswersLater) {
    AfcWire afc(bus(), id());
    add("afc/MakeDirectory=delay:40");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(afc.ask(afc::kMakeDirectory, folder(1)).isStatus(afc::kSuccess));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(40));
}

TEST_F(FaultTest, CutSendsHalfAnAnswerAndCloses) {
    AfcWire afc(bus(), id());
    add("afc/MakeDirectory=cut");
    afc.socket.send(afc.packet(afc::kMakeDirectory, folder(1)));
    EXPECT_EQ(afc.socket.receive(48).size(), 24U);
    EXPECT_TRUE(exists("/d1"));
}

TEST_F(FaultTest, StallSendsHalfAnAnswerAndNoMore) {
    AfcWire afc(bus(), id());
    add("afc/MakeDirectory=stall");
    afc.socket.send(afc.packet(afc::kMakeDirectory, folder(1)));
    EXPECT_EQ(afc.socket.receive(24).size(), 24U);
    EXPECT_TRUE(bus().waitForConnections(1));
    EXPECT_TRUE(afc.socket.isQuiet());
    EXPECT_EQ(bus().connectionCount(), 1U);
}

TEST_F(FaultTest, ShortAnswersOfTheFileServiceLackTheirEnd) {
    AfcWire afc(bus(), id());
    add("afc/MakeDirectory=short");
    const AfcReply status = afc.ask(afc::kMakeDirectory, folder(1));
    EXPECT_EQ(status.header.entireLength, 40U);
    EXPECT_EQ(status.header.thisLength, 40U);
    put("/f", "0123456789");
    const uint64_t file = afc.open("/f", afc::kModeRead);
    add("afc/Read=short");
    const AfcReply data = afc.ask(afc::kRead, u64(file) + u64(10));
    EXPECT_EQ(data.header.thisLength, 40U);
    EXPECT_EQ(data.payload, "01");
}

TEST_F(FaultTest, LongAnswersOfTheFileServiceHaveTooMuch) {
    AfcWire afc(bus(), id());
    add("afc/MakeDirectory=long");
    const AfcReply status = afc.ask(afc::kMakeDirectory, folder(1));
    EXPECT_EQ(status.header.entireLength, 56U);
    EXPECT_EQ(status.header.thisLength, 56U);
    put("/f", "0123456789");
    const uint64_t file = afc.open("/f", afc::kModeRead);
    add("afc/Read#1+=long");
    const AfcReply data = afc.ask(afc::kRead, u64(file) + u64(10));
    EXPECT_EQ(data.header.thisLength, 40U);
    EXPECT_EQ(data.payload.size(), 18U);
    const AfcReply end = afc.ask(afc::kRead, u64(file) + u64(10));
    EXPECT_EQ(end.header.thisLength, 40U);
    EXPECT_EQ(end.payload.size(), 8U);
}

TEST_F(FaultTest, SpoiltHeadersOfTheFileService) {
    const auto answerWith = [&](const std::string& action) {
        AfcWire afc(bus(), id());
        add("afc/MakeDirectory=" + action);
        afc.socket.send(afc.packet(afc::kMakeDirectory, folder(1)));
        const std::string bytes = afc.socket.receive(48);
        EXPECT_EQ(bytes.size(), 48U);
        afc::Header header{};
        std::memcpy(&header, bytes.data(), sizeof header);
        return header;
    };
    EXPECT_NE(std::string_view(answerWith("bad-magic").magic.data(), 8), afc::kMagic);
    EXPECT_EQ(answerWith("wrong-number").number, 2U);
    EXPECT_EQ(answerWith("wrong-operation").operation, afc::kOpened);
    EXPECT_EQ(answerWith("tiny-length").entireLength, 8U);
    EXPECT_GT(answerWith("huge-length").entireLength, uint64_t{1} << 60);
    const afc::Header garbled = answerWith("garbled");
    EXPECT_EQ(garbled.entireLength, 48U);
    EXPECT_NE(garbled.number, 1U);
    EXPECT_NE(garbled.operation, afc::kStatus);
}

TEST_F(FaultTest, SpoiltAnswersOfLockdown) {
    const auto answerWith = [&](const std::string& action) {
        add("lockdown/QueryType=" + action);
        const WireSocket lockdown = connectLockdown(bus(), id());
        tell(lockdown, {{"Request", text("QueryType")}});
        const std::string length = lockdown.receive(4);
        if (length == std::string(4, '\0')) {
            return std::string("length 0");
        }
        if (length[0] != '\0') {
            return std::string("huge length");
        }
        return lockdown.receive(size_t{256} * static_cast<unsigned char>(length[2]) +
                                static_cast<unsigned char>(length[3]));
    };
    const std::string sound = answerWith("delay:0");
    EXPECT_EQ(parsedList(sound).at("Request"), "QueryType");
    EXPECT_EQ(answerWith("short"), sound.substr(0, sound.size() - 8));
    EXPECT_EQ(answerWith("long"), sound + "surplus!");
    EXPECT_EQ(answerWith("garbled").size(), sound.size());
    EXPECT_TRUE(parsedList(answerWith("garbled")).is_null());
    EXPECT_EQ(parsedList(answerWith("wrong-number")).at("Request"), "AnotherRequest");
    EXPECT_TRUE(parsedList(answerWith("wrong-operation")).is_array());
    EXPECT_EQ(answerWith("tiny-length"), "length 0");
    EXPECT_EQ(answerWith("huge-length"), "huge length");
}

TEST_F(FaultTest, SpoiltAnswersOfTheNotificationProxy) {
    const WireSocket proxy = connectService(bus(), id(), "com.apple.mobile.notification_proxy");
    add("notification_proxy/Shutdown=wrong-operation");
    EXPECT_TRUE(ask(proxy, {{"Command", text("Shutdown")}}).is_array());
    const WireSocket other = connectService(bus(), id(), "com.apple.mobile.notification_proxy");
    add("notification_proxy/Shutdown=garbled");
    EXPECT_TRUE(ask(other, {{"Command", text("Shutdown")}}).is_null());
}

TEST_F(FaultTest, SpoiltAnswersOfTheBus) {
    const auto answerWith = [&](const std::string& action) {
        bus().faults().add(parseFault("usbmux/ReadBUID=" + action));
        const WireSocket socket(bus());
        socket.send(muxMessage(document(dictionary({{"MessageType", text("ReadBUID")}})), 5));
        return socket.receive(16);
    };
    const std::string sound = answerWith("delay:0");
    const auto word = [](const std::string& header, size_t index) {
        uint32_t value = 0;
        std::memcpy(&value, header.data() + index * 4, sizeof value);
        return value;
    };
    EXPECT_EQ(word(answerWith("short"), 0), word(sound, 0) - 8);
    EXPECT_EQ(word(answerWith("long"), 0), word(sound, 0) + 8);
    EXPECT_EQ(word(answerWith("tiny-length"), 0), 15U);
    EXPECT_GT(word(answerWith("huge-length"), 0), 0xFFFFFF00U);
    EXPECT_NE(word(answerWith("bad-magic"), 1), 1U);
    EXPECT_NE(word(answerWith("wrong-operation"), 2), 8U);
    EXPECT_EQ(word(answerWith("wrong-number"), 3), 6U);
    EXPECT_EQ(answerWith("garbled"), sound);
}

TEST_F(FaultTest, TheConnectionDropsAfterBytesReceived) {
    AfcWire afc(bus(), id());
    const uint64_t file = afc.open("/f", afc::kModeWrite);
    phone().faults().dropAfterReceiving(Service::Afc, 48 + 1000);
    afc.socket.send(afc.packet(afc::kWrite, u64(file), std::string(5000, 'x')));
    EXPECT_FALSE(afc.receive());
    EXPECT_TRUE(bus().waitForConnections(0));
    EXPECT_EQ(contents("/f").size(), 1000U);
    AfcWire again(bus(), id());
    EXPECT_TRUE(again.ask(afc::kMakeDirectory, folder(1)).isStatus(afc::kSuccess)) << "once only";
}

TEST_F(FaultTest, ARequestThatIsCompleteByThenIsCarriedOut) {
    AfcWire afc(bus(), id());
    const std::string packet = afc.packet(afc::kMakeDirectory, folder(1));
    phone().faults().dropAfterReceiving(Service::Afc, packet.size());
    afc.socket.send(packet);
    EXPECT_FALSE(afc.receive());
    EXPECT_TRUE(bus().waitForConnections(0));
    EXPECT_TRUE(exists("/d1"));
}

TEST_F(FaultTest, TheConnectionDropsAfterBytesSent) {
    put("/f", std::string(5000, 'x'));
    AfcWire afc(bus(), id());
    const uint64_t file = afc.open("/f", afc::kModeRead);
    phone().faults().dropAfterSending(Service::Afc, 40 + 1000);
    afc.socket.send(afc.packet(afc::kRead, u64(file) + u64(5000)));
    EXPECT_EQ(afc.socket.receive(10'000).size(), 1040U);
}

TEST_F(FaultTest, TheFirstOfTwoThatMeetWins) {
    AfcWire afc(bus(), id());
    add("afc/MakeDirectory=status:1");
    add("afc/MakeDirectory=status:2");
    EXPECT_TRUE(afc.ask(afc::kMakeDirectory, folder(1)).isStatus(1));
    EXPECT_TRUE(afc.ask(afc::kMakeDirectory, folder(1)).isStatus(afc::kSuccess))
        << "the second was spent on the same request";
}

TEST(FaultText, EveryPartIsRead) {
    const Fault whole = parseFault("afc/Write#3+=status:18");
    EXPECT_EQ(whole.service, Service::Afc);
    EXPECT_EQ(whole.request, "Write");
    EXPECT_EQ(whole.nth, 3U);
    EXPECT_TRUE(whole.andAllLater);
    EXPECT_EQ(whole.action, FaultAction::Status);
    EXPECT_EQ(whole.number, 18U);

    const Fault least = parseFault("notification_proxy=drop");
    EXPECT_EQ(least.service, Service::NotificationProxy);
    EXPECT_EQ(least.request, "");
    EXPECT_EQ(least.nth, 1U);
    EXPECT_FALSE(least.andAllLater);
    EXPECT_EQ(least.action, FaultAction::Drop);

    EXPECT_EQ(parseFault("lockdown/StartSession=error:InvalidHostID").error, "InvalidHostID");
    EXPECT_EQ(parseFault("usbmux#2=delay:50").number, 50U);
}

TEST(FaultText, WhatIsWrongIsSaid) {
    const struct {
        const char* text;
        const char* reason;
    } rows[] = {
        {"", "no action"},
        {"afc", "no action"},
        {"afp=drop", "services are"},
        {"=drop", "services are"},
        {"afc=explode", "no action 'explode'"},
        {"afc=drop:3", "takes no value"},
        {"afc=status", "needs a number"},
        {"afc=status:", "needs a number"},
        {"afc=status:x", "needs a number"},
        {"afc=status:-1", "needs a number"},
        {"afc=status:99999999999999999999", "needs a number"},
        {"lockdown=error", "needs a name"},
        {"lockdown=error:", "needs a name"},
        {"afc#0=drop", "counted from 1"},
        {"afc#=drop", "no number of a request"},
        {"afc#x=drop", "no number of a request"},
        {"afc#4294967296=drop", "no number of a request"},
        {"lockdown=status:1", "not possible on lockdown"},
        {"afc=error:X", "not possible on afc"},
        {"lockdown=bad-magic", "not possible on lockdown"},
        {"notification_proxy=wrong-number", "not possible on notification_proxy"},
        {"usbmux=unplug", "not possible on usbmux"},
        {"afc=delay:86400001", "a day"},
    };

    for (const auto& row : rows) {
        try {
            parseFault(row.text);
            ADD_FAILURE() << row.text << " was taken";
        } catch (const std::invalid_argument& error) {
            EXPECT_THAT(error.what(), ::testing::HasSubstr(row.reason)) << row.text;
        }
    }
}

TEST(FaultText, FaultsAddedInCodeAreCheckedToo) {
    Faults faults;
    EXPECT_THROW(faults.add({.service = Service::Lockdown, .action = FaultAction::Status}),
                 std::invalid_argument);
    EXPECT_THROW(faults.add({.nth = 0}), std::invalid_argument);
}

} // namespace
} // namespace virtualphone::testing
