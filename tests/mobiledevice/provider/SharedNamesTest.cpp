// Two phones whose pair records another tool made: to NSS their certificates are one and the same.

#include "tests/mobiledevice/provider/KeptPairRecord.h"
#include "tests/mobiledevice/provider/ProviderFixture.h"
#include "tests/support/Process.h"
#include "tests/support/TemporaryFolder.h"

#include "nss/Certificates.h"
#include "nss/Runtime.h"

#include <atomic>
#include <optional>

namespace krl::provider::testing {
namespace {

using virtualphone::testing::isInstalled;
using virtualphone::testing::Process;
using virtualphone::testing::run;
using virtualphone::testing::TemporaryFolder;

constexpr const char* kSocketVariable = "USBMUXD_SOCKET_ADDRESS";

// The phones are in a process of their own, as NSS's table would be theirs too in this one.
class TwoPhones : public ::testing::Test {
protected:
    void SetUp() override {
        if (!isInstalled("idevicepair")) {
            GTEST_SKIP() << "idevicepair is not installed";
        }
        const std::string socket = folder_.path() / "mux";
        phones_.emplace(std::vector<std::string>{
            KRL_VIRTUALPHONE, "--socket", socket, "--session", "modern", "--firmware", "3.0",
            "--root", folder_.path() / "one", "--udid", kUdids[0], "--root", folder_.path() / "two",
            "--udid", kUdids[1]});
        ASSERT_TRUE(phones_->readUntil(std::string("export ") + kSocketVariable));
        ::setenv(kSocketVariable, ("UNIX:" + socket).c_str(), 1);
        for (const std::string& udid : kUdids) {
            ASSERT_EQ(run({"idevicepair", "-u", udid, "unpair"}).status, 0);
            ASSERT_EQ(run({"idevicepair", "-u", udid, "pair"}).status, 0);
        }
        watcher_.emplace();
        ASSERT_TRUE(watcher_->waitForEvents(2));
        one = watcher_->events[0].device;
        two = watcher_->events[1].device;
    }

    void TearDown() override {
        md.AMDeviceSetCallTimeout(0);
        watcher_.reset();
        ::unsetenv(kSocketVariable);
    }

    int32_t start(am_device* device) const {
        if (const int32_t status = md.AMDeviceConnect(device)) {
            return status;
        }
        const int32_t status = md.AMDeviceValidatePairing(device);
        return status == 0 ? md.AMDeviceStartSession(device) : status;
    }

    int32_t stop(am_device* device) const {
        const int32_t status = md.AMDeviceStopSession(device);
        return status == 0 ? md.AMDeviceDisconnect(device) : status;
    }

    const MobileDeviceTable& md = provider();
    am_device* one = nullptr;
    am_device* two = nullptr;
    const std::string kUdids[2] = {std::string(40, 'a'), std::string(40, 'b')};

private:
    TemporaryFolder folder_;
    std::optional<Process> phones_;
    std::optional<Watcher<0>> watcher_;
};

TEST_F(TwoPhones, PairedByAnotherToolHaveCertificatesOfOneIssuerAndSerialNumber) {
    ASSERT_TRUE(nss::start());
    const auto certificate = [this](int phone) {
        return nss::parseCertificate(
            dataAt(readKeptRecord(kUdids[phone]), "DeviceCertificate").value());
    };
    const nss::Certificate first = certificate(0);
    const nss::Certificate second = certificate(1);
    EXPECT_EQ(SECITEM_CompareItem(&first->derIssuer, &second->derIssuer), SECEqual);
    EXPECT_EQ(SECITEM_CompareItem(&first->serialNumber, &second->serialNumber), SECEqual);
    EXPECT_FALSE(nss::haveSameKey(first.get(), second.get()));
}

TEST_F(TwoPhones, OneWaitsForTheOthersSessionAndThenHasItsOwn) {
    ASSERT_EQ(start(one), 0);
    std::atomic<bool> isDone = false;
    int32_t status = -1;
    std::thread other([&] {
        status = start(two);
        isDone = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(isDone);
    EXPECT_EQ(stop(one), 0);
    other.join();
    EXPECT_EQ(status, 0);
    EXPECT_EQ(stop(two), 0);
}

TEST_F(TwoPhones, HaveAllTheSessionsThatTheyAskForAtOnce) {
    std::atomic<int> failures = 0;
    const auto work = [&](am_device* phone) {
        for (int round = 0; round < 8; ++round) {
            const int32_t started = start(phone);
            const int32_t stopped = started == 0 ? stop(phone) : 0;
            EXPECT_EQ(started, 0) << round;
            EXPECT_EQ(stopped, 0) << round;
            failures += started == 0 && stopped == 0 ? 0 : 1;
        }
    };
    std::thread other(work, two);
    work(one);
    other.join();
    EXPECT_EQ(failures, 0);
}

TEST_F(TwoPhones, OneThatWaitsLongerThanThePatienceGivesUp) {
    ASSERT_EQ(start(one), 0);
    md.AMDeviceSetCallTimeout(300);
    EXPECT_EQ(start(two), kAMDTimedOut);
    md.AMDeviceSetCallTimeout(0);
    EXPECT_EQ(stop(one), 0);
    EXPECT_EQ(start(two), 0);
}

TEST_F(TwoPhones, OneThatWaitsIsCancelled) {
    ASSERT_EQ(start(one), 0);
    int32_t status = -1;
    std::thread other([&] { status = start(two); });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    md.AMDeviceCancelCalls(two);
    other.join();
    EXPECT_EQ(status, kAMDCancelled);
}

TEST_F(TwoPhones, ASessionThatFailedIsNotWaitedFor) {
    changeKeptRecord(kUdids[0], [](const PlistRef& record) {
        setData(record, "HostCertificate", dataAt(record, "DeviceCertificate").value());
    });
    EXPECT_NE(start(one), 0);
    EXPECT_EQ(start(two), 0);
}

} // namespace
} // namespace krl::provider::testing
