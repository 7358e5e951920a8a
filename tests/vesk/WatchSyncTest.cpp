// vesk watch --sync: a folder follows its phone.
#include "tests/vesk/VeskTest.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace vesk::testing {
namespace {

namespace fs = std::filesystem;
using virtualphone::LogEntry;
using virtualphone::testing::VirtualPhoneTest;

/// A request that hold() is about.
bool isHeld(const LogEntry& entry) {
    return entry.fault == "delay";
}

class WatchSync : public VeskTest {
protected:
    void SetUp() override {
        options.name = "My Phone";
        fs::create_directories(localFolder());
    }

    /// Copies a sample into the folder.
    void put(const std::string& sample) const {
        fs::copy_file(fs::path(KRL_SAMPLES) / sample, fs::path(localFolder()) / sample);
    }

    void takeOut(const std::string& sample) const { fs::remove(fs::path(localFolder()) / sample); }

    std::vector<std::string> watchCommand(std::vector<std::string> more = {}) const {
        more.insert(more.begin(), {"watch", "--sync", localFolder()});
        return more;
    }

    /// The phone thinks about the first upload for so long.
    void hold(const std::string& milliseconds) {
        phone().faults().add(virtualphone::parseFault("afc/Write=delay:" + milliseconds));
    }

    /// Ends a watch as a person does.
    static VeskResult end(VeskProcess& watch) {
        watch.signal(SIGINT);
        return watch.wait();
    }

    static std::set<std::string> namesOn(const virtualphone::Phone& other) {
        std::set<std::string> names;
        const auto list = vesk({"list", "--json", "--udid", other.udid()}).json();
        for (const auto& ringtone : list.at("ringtones")) {
            names.insert(ringtone.at("name").get<std::string>());
        }
        return names;
    }
};

/// The system call in which a thread is, and its arguments; empty while it is in none.
std::vector<uint64_t> systemCallOf(const fs::path& thread) {
    std::ifstream file(thread / "syscall");
    std::vector<uint64_t> numbers;
    for (std::string word; file >> word && word != "running";) {
        numbers.push_back(std::stoull(word, nullptr, 0));
    }
    return numbers;
}

/// Whether it is one that waits for as long as it takes.
bool waitsWithoutLimit(const std::vector<uint64_t>& call) {
    constexpr uint64_t kRead = 0;
    constexpr uint64_t kPoll = 7;
    constexpr uint64_t kReceiveMessage = 47;
    constexpr uint64_t kFutex = 202;
    constexpr uint64_t kEpollWait = 232;
    if (call.size() < 7) {
        return false;
    }
    const auto isForever = [](uint64_t timeout) { return static_cast<int32_t>(timeout) == -1; };
    switch (call[0]) {
    case kRead:
    case kReceiveMessage:
        return true;
    case kPoll:
        return isForever(call[3]);
    case kFutex:
    case kEpollWait:
        return call[0] == kFutex ? call[4] == 0 : isForever(call[4]);
    default:
        return false;
    }
}

bool allWaitWithoutLimit(pid_t process) {
    const fs::directory_iterator threads(fmt::format("/proc/{}/task", process));
    return std::all_of(begin(threads), end(threads), [](const auto& thread) {
        return waitsWithoutLimit(systemCallOf(thread.path()));
    });
}

std::vector<nlohmann::json> objectsIn(const std::string& lines) {
    std::vector<nlohmann::json> objects;
    std::istringstream text(lines);
    for (std::string line; std::getline(text, line);) {
        objects.push_back(nlohmann::json::parse(line));
    }
    return objects;
}

} // namespace

TEST_F(WatchSync, APhoneThatIsThereAndOneThatComesAgain) {
    put("harp.m4a");
    put("tick.wav");
    plugIn();
    VeskProcess watch(watchCommand());
    watch.waitForText("2 added");
    EXPECT_THAT(listedNames(), UnorderedElementsAre("Harp", "Tick Tock"));
    bus().unplug(id());
    watch.waitForText("removed ");
    bus().plug(phonePointer());
    watch.waitForText("nothing to do, it has 2 ringtones");
    const VeskResult result = end(watch);
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.err, Not(HasSubstr("error")));
}

TEST_F(WatchSync, APhoneThatComesLater) {
    put("harp.m4a");
    VeskProcess watch(watchCommand());
    watch.waitForText("watching for phones and changes of");
    plugIn();
    watch.waitForText("1 added");
    EXPECT_THAT(listedNames(), ElementsAre("Harp"));
    EXPECT_THAT(end(watch), ExitsWith(ExitCode::Success));
}

TEST_F(WatchSync, FilesThatComeAndGo) {
    put("harp.m4a");
    plugIn();
    VeskProcess watch(watchCommand());
    watch.waitForText("It has 1 ringtone now");
    put("tick.wav");
    watch.waitForText("It has 2 ringtones now");
    EXPECT_THAT(listedNames(), UnorderedElementsAre("Harp", "Tick Tock"));
    takeOut("harp.m4a");
    watch.waitForText("1 removed");
    EXPECT_THAT(listedNames(), ElementsAre("Tick Tock"));
    EXPECT_THAT(end(watch), ExitsWith(ExitCode::Success));
}

