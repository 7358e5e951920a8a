// The library that others use for the same phones, and its tools, against the virtual phone.

#include "tests/support/Process.h"
#include "tests/support/VirtualPhoneFixture.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <unistd.h>

namespace virtualphone::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

/// A client in a process of its own, which finds the fixture's phone through its environment.
class PeerLibrary : public VirtualPhoneTest {
protected:
    static std::vector<std::string> client(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), KRL_PEER_CLIENT);
        return arguments;
    }

    static std::string output(const std::vector<std::string>& arguments) {
        const Outcome outcome = run(client(arguments));
        EXPECT_EQ(outcome.status, 0) << outcome.output;
        return outcome.output;
    }
};

TEST_F(PeerLibrary, Lists) {
    put("/folder/b.mp3", "x");
    put("/folder/a.m4r", "x");
    EXPECT_EQ(output({"list", "/folder"}), ".\n..\na.m4r\nb.mp3\n");
}

TEST_F(PeerLibrary, WritesAndReadsBackInPiecesOfAnySize) {
    for (const char* const piece : {"1000", "32768", "65536", "1048576", "4194304"}) {
        EXPECT_THAT(output({"write", "/file", "5000000", piece}), StartsWith("written 5000000\n"));
        EXPECT_EQ(std::filesystem::file_size(onDisk("/file")), 5'000'000U);
        EXPECT_EQ(output({"check", "/file", "5000000"}), "same\n") << piece;
    }
}

TEST_F(PeerLibrary, MakesRenamesAndRemoves) {
    put("/a", "text");
    EXPECT_EQ(output({"mkdir", "/new"}), "0\n");
    EXPECT_EQ(output({"mkdir", "/new"}), "16\n");
    EXPECT_EQ(output({"rename", "/a", "/new/b"}), "0\n");
    EXPECT_EQ(contents("/new/b"), "text");
    EXPECT_EQ(output({"rename", "/a", "/new/b"}), "8\n");
    EXPECT_EQ(output({"truncate", "/new/b", "2"}), "0\n");
    EXPECT_EQ(output({"read", "/new/b"}), "te\n");
    EXPECT_EQ(output({"link", "new/b", "/soft"}), "0\n");
    EXPECT_THAT(output({"info", "/soft"}), HasSubstr("LinkTarget=new/b\n"));
    EXPECT_EQ(output({"remove", "/new"}), "33\n") << "its own number for: not empty";
    EXPECT_EQ(output({"remove", "/new/b"}), "0\n");
    EXPECT_EQ(output({"remove", "/new"}), "0\n");
}

TEST_F(PeerLibrary, ReadsInfo) {
    put("/f", "12345");
    EXPECT_THAT(output({"info", "/f"}), HasSubstr("st_size=5\n"));
    EXPECT_THAT(output({"info", "/f"}), HasSubstr("st_ifmt=S_IFREG\n"));
    phone().setFreeBytes(123456789);
    EXPECT_THAT(output({"device-info"}), HasSubstr("FSFreeBytes=123456789\n"));
    EXPECT_THAT(output({"device-info"}), HasSubstr("Model=iPhone1,1\n"));
}

TEST_F(PeerLibrary, LocksFromTwoConnections) {
    EXPECT_EQ(output({"lock", "/com.apple.itunes.lock_sync"}),
              "first 0\nsecond 19\nunlock 0\nsecond 0\nclose 0\nfirst 0\n");
}

TEST_F(PeerLibrary, FindsTheSyncLockHeld) {
    phone().holdSyncLock();
    EXPECT_THAT(output({"lock", "/com.apple.itunes.lock_sync"}), StartsWith("first 19\n"));
}

TEST_F(PeerLibrary, Posts) {
    EXPECT_EQ(output({"post", "one", "two"}), "posted\n");
    ASSERT_TRUE(log().waitFor([](const LogEntry& entry) { return entry.request == "Shutdown"; }));
    const auto posts =
        log().entries([](const LogEntry& entry) { return entry.request == "PostNotification"; });
    ASSERT_EQ(posts.size(), 2U);
    EXPECT_EQ(posts[0].name, "one");
    EXPECT_EQ(posts[1].name, "two");
}

