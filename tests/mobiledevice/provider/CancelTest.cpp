// Calls that are ended from elsewhere, and how far a file has come meanwhile.

#include "tests/mobiledevice/provider/ProviderFixture.h"

#include "mobiledevice/provider/wire/UniqueDescriptor.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <vector>

namespace krl::provider::testing {
namespace {

using virtualphone::LogEntry;
using virtualphone::parseFault;

constexpr uint32_t kPiece = 65'536;

class Cancelling : public ProviderTest {
protected:
    void TearDown() override {
        if (canceller_.joinable()) {
            canceller_.join();
        }
        ProviderTest::TearDown();
    }

    // Cancels on another thread once a request was met by a fault.
    void cancelOnceMet(const char* request, am_device* which) {
        canceller_ = std::thread([this, request, which] {
            log().waitFor([&](const LogEntry& entry) {
                return entry.request == request && !entry.fault.empty();
            });
            EXPECT_EQ(md.AMDeviceCancelCalls(which), 0);
        });
    }

    int32_t write(afc_connection* files, afc_file_ref file, uint32_t count) {
        const std::string bytes(count, 'x');
        return md.AFCFileRefWrite(files, file, bytes.data(), count);
    }

private:
    std::thread canceller_;
};

TEST_F(Cancelling, EndsAConnectThatTheDaemonDoesNotAnswer) {
    bus().faults().add(parseFault("usbmux/Connect=silent"));
    cancelOnceMet("Connect", device);
    EXPECT_EQ(md.AMDeviceConnect(device), kAMDCancelled);
    EXPECT_EQ(md.AMDeviceConnect(device), 0);
}

TEST_F(Cancelling, EndsAQuestionAboutThePairing) {
    bus().faults().add(parseFault("usbmux/ReadPairRecord=silent"));
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    cancelOnceMet("ReadPairRecord", device);
    EXPECT_EQ(md.AMDeviceValidatePairing(device), kAMDCancelled);
}

TEST_F(Cancelling, EndsAFileConnectionThatWaitsForTheDaemon) {
    openSession();
    am_service* service = startService("com.apple.afc");
    bus().faults().add(parseFault("usbmux/Connect=silent"));
    cancelOnceMet("Connect", device);
    afc_connection* files = nullptr;
    EXPECT_EQ(md.AFCConnectionOpen(service, 0, &files), kAFCCancelled);
}

// As many clients wait for the daemon as its socket allows: the next cannot even begin.
TEST_F(Cancelling, EndsAConnectToADaemonThatTakesNobody) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = temporaryFolder() / "deaf";
    path.copy(address.sun_path, path.size());
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    const UniqueDescriptor deaf(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(::bind(deaf.get(), generic, sizeof address), 0);
    ASSERT_EQ(::listen(deaf.get(), 0), 0);
    std::vector<UniqueDescriptor> waiting;
    do {
        waiting.emplace_back(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    } while (::connect(waiting.back().get(), generic, sizeof address) == 0);
    ASSERT_EQ(errno, EAGAIN);

    const std::string usual = std::getenv("USBMUXD_SOCKET_ADDRESS");
    ::setenv("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + path).c_str(), 1);
    std::atomic<bool> isOver = false;
    std::thread canceller([&] {
        while (!isOver) { // whether the other thread waits by now cannot be seen
            md.AMDeviceCancelCalls(device);
            std::this_thread::yield();
        }
    });
    EXPECT_EQ(md.AMDeviceConnect(device), kAMDCancelled);
    isOver = true;
    canceller.join();

    md.AMDeviceSetCallTimeout(50);
    EXPECT_EQ(md.AMDeviceConnect(device), kAMDNoMuxDaemon);
    ::setenv("USBMUXD_SOCKET_ADDRESS", usual.c_str(), 1);
}

TEST_F(Cancelling, WithoutADeviceEndsTheCallsOfAll) {
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    phone().faults().add(parseFault("lockdown/GetValue=silent"));
    cancelOnceMet("GetValue", nullptr);
    EXPECT_EQ(md.AMDeviceCopyValue(device, nullptr, nullptr), nullptr);
    EXPECT_EQ(md.AMDeviceValidatePairing(device), kAMDCancelled);
}

TEST_F(Cancelling, LeavesOtherDevicesAlone) {
    bus().plug(makePhone("other"));
    am_device* other = watcher.waitForEvents(2) ? watcher.events.back().device : nullptr;
    ASSERT_NE(other, device);
    ASSERT_EQ(md.AMDeviceConnect(other), 0);
    afc_connection* files = openFiles();
    EXPECT_EQ(md.AMDeviceCancelCalls(other), 0);
    EXPECT_EQ(md.AFCDirectoryCreate(files, "/x"), 0);
    EXPECT_EQ(md.AMDeviceValidatePairing(other), kAMDCancelled);
}

// Who cancels cannot know that the call has just returned and the next is about to come.
TEST_F(Cancelling, BetweenTwoPartsOfAFileEndsTheFile) {
    afc_connection* files = openFiles();
    const afc_file_ref file = openFile(files, "/f", kAFCOpenWrite);
    EXPECT_EQ(write(files, file, kPiece), 0);
    EXPECT_EQ(md.AMDeviceCancelCalls(device), 0);
    EXPECT_EQ(write(files, file, kPiece), kAFCCancelled);
    EXPECT_EQ(md.AFCFileRefClose(files, file), kAFCCancelled);
    EXPECT_EQ(md.AFCConnectionClose(files), 0);
    EXPECT_EQ(contents("/f").size(), kPiece);
}

TEST_F(Cancelling, IsAnsweredForAStaleHandle) {
    md.AMDeviceRetain(device);
    watcher.end();
    md.AMDeviceRelease(device);
    EXPECT_EQ(md.AMDeviceCancelCalls(device), kAMDInvalidHandle);
    EXPECT_EQ(md.AMDeviceGetTransferredBytes(device), 0u);
}

// ------------------------------------------------------------------ how far a file has come

TEST_F(Cancelling, WhatThePhoneHasConfirmedIsToldDuringTheCall) {
    afc_connection* files = openFiles();
    const afc_file_ref file = openFile(files, "/f", kAFCOpenWrite);
    EXPECT_EQ(md.AMDeviceGetTransferredBytes(device), 0u);
    EXPECT_EQ(write(files, file, 100), 0);
    EXPECT_EQ(md.AMDeviceGetTransferredBytes(device), 100u);
    phone().faults().add(parseFault("afc/Write#3=silent"));
    std::thread watching([&] {
        EXPECT_TRUE(
            runUntil([&] { return md.AMDeviceGetTransferredBytes(device) == 100 + 2 * kPiece; }));
        md.AMDeviceCancelCalls(device);
    });
    EXPECT_EQ(write(files, file, 4 * kPiece), kAFCCancelled);
    watching.join();
    EXPECT_EQ(md.AMDeviceGetTransferredBytes(device), 100 + 2 * kPiece);
}

// The phone takes no more than two pieces and what the socket holds of the others.
TEST_F(Cancelling, WhatThePhoneHasConfirmedIsToldWhileMostIsStillToGo) {
    afc_connection* files = openFiles();
    const afc_file_ref file = openFile(files, "/f", kAFCOpenWrite);
    phone().faults().add(parseFault("afc/Write#3=silent"));
    std::thread watching([&] {
        EXPECT_TRUE(runUntil([&] { return md.AMDeviceGetTransferredBytes(device) == 2 * kPiece; }));
        md.AMDeviceCancelCalls(device);
    });
    EXPECT_EQ(write(files, file, 64 * kPiece), kAFCCancelled);
    watching.join();
}

TEST_F(Cancelling, WhatHasComeBeginsAnewWithTheNextFile) {
    afc_connection* files = openFiles();
    afc_file_ref file = openFile(files, "/f", kAFCOpenWrite);
    EXPECT_EQ(write(files, file, 3 * kPiece + 1), 0);
    EXPECT_EQ(md.AMDeviceGetTransferredBytes(device), 3 * kPiece + 1);
    md.AFCFileRefClose(files, file);
    EXPECT_EQ(md.AMDeviceGetTransferredBytes(device), 3 * kPiece + 1);

    file = openFile(files, "/f", kAFCOpenRead);
    EXPECT_EQ(md.AMDeviceGetTransferredBytes(device), 0u);
    std::string bytes(2 * kPiece, '\0');
    auto length = static_cast<uint32_t>(bytes.size());
    EXPECT_EQ(md.AFCFileRefRead(files, file, bytes.data(), &length), 0);
    EXPECT_EQ(md.AMDeviceGetTransferredBytes(device), 2 * kPiece);
}

TEST_F(Cancelling, WhatThePhoneRefusesIsNotCounted) {
    afc_connection* files = openFiles();
    const afc_file_ref file = openFile(files, "/f", kAFCOpenWrite);
    phone().faults().add(parseFault("afc/Write#2=status:18"));
    EXPECT_EQ(write(files, file, 3 * kPiece), kAFCNoSpaceLeft);
    EXPECT_EQ(md.AMDeviceGetTransferredBytes(device), 2 * kPiece);
}

} // namespace
} // namespace krl::provider::testing
