// Several phones, many clients, and phones pulled out in the middle of everything.

#include "tests/support/VirtualPhoneFixture.h"
#include "tests/virtualphone/WireClient.h"

#include <atomic>
#include <thread>
#include <vector>

namespace virtualphone::testing {
namespace {

class Concurrency : public VirtualPhoneTest {};

TEST_F(Concurrency, PhonesAreServedSideBySideAndKeptApart) {
    constexpr int kPhones = 4;
    std::vector<std::shared_ptr<Phone>> phones;
    std::vector<uint32_t> ids;
    for (int i = 0; i < kPhones; ++i) {
        phones.push_back(makePhone("phone " + std::to_string(i)));
        ids.push_back(bus().plug(phones.back()));
    }
    std::vector<std::thread> clients;
    for (int i = 0; i < kPhones; ++i) {
        clients.emplace_back([&, i] {
            const auto index = static_cast<size_t>(i);
            for (int round = 0; round < 5; ++round) {
                AfcWire afc(bus(), ids[index]);
                const uint64_t file = afc.open("/mine", afc::kModeWrite);
                const std::string text(100'000, static_cast<char>('a' + i));
                EXPECT_EQ(afc.write(file, text), afc::kSuccess);
            }
        });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    for (int i = 0; i < kPhones; ++i) {
        std::ifstream file(phones[static_cast<size_t>(i)]->options().root / "mine");
        std::string text;
        file >> text;
        EXPECT_EQ(text, std::string(100'000, static_cast<char>('a' + i)));
    }
}

TEST_F(Concurrency, ManyClientsOfOnePhone) {
    std::atomic<int> succeeded = 0;
    std::vector<std::thread> clients;
    for (int i = 0; i < 8; ++i) {
        clients.emplace_back([&, i] {
            AfcWire afc(bus(), id());
            for (int n = 0; n < 20; ++n) {
                const std::string path = "/c" + std::to_string(i) + "-" + std::to_string(n);
                succeeded += afc.ask(afc::kMakeDirectory, pathArgument(path)).isStatus(0) ? 1 : 0;
            }
        });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_EQ(succeeded, 160);
}

TEST_F(Concurrency, OneClientAtATimeGetsTheLock) {
    std::atomic<int> holders = 0;
    std::atomic<int> taken = 0;
    std::vector<std::thread> clients;
    for (int i = 0; i < 4; ++i) {
        clients.emplace_back([&] {
            AfcWire afc(bus(), id());
            const uint64_t file = afc.open("/com.apple.itunes.lock_sync", afc::kModeReadWrite);
            for (int n = 0; n < 25; ++n) {
                if (afc.lock(file, afc::kLockExclusive) == afc::kSuccess) {
                    EXPECT_EQ(++holders, 1);
                    ++taken;
                    --holders;
                    EXPECT_EQ(afc.lock(file, afc::kUnlock), afc::kSuccess);
                }
            }
        });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_GT(taken, 0);
}

TEST_F(Concurrency, UnpluggingEndsTransfersAtAnyMoment) {
    for (int round = 0; round < 20; ++round) {
        AfcWire afc(bus(), id());
        const uint64_t file = afc.open("/f", afc::kModeWrite);
        std::thread writer([&] {
            const std::string bytes(1'000'000, 'x');
            while (afc.tryAsk(afc::kWrite, u64(file), bytes)) {
            }
        });
        log().waitFor([](const LogEntry& entry) { return entry.request == "Write"; });
        bus().unplug(id());
        writer.join(); // it ends because its connection does
        log().clear();
        replug();
    }
    EXPECT_TRUE(bus().waitForConnections(0));
}

TEST_F(Concurrency, UnpluggingFromTwoThreadsHappensOnce) {
    for (int round = 0; round < 20; ++round) {
        AfcWire afc(bus(), id());
        std::atomic<int> pulled = 0;
        std::thread first([&] { pulled += bus().unplug(id()) ? 1 : 0; });
        std::thread second([&] { pulled += bus().unplug(id()) ? 1 : 0; });
        first.join();
        second.join();
        EXPECT_EQ(pulled, 1);
        replug();
    }
}

TEST_F(Concurrency, ConnectingWhilePhonesComeAndGo) {
    std::atomic<bool> isOver = false;
    std::thread client([&] {
        while (!isOver) {
            const uint32_t device = bus().deviceId(phone());
            try {
                AfcWire afc(bus(), device);
                afc.tryAsk(afc::kReadDirectory, pathArgument("/"));
            } catch (const std::exception&) {
                // refused, or pulled out half-way: that is what the test is about
            }
        }
    });
    for (int i = 0; i < 100; ++i) {
        replug();
    }
    isOver = true;
    client.join();
    EXPECT_NO_THROW(connectLockdown(bus(), id()));
}

TEST_F(Concurrency, ABusCanGoWhileClientsAreAtWork) {
    auto other = std::make_unique<Bus>();
    const auto guest = makePhone("guest");
    const uint32_t guestId = other->plug(guest);
    const WireSocket lockdown = connectLockdown(*other, guestId);
    AfcWire afc(*other, guestId);
    guest->faults().add(parseFault("afc/DeviceInfo=silent"));
    afc.socket.send(afc.packet(afc::kDeviceInfo, ""));
    other->log().waitFor([](const LogEntry& entry) { return entry.request == "DeviceInfo"; });
    const WireSocket listener(*other);
    askMux(listener, {{"MessageType", text("Listen")}});
    other.reset();
    EXPECT_TRUE(lockdown.isClosed());
    EXPECT_TRUE(afc.socket.isClosed());
}

TEST_F(Concurrency, APhoneMovesFromBusToBusWithItsState) {
    phone().trust("another host");
    phone().setFreeBytes(12345);
    bus().unplug(id());
    Bus other;
    const uint32_t there = other.plug(phonePointer());
    AfcWire afc(other, there);
    EXPECT_EQ(pairsIn(afc.ask(afc::kDeviceInfo, "").payload).at("FSFreeBytes"), "12345");
    EXPECT_TRUE(phone().trusts("another host"));
}

TEST_F(Concurrency, FaultsAreSetWhileRequestsRun) {
    std::atomic<bool> isOver = false;
    std::thread meddler([&] {
        while (!isOver) {
            phone().faults().add(parseFault("afc/MakeDirectory=status:20"));
            phone().faults().goSilent();
            phone().faults().endSilence();
            phone().faults().clear();
            phone().post("x");
        }
    });
    AfcWire afc(bus(), id());
    for (int i = 0; i < 200; ++i) {
        const AfcReply reply = afc.ask(afc::kMakeDirectory, pathArgument("/d"));
        EXPECT_EQ(reply.header.operation, afc::kStatus);
    }
    isOver = true;
    meddler.join();
}

} // namespace
} // namespace virtualphone::testing