TEST_F(PeerLibrary, Observes) {
    Process observer(client({"observe", "com.example.news"}));
    ASSERT_TRUE(observer.readUntil("observing"));
    ASSERT_TRUE(log().waitFor(
        [](const LogEntry& entry) { return entry.request == "ObserveNotification"; }));
    phone().post("com.example.news");
    EXPECT_EQ(observer.readLine(), "got com.example.news");
    EXPECT_EQ(observer.wait(), 0);
}

TEST_F(PeerLibrary, HearsOfPhonesThatComeAndGo) {
    const auto other = makePhone("other");
    Process watcher(client({"events", "4"}));
    EXPECT_EQ(watcher.readLine(), "add " + phone().udid());
    const uint32_t otherId = bus().plug(other);
    EXPECT_EQ(watcher.readLine(), "add " + other->udid());
    bus().unplug(id());
    EXPECT_EQ(watcher.readLine(), "remove " + phone().udid());
    bus().unplug(otherId);
    EXPECT_EQ(watcher.readLine(), "remove " + other->udid());
    EXPECT_EQ(watcher.wait(), 0);
}

TEST_F(PeerLibrary, IsToldOfAFullDisk) {
    phone().setFreeBytes(1000);
    const Outcome outcome = run(client({"write", "/file", "5000", "5000"}));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.output, HasSubstr("write failed: 18"));
}

/// The tools as a person types them, under the program.
class PeerTools : public ::testing::Test {
protected:
    std::string root() const { return (folder_.path() / "phone").string(); }

    const std::filesystem::path& folder() const { return folder_.path(); }

    Outcome withPhone(std::vector<std::string> options,
                      const std::vector<std::string>& tool) const {
        options.insert(options.begin(), {KRL_VIRTUALPHONE, "--root", root()});
        options.emplace_back("--");
        options.insert(options.end(), tool.begin(), tool.end());
        return run(options);
    }

    const std::string udid = "0123456789abcdef0123456789abcdef01234567";

private:
    TemporaryFolder folder_;
};

#define NEEDS(tool)                                                                                \
    if (!isInstalled(tool)) {                                                                      \
        GTEST_SKIP() << tool << " is not installed";                                               \
    }

