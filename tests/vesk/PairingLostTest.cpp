// A pairing that another program ends: told, made again once, and the job goes on.
#include "tests/vesk/VeskTest.h"

#include "tests/support/PrivateBus.h"
#include "tests/support/Process.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <thread>

using virtualphone::parseFault;
using virtualphone::SessionKind;
using virtualphone::testing::isInstalled;
using virtualphone::testing::Process;
using virtualphone::testing::run;

namespace vesk::testing {
namespace {

class PairingLost : public VeskTest {
protected:
    PairingLost() {
        options.name = "My Phone";
        options.session = SessionKind::Ssl3;
    }

    size_t requestsOf(const std::string& name) {
        return log()
            .entries([&](const virtualphone::LogEntry& entry) { return entry.request == name; })
            .size();
    }

    // What the volume monitor of a desktop does when SSL 3.0 is beyond it.
    void unpairFromOutside() const {
        EXPECT_EQ(run({"idevicepair", "-u", phoneUdid_, "unpair"}).status, 0);
    }

    void plugInPaired() {
        plugIn();
        phoneUdid_ = phone().udid();
    }

private:
    std::string phoneUdid_;
};

TEST_F(PairingLost, BetweenTwoRunsIsMadeAgainAndTold) {
    plugInPaired();
    phone().forgetHosts();
    const VeskResult result = vesk({"add", local("a.m4r")});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.err, AllOf(HasSubstr("Another program had ended"), HasSubstr("doctor")));
    EXPECT_EQ(requestsOf("Pair"), 1u);
    const VeskResult next = vesk({"list"});
    EXPECT_THAT(next, ExitsWith(ExitCode::Success));
    EXPECT_THAT(next.err, IsEmpty());
    EXPECT_EQ(requestsOf("Pair"), 1u);
}

TEST_F(PairingLost, BetweenTwoRunsWithItsRecordIsMadeAgainWhereThePhoneWasWorkedOnBefore) {
    if (!isInstalled("idevicepair")) {
        GTEST_SKIP() << "idevicepair is not installed";
    }
    plugInPaired();
    ASSERT_THAT(vesk({"list"}), ExitsWith(ExitCode::Success));
    unpairFromOutside();
    ASSERT_EQ(requestsOf("DeletePairRecord"), 1u);
    const VeskResult result = vesk({"add", local("a.m4r")});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.err, HasSubstr("it was made again, and the work went on"));
    EXPECT_EQ(requestsOf("Pair"), 1u);
    EXPECT_EQ(listedNames(), std::set<std::string>{"a"});
}

TEST_F(PairingLost, OfAPhoneThatWasNeverWorkedOnIsThePersonsToMake) {
    options.paired = false;
    plugInPaired();
    EXPECT_THAT(vesk({"list"}), ExitsWith(ExitCode::NotPaired));
    EXPECT_EQ(requestsOf("Pair"), 0u);
}

TEST_F(PairingLost, ByVesksOwnUnpairIsThePersonsToMakeAgain) {
    plugInPaired();
    ASSERT_THAT(vesk({"list"}), ExitsWith(ExitCode::Success));
    ASSERT_THAT(vesk({"unpair"}), ExitsWith(ExitCode::Success));
    EXPECT_THAT(vesk({"list"}), ExitsWith(ExitCode::NotPaired));
    EXPECT_EQ(requestsOf("Pair"), 0u);
    ASSERT_THAT(vesk({"pair"}), ExitsWith(ExitCode::Success));
    phone().forgetHosts();
    bus().deletePairRecord(phone().udid());
    EXPECT_THAT(vesk({"list"}), ExitsWith(ExitCode::Success)) << "paired by vesk: worked on";
}

TEST_F(PairingLost, ThatTheOtherProgramMakesAnewIsNotMadeAgain) {
    plugInPaired();
    ASSERT_THAT(vesk({"list"}), ExitsWith(ExitCode::Success));
    // There is no record for a while, and then one that the phone knows.
    for (const char* reading : {"#1", "#2", "#3", "#4"}) {
        bus().faults().add(
            parseFault(std::string("usbmux/ReadPairRecord") + reading + "=status:2"));
    }
    const VeskResult result = vesk({"list"});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.err, HasSubstr("made one of its own; the work went on"));
    EXPECT_EQ(requestsOf("Pair"), 0u);
}