TEST_F(WatchSync, OfSeveralPhonesNoneIsChosen) {
    put("harp.m4a");
    plugIn();
    VeskProcess watch(watchCommand());
    watch.waitForText("It has 1 ringtone now");
    const auto other = makePhone("Other");
    const uint32_t otherId = bus().plug(other);
    watch.waitForText("2 phones are attached");
    watch.waitForText("--udid");
    EXPECT_THAT(namesOn(*other), IsEmpty());
    bus().unplug(otherId);
    watch.waitForText("removed ");
    put("tick.wav");
    watch.waitForText("It has 2 ringtones now");
    EXPECT_THAT(end(watch), ExitsWith(ExitCode::Success));
}

TEST_F(WatchSync, WithAUdidThatPhoneAlone) {
    put("harp.m4a");
    plugIn();
    const auto other = makePhone("Other");
    VeskProcess watch(watchCommand({"--udid", other->udid()}));
    watch.waitForText("watching for phones");
    bus().plug(other);
    watch.waitForText("1 added");
    EXPECT_THAT(namesOn(*other), ElementsAre("Harp"));
    EXPECT_THAT(namesOn(phone()), IsEmpty());
    const VeskResult result = end(watch);
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.out, Not(HasSubstr("My Phone")));
}

TEST_F(WatchSync, ADeviceThatIsNoPhoneIsPassedOver) {
    put("harp.m4a");
    VeskProcess watch(watchCommand());
    watch.waitForText("watching for phones");
    bus().plug(makePhone("My iPod", {.deviceClass = "iPod"}));
    watch.waitForText("My iPod");
    plugIn();
    watch.waitForText("1 added");
    const VeskResult result = end(watch);
    EXPECT_THAT(result.err, Not(HasSubstr("error")));
}

TEST_F(WatchSync, AFolderThatVanishesAndComesBack) {
    put("harp.m4a");
    plugIn();
    VeskProcess watch(watchCommand());
    watch.waitForText("It has 1 ringtone now");
    fs::remove_all(localFolder());
    watch.waitForText("cannot be read");
    EXPECT_THAT(listedNames(), ElementsAre("Harp"));
    fs::create_directory(localFolder());
    put("harp.m4a");
    put("tick.wav");
    watch.waitForText("It has 2 ringtones now");
    EXPECT_THAT(end(watch), ExitsWith(ExitCode::Success));
}

TEST_F(WatchSync, AnEmptyFolderRemovesNothing) {
    put("harp.m4a");
    plugIn();
    VeskProcess watch(watchCommand());
    watch.waitForText("It has 1 ringtone now");
    takeOut("harp.m4a");
    watch.waitForText("repeat with --yes");
    EXPECT_THAT(listedNames(), ElementsAre("Harp"));
    EXPECT_THAT(end(watch), ExitsWith(ExitCode::Success));
    VeskProcess sure(watchCommand({"--yes"}));
    sure.waitForText("1 removed");
    EXPECT_THAT(listedNames(), IsEmpty());
    EXPECT_THAT(end(sure), ExitsWith(ExitCode::Success));
}

TEST_F(WatchSync, AFullPhoneIsTriedAgainWithTheNextChange) {
    put("harp.m4a");
    options.freeBytes = 100;
    plugIn();
    VeskProcess watch(watchCommand());
    watch.waitForText("too little space");
    phone().setFreeBytes(10'000'000);
    put("tick.wav");
    watch.waitForText("2 added");
    EXPECT_THAT(listedNames(), UnorderedElementsAre("Harp", "Tick Tock"));
    EXPECT_THAT(end(watch), ExitsWith(ExitCode::Success));
}

TEST_F(WatchSync, AnUnreadableCatalogueIsTriedAgainWhenThePhoneComesAgain) {
    put("harp.m4a");
    plugIn();
    VirtualPhoneTest::put(kCatalogue, "no list");
    VeskProcess watch(watchCommand());
    watch.waitForText("vesk rebuild");
    EXPECT_EQ(contents(kCatalogue), "no list");
    fs::remove(onDisk(kCatalogue));
    replug();
    watch.waitForText("1 added");
    EXPECT_THAT(end(watch), ExitsWith(ExitCode::Success));
}

TEST_F(WatchSync, ALockThatIsHeldDoesNotEndIt) {
    put("harp.m4a");
    plugIn();
    ASSERT_TRUE(phone().holdSyncLock());
    VeskProcess watch(watchCommand());
    watch.waitForText("going on without it");
    watch.waitForText("1 added");
    EXPECT_THAT(end(watch), ExitsWith(ExitCode::Success));
}

