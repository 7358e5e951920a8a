// A phone on a long wire. That something takes its time is measured; that many things at once take
// no longer is counted.

#include "tests/support/VirtualPhoneFixture.h"
#include "tests/virtualphone/WireClient.h"

#include <chrono>
#include <string>

namespace virtualphone::testing {
namespace {

using Clock = std::chrono::steady_clock;

class LongWire : public VirtualPhoneTest {
protected:
    explicit LongWire(std::chrono::milliseconds delay = std::chrono::milliseconds(50)) {
        options.wireDelay = delay;
    }

    size_t logged(const char* request) {
        return log()
            .entries([&](const LogEntry& entry) { return entry.request == request; })
            .size();
    }
};

TEST_F(LongWire, ARequestAndItsAnswerTakeTheirTimeEach) {
    AfcWire afc(bus(), id());
    const Clock::time_point start = Clock::now();
    EXPECT_TRUE(afc.ask(afc::kMakeDirectory, pathArgument("/a")).isStatus(afc::kSuccess));
    EXPECT_GE(Clock::now() - start, 2 * options.wireDelay);
}

class VeryLongWire : public LongWire {
protected:
    VeryLongWire() : LongWire(std::chrono::milliseconds(400)) {}
};

// Each is sent and answered for itself. By the time that the first answer has come back, all have
// been carried out; if they added up, it would be one or two.
TEST_F(VeryLongWire, RequestsOnTheirWayTogetherDoNotAddUp) {
    constexpr size_t kRequests = 30;
    AfcWire afc(bus(), id());
    for (size_t i = 0; i < kRequests; ++i) {
        const std::string folder = std::string("/").append(std::to_string(i));
        afc.socket.send(afc.packet(afc::kMakeDirectory, pathArgument(folder)));
    }
    ASSERT_TRUE(afc.receive());
    EXPECT_EQ(logged("MakeDirectory"), kRequests);
    for (size_t i = 1; i < kRequests; ++i) {
        const std::optional<AfcReply> reply = afc.receive();
        ASSERT_TRUE(reply);
        EXPECT_TRUE(reply->isStatus(afc::kSuccess));
        EXPECT_EQ(reply->header.number, i + 1);
    }
}

TEST_F(LongWire, CarriesEverythingBothWays) {
    std::string bytes(5'000'000, '\0');
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>(i * 31 + i / 251);
    }
    AfcWire afc(bus(), id());
    const uint64_t file = afc.open("/f", afc::kModeReadWriteTruncate);
    EXPECT_EQ(afc.write(file, bytes), afc::kSuccess);
    EXPECT_EQ(afc.close(file), afc::kSuccess);
    const uint64_t again = afc.open("/f", afc::kModeRead);
    EXPECT_TRUE(afc.read(again, bytes.size()) == bytes);
}

TEST_F(LongWire, TheEndArrivesBehindTheAnswer) {
    AfcWire afc(bus(), id());
    phone().faults().add(parseFault("afc/MakeDirectory=drop-after-answer"));
    EXPECT_TRUE(afc.ask(afc::kMakeDirectory, pathArgument("/a")).isStatus(afc::kSuccess));
    EXPECT_TRUE(afc.socket.isClosed());
}

TEST_F(LongWire, WhatAClientHasSentArrivesAlthoughItIsGone) {
    {
        AfcWire afc(bus(), id());
        afc.socket.send(afc.packet(afc::kMakeDirectory, pathArgument("/a")));
    }
    EXPECT_TRUE(
        log().waitFor([](const LogEntry& entry) { return entry.request == "MakeDirectory"; }));
    EXPECT_TRUE(bus().waitForConnections(0));
    EXPECT_TRUE(std::filesystem::is_directory(onDisk("/a")));
}

TEST_F(LongWire, AClientThatIsGoneEndsARequestThatThePhoneThinksAbout) {
    phone().faults().add(parseFault("afc/MakeDirectory=silent"));
    {
        AfcWire afc(bus(), id());
        afc.socket.send(afc.packet(afc::kMakeDirectory, pathArgument("/a")));
        EXPECT_TRUE(
            log().waitFor([](const LogEntry& entry) { return entry.request == "MakeDirectory"; }));
    }
    EXPECT_TRUE(bus().waitForConnections(0));
}

TEST_F(LongWire, AClientThatReadsNothingDoesNotHoldTheBusUp) {
    put("/f", std::string(20'000'000, 'x'));
    AfcWire afc(bus(), id());
    const std::string size = u64(16'000'000);
    const uint64_t file = afc.open("/f", afc::kModeRead);
    for (int i = 0; i < 3; ++i) {
        afc.socket.send(afc.packet(afc::kRead, u64(file) + size));
    }
    EXPECT_TRUE(log().waitFor([](const LogEntry& entry) { return entry.request == "Read"; }));
    EXPECT_TRUE(bus().unplug(id()));
}

class EndlessWire : public LongWire {
protected:
    EndlessWire() : LongWire(std::chrono::hours(24)) {}
};

TEST_F(EndlessWire, APhoneThatIsPulledOutIsGoneAtOnce) {
    const WireSocket lockdown = connectTo(bus(), id(), 62078);
    lockdown.send(framedMessage(document(dictionary({{"Request", text("QueryType")}}))));
    EXPECT_TRUE(bus().unplug(id()));
    EXPECT_TRUE(lockdown.isClosed());
    EXPECT_EQ(logged("QueryType"), 0u);
}

TEST_F(EndlessWire, TheDaemonsOwnAnswersDoNotTravel) {
    const WireSocket mux(bus());
    EXPECT_EQ(askMux(mux, {{"MessageType", text("ListDevices")}}).list["DeviceList"].size(), 1u);
    connectTo(bus(), id(), 62078);
}

TEST_F(EndlessWire, ABusThatEndsDoesNotWaitForWhatIsOnItsWay) {
    const WireSocket lockdown = connectTo(bus(), id(), 62078);
    lockdown.send(framedMessage(document(dictionary({{"Request", text("QueryType")}}))));
    EXPECT_TRUE(lockdown.isQuiet());
}

} // namespace
} // namespace virtualphone::testing