// Its program that opens phones cannot speak SSL 3.0: it ends the pairing and makes it anew, some
// ten times, and leaves the phone unpaired in the end.
TEST_F(PairingLost, ByTheFileManagersOwnProgramEndsNoSync) {
    const char* const elsewhere = std::getenv("KRL_GVFSD_AFC");
    const std::string program = elsewhere != nullptr ? elsewhere : "/usr/libexec/gvfsd-afc";
    if (!std::filesystem::exists(program)) {
        GTEST_SKIP() << program << " is not there (package gvfs-backends)";
    }
    plugInPaired();
    ASSERT_THAT(vesk({"list"}), ExitsWith(ExitCode::Success));
    const krl::testing::PrivateBus bus;
    VeskProcess fileManager({"host=" + phone().udid()},
                            {.environment = bus.environment(), .program = program});
    std::atomic<bool> hasGivenUp = false;
    std::thread untilItGivesUp([&] {
        fileManager.wait();
        hasGivenUp = true;
    });
    EXPECT_TRUE(log().waitFor([](const auto& entry) { return entry.request == "Unpair"; }));
    std::set<std::string> added;
    while (!hasGivenUp) {
        const std::string name = "tone" + std::to_string(added.size());
        EXPECT_THAT(vesk({"add", local(name + ".m4r")}), ExitsWith(ExitCode::Success));
        added.insert(name);
    }
    untilItGivesUp.join();
    EXPECT_EQ(listedNames(), added);
    EXPECT_GT(requestsOf("Unpair"), 1u);
    std::cout << added.size() << " syncs beside " << requestsOf("Unpair")
              << " ends of the pairing\n";
}

TEST_F(PairingLost, IsNotMadeAgainWhereThePhoneAsksForItsOwner) {
    options.passwordProtected = true;
    plugInPaired();
    phone().forgetHosts();
    const VeskResult result = vesk({"list"});
    EXPECT_THAT(result, ExitsWith(ExitCode::CannotOpen));
    EXPECT_THAT(result.err,
                AllOf(HasSubstr("cannot be made again"), HasSubstr("PasswordProtected")));
}

TEST_F(PairingLost, InTheMiddleOfASyncIsMadeAgainAndTheSyncGoesOn) {
    if (!isInstalled("idevicepair")) {
        GTEST_SKIP() << "idevicepair is not installed";
    }
    options.replyLatency = std::chrono::milliseconds(10);
    plugInPaired();
    VeskProcess sync({"add", local("a.m4r"), local("b.m4r"), local("c.m4r")});
    while (requestsOf("Write") < 1) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    unpairFromOutside();
    const VeskResult result = sync.wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.err, HasSubstr("it was made again, and the work went on"));
    EXPECT_EQ(requestsOf("Unpair"), 1u);
    EXPECT_EQ(requestsOf("Pair"), 1u);
    EXPECT_EQ(listedNames(), (std::set<std::string>{"a", "b", "c"}));
}

TEST_F(PairingLost, TwiceIsToldAndNotMadeAgain) {
    options.replyLatency = std::chrono::milliseconds(10);
    plugInPaired();
    std::atomic<bool> isOver = false;
    std::thread monitor([&] {
        while (!isOver) {
            phone().forgetHosts();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    const VeskResult result = vesk({"list"});
    isOver = true;
    monitor.join();
    EXPECT_THAT(result, Not(ExitsWith(ExitCode::Success)));
    EXPECT_THAT(result.err, HasSubstr("once more"));
    EXPECT_EQ(requestsOf("Pair"), 1u);
}

TEST_F(PairingLost, ByAProgramThatRunsIsDoctorsToName) {
    plugInPaired();
    EXPECT_THAT(vesk({"doctor"}).out, Not(HasSubstr("gvfs-afc-volume-monitor")));
    for (const std::string name : {"gvfs-afc-volume-monitor", "gvfsd-afc"}) {
        const std::filesystem::path program = temporaryFolder() / name;
        std::filesystem::copy_file("/bin/sleep", program);
        const Process running({program.string(), "60"});
        const VeskResult result = vesk({"doctor"});
        EXPECT_THAT(result, ExitsWith(ExitCode::ProblemsFound));
        EXPECT_THAT(
            result.out,
            AllOf(HasSubstr(name + " runs"),
                  HasSubstr("systemctl --user mask --now gvfs-afc-volume-monitor.service")));
    }
}

} // namespace
} // namespace vesk::testing