TEST_F(WatchSync, APhoneThatIsPulledOutInTheMiddle) {
    put("harp.m4a");
    plugIn();
    hold("60000");
    VeskProcess watch(watchCommand());
    ASSERT_TRUE(log().waitFor(isHeld));
    bus().unplug(id());
    watch.waitForText("pulled out");
    watch.waitForText("removed ");
    bus().plug(phonePointer());
    watch.waitForText("It has 1 ringtone now");
    EXPECT_THAT(listedNames(), ElementsAre("Harp"));
    EXPECT_THAT(end(watch), ExitsWith(ExitCode::Success));
}

TEST_F(WatchSync, AFileThatComesDuringASyncIsNotMissed) {
    put("harp.m4a");
    plugIn();
    hold("500");
    VeskProcess watch(watchCommand());
    ASSERT_TRUE(log().waitFor(isHeld));
    put("tick.wav");
    watch.waitForText("It has 1 ringtone now");
    watch.waitForText("It has 2 ringtones now");
    EXPECT_THAT(end(watch), ExitsWith(ExitCode::Success));
}

TEST_F(WatchSync, CtrlCInTheMiddleCancelsAndEnds) {
    put("harp.m4a");
    plugIn();
    hold("60000");
    VeskProcess watch(watchCommand());
    ASSERT_TRUE(log().waitFor(isHeld));
    const VeskResult result = end(watch);
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.err, AllOf(HasSubstr("cancelling after this step"),
                                  HasSubstr("0 of 1 ringtone had been uploaded")));
    EXPECT_THAT(listedNames(), IsEmpty());
    EXPECT_TRUE(phone().holdSyncLock()) << "the lock was not given back";
}

TEST_F(WatchSync, CtrlCWithoutAPhoneEndsWithoutAWord) {
    VeskProcess watch(watchCommand());
    watch.waitForText("watching for phones");
    const VeskResult result = end(watch);
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_THAT(result.err, Not(HasSubstr("cancelled")));
}

TEST_F(WatchSync, GivesOneJsonObjectALine) {
    put("harp.m4a");
    plugIn();
    VeskProcess watch(watchCommand({"--json"}));
    watch.waitForText("\"done\"");
    takeOut("harp.m4a");
    watch.waitForText("needs-yes");
    bus().unplug(id());
    watch.waitForText("\"removed\"");
    const VeskResult result = end(watch);
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    const auto objects = objectsIn(result.out);
    ASSERT_EQ(objects.size(), 4U) << result.out;
    EXPECT_EQ(objects[0].at("event"), "attached");
    EXPECT_EQ(objects[1].at("event"), "sync");
    EXPECT_EQ(objects[1].at("result"), "done");
    EXPECT_EQ(objects[1].at("phone").at("udid"), phone().udid());
    EXPECT_EQ(objects[2].at("event"), "sync");
    EXPECT_EQ(objects[2].at("error").at("name"), "needs-yes");
    EXPECT_EQ(objects[3].at("event"), "removed");
}

TEST_F(WatchSync, ADryRunChangesNothing) {
    put("harp.m4a");
    plugIn();
    const auto before = everything();
    VeskProcess watch(watchCommand({"--dry-run"}));
    watch.waitForText("nothing was changed");
    EXPECT_THAT(end(watch), ExitsWith(ExitCode::Success));
    EXPECT_EQ(everything(), before);
}

TEST_F(WatchSync, NoThreadWaitsForATime) {
#ifndef __x86_64__
    GTEST_SKIP() << "system calls have other numbers on this processor";
#endif
    if (!std::ifstream("/proc/self/syscall")) {
        GTEST_SKIP() << "this system does not tell in which system call a thread is";
    }
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the sanitizer has a thread of its own that wakes up";
#endif
    put("harp.m4a");
    plugIn();
    VeskProcess watch(watchCommand());
    watch.waitForText("1 added");
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    bool allWait = false;
    while (!allWait && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds{10});
        allWait = allWaitWithoutLimit(watch.process());
    }
    EXPECT_TRUE(allWait);
}

TEST_F(WatchSync, AFolderThatCannotBeWatchedIsSaidAtOnce) {
    EXPECT_THAT(vesk({"watch", "--sync", localFolder() + "/missing"}),
                ExitsWith(ExitCode::UnreadableFile));
    EXPECT_THAT(vesk({"watch", "--sync", local("file.m4r")}), ExitsWith(ExitCode::UnreadableFile));
}

TEST_F(WatchSync, OptionsOfASyncGoWithAFolderOnly) {
    for (const char* const option : {"--yes", "--force", "--dry-run", "--no-backup", "--rebuild"}) {
        const VeskResult result = vesk({"watch", option});
        EXPECT_THAT(result, ExitsWith(ExitCode::Usage)) << option;
        EXPECT_THAT(result.err, HasSubstr("--sync DIR")) << option;
    }
    EXPECT_THAT(vesk(watchCommand({"--sync", localFolder()})), ExitsWith(ExitCode::Usage));
    EXPECT_THAT(vesk({"watch", "--sync"}), ExitsWith(ExitCode::Usage));
    EXPECT_THAT(vesk({"watch", localFolder()}), ExitsWith(ExitCode::Usage));
}

} // namespace vesk::testing
