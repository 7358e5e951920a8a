// devices, info and watch.
#include "tests/vesk/VeskTest.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <thread>

using testing::SizeIs;
using testing::StartsWith;

namespace vesk::testing {
namespace {

class Devices : public VeskTest {};

class Info : public VeskTest {};

class Watch : public VeskTest {};

/// How often the threads of a process have waited and gone on since it began.
size_t wakeUps(pid_t process) {
    constexpr std::string_view kField = "voluntary_ctxt_switches:";
    size_t count = 0;
    for (const auto& thread :
         std::filesystem::directory_iterator(fmt::format("/proc/{}/task", process))) {
        std::ifstream status(thread.path() / "status");
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with(kField)) {
                count += std::stoul(line.substr(kField.size()));
            }
        }
    }
    return count;
}

/// Whether a second passes in which a process does not wake up, within a minute.
bool comesToRest(pid_t process) {
    for (int seconds = 0; seconds < 60; ++seconds) {
        const size_t before = wakeUps(process);
        std::this_thread::sleep_for(std::chrono::seconds{1});
        if (wakeUps(process) == before) {
            return before > 0;
        }
    }
    return false;
}

} // namespace

TEST_F(Devices, ShowsEachDeviceWithWhatStandsInItsWay) {
    options.name = "My Phone";
    plugIn();
    const auto pod = makePhone("My iPod", {.deviceClass = "iPod"});
    const auto stranger = makePhone("New Phone", {.paired = false});
    bus().plug(pod);
    bus().plug(stranger);

    const VeskResult text = vesk({"devices"});
    EXPECT_THAT(text, ExitsWith(ExitCode::Success));
    EXPECT_THAT(text.out, StartsWith("UDID"));
    EXPECT_THAT(text.out,
                AllOf(HasSubstr("My Phone"), HasSubstr("not an iPhone"), HasSubstr("not paired")));
    EXPECT_THAT(text.err, IsEmpty());

    const auto devices = vesk({"devices", "--json"}).json().at("devices");
    ASSERT_THAT(devices, SizeIs(3));
    std::map<std::string, nlohmann::json> byName;
    for (const auto& device : devices) {
        byName[device.at("name").get<std::string>()] = device;
    }
    EXPECT_EQ(byName.at("My Phone"), (nlohmann::json{{"udid", phone().udid()},
                                                     {"name", "My Phone"},
                                                     {"class", "iPhone"},
                                                     {"firmware", "1.1.1"},
                                                     {"paired", true},
                                                     {"usable", true}}));
    EXPECT_EQ(byName.at("My iPod").at("usable"), false);
    EXPECT_EQ(byName.at("My iPod").at("problem"), "not an iPhone");
    EXPECT_EQ(byName.at("New Phone").at("paired"), false);
    EXPECT_EQ(byName.at("New Phone").at("problem"), "not paired");
}