TEST_F(PeerTools, IdeviceIdListsPhones) {
    NEEDS("idevice_id");
    const Outcome outcome = withPhone({"--udid", udid}, {"idevice_id", "-l"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, udid + "\n");
}

TEST_F(PeerTools, IdeviceIdListsSeveralPhones) {
    NEEDS("idevice_id");
    const std::string other(40, 'e');
    const Outcome outcome =
        withPhone({"--udid", udid, "--root", (folder() / "other").string(), "--udid", other},
                  {"idevice_id", "-l"});
    EXPECT_EQ(outcome.output, udid + "\n" + other + "\n");
}

TEST_F(PeerTools, IdeviceinfoShowsTheValues) {
    NEEDS("ideviceinfo");
    const Outcome outcome =
        withPhone({"--firmware", "1.1.2", "--name", "My Phone"}, {"ideviceinfo"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.output, HasSubstr("DeviceName: My Phone\n"));
    EXPECT_THAT(outcome.output, HasSubstr("DeviceClass: iPhone\n"));
    EXPECT_THAT(outcome.output, HasSubstr("ProductVersion: 1.1.2\n"));
    EXPECT_THAT(outcome.output, HasSubstr("BuildVersion: 3B48b\n"));
}

TEST_F(PeerTools, IdeviceinfoShowsTheMediaLibrarysDomain) {
    NEEDS("ideviceinfo");
    const Outcome outcome = withPhone({}, {"ideviceinfo", "-q", "com.apple.mobile.iTunes"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.output, HasSubstr("FamilyID: 10001\n"));
    EXPECT_THAT(outcome.output, ::testing::Not(HasSubstr("DeviceName")));
}

TEST_F(PeerTools, IdeviceinfoAsksWhatAPhoneIsAsked) {
    NEEDS("ideviceinfo");
    const std::string log = (folder() / "log").string();
    withPhone({"--log", log}, {"ideviceinfo"});
    std::ifstream lines(log);
    std::vector<std::string> requests;
    for (std::string line; std::getline(lines, line);) {
        const std::string key = "\"request\":\"";
        const size_t start = line.find(key) + key.size();
        requests.push_back(line.substr(start, line.find('"', start) - start));
    }
    EXPECT_THAT(requests,
                ::testing::ElementsAre("ListDevices", "Connect", "QueryType", "GetValue",
                                       "ReadPairRecord", "ReadPairRecord", "ValidatePair",
                                       "ReadBUID", "StartSession", "GetValue", "StopSession"));
}

TEST_F(PeerTools, IdevicenameReadsAndSets) {
    NEEDS("idevicename");
    const Outcome outcome = withPhone({"--name", "First"},
                                      {"sh", "-c", "idevicename; idevicename Second; idevicename"});
    EXPECT_THAT(outcome.output, StartsWith("First\n"));
    EXPECT_THAT(outcome.output, ::testing::EndsWith("\nSecond\n"));
}

TEST_F(PeerTools, IdevicepairValidates) {
    NEEDS("idevicepair");
    const Outcome outcome = withPhone({"--udid", udid}, {"idevicepair", "validate"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "SUCCESS: Validated pairing with device " + udid + "\n");
}

TEST_F(PeerTools, IdevicepairPairsAnUnpairedPhoneForGood) {
    NEEDS("idevicepair");
    const Outcome outcome =
        withPhone({"--unpaired"}, {"sh", "-c",
                                   "idevicepair pair && idevicepair validate && idevicename && "
                                   "idevicepair unpair"});
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("SUCCESS: Paired"));
    EXPECT_THAT(outcome.output, HasSubstr("SUCCESS: Validated"));
    EXPECT_THAT(outcome.output, HasSubstr("SUCCESS: Unpaired"));
}

TEST_F(PeerTools, IdevicepairIsRefusedByAPasscode) {
    NEEDS("idevicepair");
    const Outcome outcome = withPhone({"--unpaired", "--passcode"}, {"idevicepair", "pair"});
    EXPECT_NE(outcome.status, 0);
    EXPECT_THAT(outcome.output, HasSubstr("passcode"));
}

TEST_F(PeerTools, AFaultReachesTheTool) {
    NEEDS("ideviceinfo");
    const Outcome outcome = withPhone({"--fault", "lockdown/GetValue#1+=drop"}, {"ideviceinfo"});
    EXPECT_NE(outcome.status, 0);
}

TEST_F(PeerTools, IfuseMountsTheMediaPartition) {
    NEEDS("ifuse");
    const int fuse = open("/dev/fuse", O_RDWR | O_CLOEXEC);
    if (fuse < 0) {
        GTEST_SKIP() << "/dev/fuse cannot be opened here";
    }
    close(fuse);
    const std::filesystem::path mount = folder() / "mount";
    std::filesystem::create_directory(mount);
    const std::string script = "m='" + mount.string() +
                               "'\n"
                               "ifuse \"$m\" || exit 77\n"
                               "ls \"$m\"\n"
                               "echo contents > \"$m/new\" && cat \"$m/new\"\n"
                               "mkdir \"$m/folder\" && mv \"$m/new\" \"$m/folder/moved\"\n"
                               "stat -c %s \"$m/folder/moved\"\n"
                               "fusermount -u \"$m\"\n";
    const Outcome outcome = withPhone({}, {"sh", "-c", script});
    if (outcome.status == 77) {
        GTEST_SKIP() << "no file system can be mounted here: " << outcome.output;
    }
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_EQ(outcome.output, "iTunes_Control\ncontents\n9\n");
    EXPECT_TRUE(std::filesystem::exists(folder() / "phone/folder/moved"));
    EXPECT_FALSE(std::filesystem::exists(folder() / "phone/new"));
}

} // namespace
} // namespace virtualphone::testing