TEST_F(Devices, ChangesNothingOnAPhone) {
    plugIn();
    const auto before = everything();
    EXPECT_THAT(vesk({"devices"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(everything(), before);
}

TEST_F(Devices, NoneAttachedIsAnErrorOfItsOwn) {
    const VeskResult result = vesk({"devices", "--wait", "0.1"});
    EXPECT_THAT(result, ExitsWith(ExitCode::NoPhone));
    EXPECT_THAT(result.err, HasSubstr("no device is attached"));
    EXPECT_THAT(result.out, IsEmpty());
}

TEST_F(Devices, ADeviceThatRefusesConnectionsIsShownWithTheReason) {
    plugIn();
    phone().faults().add(virtualphone::parseFault("lockdown#1+=drop"));
    const VeskResult result = vesk({"devices"});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.out, HasSubstr("does not answer"));
}

TEST_F(Info, AHiccupWhileThePhoneIsAnnouncedIsNoFailure) {
    plugIn();
    putRingtones({{"KDAQ.m4r", "Marimba", "1"}});
    phone().faults().add(virtualphone::parseFault("lockdown/ValidatePair=drop"));
    EXPECT_EQ(listedNames(), std::set<std::string>{"Marimba"});
}

TEST_F(Info, ShowsThePhoneAndItsRingtones) {
    options.name = "My Phone";
    options.freeBytes = 5 * 1024 * 1024;
    plugIn();
    putRingtones({{"KDAQ.m4r", "Marimba", "1"}, {"QJHE.m4r", "Harp", "2"}});
    const VeskResult text = vesk({"info"});
    EXPECT_THAT(text, ExitsWith(ExitCode::Success));
    EXPECT_THAT(text.out, AllOf(HasSubstr("My Phone"), HasSubstr("1.1.1"), HasSubstr("5.0 MiB"),
                                HasSubstr("older"), HasSubstr(phone().udid())));
    const auto json = vesk({"info", "--json"}).json();
    EXPECT_EQ(json.at("firmwareNumber"), 1011);
    EXPECT_EQ(json.at("layout"), "older");
    EXPECT_EQ(json.at("freeBytes"), 5 * 1024 * 1024);
    EXPECT_EQ(json.at("catalogue"), "readable");
    EXPECT_EQ(json.at("ringtones"), 2);
    EXPECT_EQ(json.at("ringtoneBytes"), 16 + 13);
}

TEST_F(Info, SaysWhetherThereIsACatalogueAndWhetherItCanBeRead) {
    plugIn();
    EXPECT_EQ(vesk({"info", "--json"}).json().at("catalogue"), "none yet");
    put(kCatalogue, "not a property list");
    const VeskResult result = vesk({"info", "--json"});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_EQ(result.json().at("catalogue"), "unreadable");
}

TEST_F(Watch, ShowsArrivalsAndRemovalsUntilCtrlC) {
    options.name = "My Phone";
    plugIn();
    VeskProcess watch({"watch"});
    watch.waitForText("attached");
    const auto pod = makePhone("My iPod", {.deviceClass = "iPod"});
    const uint32_t podId = bus().plug(pod);
    watch.waitForText("My iPod");
    bus().unplug(podId);
    watch.waitForText("removed ");
    watch.signal(SIGINT);
    const VeskResult result = watch.wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.out, HasSubstr("attached " + phone().udid() + "  My Phone"));
    EXPECT_THAT(result.out, HasSubstr("(not an iPhone)"));
    EXPECT_THAT(result.out, HasSubstr("removed  " + pod->udid() + "  My iPod"));
}

TEST_F(Watch, SleepsWhileNothingHappens) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the sanitizer has a thread of its own that wakes up";
#endif
    plugIn();
    VeskProcess watch({"watch"});
    watch.waitForText("attached");
    EXPECT_TRUE(comesToRest(watch.process()));
    bus().unplug(id());
    watch.waitForText("removed");
    watch.signal(SIGINT);
    EXPECT_THAT(watch.wait(), ExitsWith(ExitCode::Success));
}

TEST_F(Watch, EndsAtOnceAlsoWhileADeviceIsSilent) {
    plugIn();
    phone().faults().goSilent();
    // Waited for, a call would end in an hour, and the test in a minute.
    VeskProcess watch({"watch", "--timeout", "3600"});
    ASSERT_TRUE(log().waitFor([](const auto& entry) { return entry.service == "lockdown"; }));
    watch.signal(SIGINT);
    EXPECT_THAT(watch.wait(), ExitsWith(ExitCode::Success));
}

TEST_F(Watch, EndsWithTheNextEventWhenItsReaderHasGone) {
    plugIn();
    const std::string command = std::string(KRL_VESK) + " --json watch | head -n 1";
    VeskProcess shell({"-c", command}, {.environment = {}, .program = "/bin/sh"});
    shell.waitForText("attached");
    bus().unplug(id());
    const VeskResult result = shell.wait();
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.err, Not(HasSubstr("error")));
}

TEST_F(Watch, GivesOneJsonObjectALine) {
    plugIn();
    VeskProcess watch({"--json", "watch"});
    watch.waitForText("attached");
    bus().unplug(id());
    watch.waitForText("removed");
    watch.signal(SIGINT);
    const VeskResult result = watch.wait();
    std::istringstream lines(result.out);
    std::string first;
    std::string second;
    std::string third;
    std::getline(lines, first);
    std::getline(lines, second);
    EXPECT_EQ(nlohmann::json::parse(first).at("event"), "attached");
    EXPECT_EQ(nlohmann::json::parse(second).at("event"), "removed");
    EXPECT_EQ(nlohmann::json::parse(second).at("udid"), phone().udid());
    EXPECT_FALSE(std::getline(lines, third)) << third;
}

} // namespace vesk::testing
