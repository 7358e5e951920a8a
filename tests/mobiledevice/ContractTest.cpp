// What MobileDevice.h promises, held against every implementation of it that is here: the provider
// with a virtual phone, and the scripted fake that the tests of the rooms above stand on. A promise
// that one of them breaks is a difference between what those tests see and what users get.

#include "tests/mobiledevice/provider/ProviderFixture.h"
#include "tests/support/FakeMobileDevice.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using krl::cf::adopt;
using testing::ElementsAre;
using testing::IsSupersetOf;
using testing::UnorderedElementsAre;

/// One healthy phone of firmware 1.1.1 called "Contract Phone", and the functions that reach it.
/// Paths are the phone's.
class World {
public:
    World() = default;
    World(const World&) = delete;
    World& operator=(const World&) = delete;
    virtual ~World() = default;

    virtual const MobileDeviceTable& functions() = 0;
    virtual void plugIn() = 0;
    virtual void pullOut() = 0;
    /// Runs what brings news until it is so.
    virtual bool runUntil(const std::function<bool()>& isSo) = 0;

    virtual void put(const std::string& path, const std::string& contents) = 0;
    virtual std::string contents(const std::string& path) = 0;
    virtual bool exists(const std::string& path) = 0;
    /// The media library on this computer takes the phone's sync lock.
    virtual void holdSyncLock() = 0;
    /// This computer has no pair record of the phone any more.
    virtual void unpair() = 0;
    virtual void setFreeBytes(uint64_t bytes) = 0;
};

constexpr char kName[] = "Contract Phone";
constexpr char kSyncLock[] = "/com.apple.itunes.lock_sync";

class FakeWorld : public World {
public:
    FakeWorld() {
        fake_.phone().name(kName);
#define KRL_TAKE(function) table_.function = function;
        MOBILEDEVICE_FUNCTIONS(KRL_TAKE)
#undef KRL_TAKE
    }

    const MobileDeviceTable& functions() override {
        return table_;
    }

    void plugIn() override {
        fake_.attach();
    }

    void pullOut() override {
        fake_.detach();
    }

    bool runUntil(const std::function<bool()>& isSo) override {
        fake_.deliverArrivals();
        return isSo();
    }

    void put(const std::string& path, const std::string& contents) override {
        fake_.phone().file(path, contents);
    }

    std::string contents(const std::string& path) override {
        return fake_.phone().contents(path);
    }

    bool exists(const std::string& path) override {
        return fake_.phone().hasFile(path) || fake_.phone().hasDirectory(path);
    }

    void holdSyncLock() override {
        fake_.phone().lockHeldElsewhere(kSyncLock);
    }

    void unpair() override {
        fake_.phone().paired(false);
    }

    void setFreeBytes(uint64_t bytes) override {
        fake_.phone().freeSpace(bytes);
    }

private:
    krl::test::FakeMobileDevice fake_;
    MobileDeviceTable table_{};
};

class WireWorld : public World {
public:
    const MobileDeviceTable& functions() override { return *MobileDeviceProviderTable(); }

    void plugIn() override { id_ = bus_.plug(phone_); }

    void pullOut() override { bus_.unplug(id_); }

    bool runUntil(const std::function<bool()>& isSo) override {
        return krl::provider::testing::runUntil(isSo);
    }

    void put(const std::string& path, const std::string& contents) override {
        std::filesystem::create_directories(onDisk(path).parent_path());
        std::ofstream(onDisk(path), std::ios::binary) << contents;
    }

    std::string contents(const std::string& path) override {
        std::ifstream file(onDisk(path), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    bool exists(const std::string& path) override { return std::filesystem::exists(onDisk(path)); }

    void holdSyncLock() override { EXPECT_TRUE(phone_->holdSyncLock()); }

    void unpair() override { bus_.deletePairRecord(phone_->udid()); }

    void setFreeBytes(uint64_t bytes) override { phone_->setFreeBytes(bytes); }

private:
    static virtualphone::PhoneOptions named(std::filesystem::path root) {
        virtualphone::PhoneOptions options;
        options.root = std::move(root);
        options.name = kName;
        return options;
    }

    std::filesystem::path onDisk(const std::string& path) const {
        return folder_.path() / "phone" / path.substr(1);
    }

    virtualphone::testing::TemporaryFolder folder_;
    virtualphone::Bus bus_;
    virtualphone::testing::SocketEnvironment environment_{bus_};
    std::shared_ptr<virtualphone::Phone> phone_ =
        std::make_shared<virtualphone::Phone>(named(folder_.path() / "phone"));
    uint32_t id_ = 0;
};

struct Implementation {
    const char* name;
    std::unique_ptr<World> (*make)();

    friend std::ostream& operator<<(std::ostream& out, const Implementation& row) {
        return out << row.name;
    }
};

/// What the one subscription of a test hears.
std::vector<am_device_notification_info> heard;

void hear(am_device_notification_info* info) {
    heard.push_back(*info);
}

class Contract : public testing::TestWithParam<Implementation> {
protected:
    Contract() {
        heard.clear();
        world->plugIn();
        EXPECT_EQ(md.AMDeviceNotificationSubscribe(hear, 0, 0, nullptr, &subscription), 0);
        heardWithinSubscribing = !heard.empty();
        EXPECT_TRUE(world->runUntil([] { return !heard.empty(); }));
        device = heard.empty() ? nullptr : md.AMDeviceRetain(heard.back().device);
    }

    ~Contract() override {
        if (subscription != nullptr) {
            md.AMDShutdownNotificationProxy(subscription);
        }
        md.AMDeviceRelease(device);
    }

    void pullOut() {
        const size_t before = heard.size();
        world->pullOut();
        EXPECT_TRUE(world->runUntil([before] { return heard.size() > before; }));
    }

    void openSession() {
        ASSERT_EQ(md.AMDeviceConnect(device), 0);
        ASSERT_NE(md.AMDeviceIsPaired(device), 0);
        ASSERT_EQ(md.AMDeviceValidatePairing(device), 0);
        ASSERT_EQ(md.AMDeviceStartSession(device), 0);
    }

    am_service* startService(CFStringRef name) {
        am_service* service = nullptr;
        openSession();
        EXPECT_EQ(md.AMDeviceStartService(device, name, &service, nullptr), 0);
        EXPECT_EQ(md.AMDeviceStopSession(device), 0);
        return service;
    }

    afc_connection* openFiles() {
        afc_connection* connection = nullptr;
        EXPECT_EQ(md.AFCConnectionOpen(startService(CFSTR("com.apple.afc")), 0, &connection), 0);
        return connection;
    }

    am_service* openProxy() { return startService(CFSTR("com.apple.mobile.notification_proxy")); }

    afc_file_ref open(afc_connection* files, const char* path, uint64_t mode) {
        afc_file_ref file = 0;
        EXPECT_EQ(md.AFCFileRefOpen(files, path, mode, &file), 0) << path;
        return file;
    }

    std::vector<std::string> list(afc_connection* files, const char* path) {
        std::vector<std::string> names;
        afc_directory* directory = nullptr;
        EXPECT_EQ(md.AFCDirectoryOpen(files, path, &directory), 0);
        char* name = nullptr;
        while (md.AFCDirectoryRead(files, directory, &name) == 0 && name != nullptr) {
            names.emplace_back(name);
        }
        EXPECT_EQ(md.AFCDirectoryRead(files, directory, &name), 0) << "beyond the end";
        EXPECT_EQ(name, nullptr);
        EXPECT_EQ(md.AFCDirectoryClose(files, directory), 0);
        EXPECT_NE(md.AFCDirectoryClose(files, directory), 0) << "a second time";
        return names;
    }

    /// The value of a key; "missing" when there is none.
    std::string valueIn(afc_dictionary* info, const std::string& wanted) {
        std::string found = "missing";
        char* key = nullptr;
        char* value = nullptr;
        while (md.AFCKeyValueRead(info, &key, &value) == 0 && key != nullptr) {
            if (key == wanted) {
                found = value;
            }
        }
        EXPECT_EQ(md.AFCKeyValueClose(info), 0);
        EXPECT_NE(md.AFCKeyValueClose(info), 0) << "a second time";
        return found;
    }

    /// A value of the phone that is a string; "none" when there is none.
    std::string value(CFStringRef domain, CFStringRef key) {
        const auto object = adopt(md.AMDeviceCopyValue(device, domain, key));
        return text(object.get());
    }

    static std::string text(CFTypeRef object) {
        char buffer[128] = "none";
        if (const auto string = krl::cf::cast<CFStringRef>(object)) {
            CFStringGetCString(string, buffer, sizeof buffer, kCFStringEncodingUTF8);
        }
        return buffer;
    }

    std::unique_ptr<World> world = GetParam().make();
    const MobileDeviceTable& md = world->functions();
    am_device_notification* subscription = nullptr;
    am_device* device = nullptr;
    bool heardWithinSubscribing = false;
};

// ---------------------------------------------------------------------------- arrivals

TEST_P(Contract, APhoneThatIsThereArrivesAfterSubscribingAndNotWithinIt) {
    EXPECT_FALSE(heardWithinSubscribing);
    ASSERT_EQ(heard.size(), 1U);
    EXPECT_EQ(heard[0].message, uint32_t{kAMDeviceMessageConnected});
    EXPECT_NE(heard[0].device, nullptr);
}

TEST_P(Contract, ARemovalIsToldWithTheDeviceOfTheArrival) {
    pullOut();
    ASSERT_EQ(heard.size(), 2U);
    EXPECT_EQ(heard[1].message, uint32_t{kAMDeviceMessageDisconnected});
    EXPECT_EQ(heard[1].device, device);
}

TEST_P(Contract, ASubscriptionEndsOnceAndHearsNothingMore) {
    EXPECT_EQ(md.AMDShutdownNotificationProxy(subscription), 0);
    EXPECT_NE(md.AMDShutdownNotificationProxy(subscription), 0);
    subscription = nullptr;
    world->pullOut();
    world->runUntil([] { return true; });
    EXPECT_EQ(heard.size(), 1U);
}

TEST_P(Contract, RetainGivesTheDeviceBack) {
    EXPECT_EQ(md.AMDeviceRetain(device), device);
    md.AMDeviceRelease(device);
    EXPECT_EQ(md.AMDeviceRetain(nullptr), nullptr);
    md.AMDeviceRelease(nullptr);
    EXPECT_EQ(md.AMDeviceConnect(device), 0);
}

// ---------------------------------------------------------------------------- sessions

TEST_P(Contract, EverythingNeedsAConnection) {
    am_service* service = nullptr;
    EXPECT_NE(md.AMDeviceValidatePairing(device), 0);
    EXPECT_NE(md.AMDeviceStartSession(device), 0);
    EXPECT_NE(md.AMDeviceStopSession(device), 0);
    EXPECT_NE(md.AMDeviceStartService(device, CFSTR("com.apple.afc"), &service, nullptr), 0);
    EXPECT_EQ(service, nullptr);
    EXPECT_NE(md.AMDeviceDisconnect(device), 0);
    EXPECT_EQ(value(nullptr, CFSTR("DeviceName")), "none");
    EXPECT_NE(md.AMDeviceIsPaired(device), 0) << "but this, which this computer knows by itself";
}

TEST_P(Contract, ASessionNeedsAValidatedPairing) {
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    EXPECT_NE(md.AMDeviceStartSession(device), 0);
    EXPECT_EQ(md.AMDeviceValidatePairing(device), 0);
    EXPECT_EQ(md.AMDeviceStartSession(device), 0);
}

TEST_P(Contract, ANewConnectionIsNotTrustedYetAndHasNoSession) {
    openSession();
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    EXPECT_NE(md.AMDeviceStopSession(device), 0);
    EXPECT_NE(md.AMDeviceStartSession(device), 0);
}

TEST_P(Contract, AnUnpairedPhoneIsNeitherPairedNorValidated) {
    world->unpair();
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    EXPECT_EQ(md.AMDeviceIsPaired(device), 0);
    EXPECT_NE(md.AMDeviceValidatePairing(device), 0);
    EXPECT_NE(md.AMDeviceStartSession(device), 0);
}

TEST_P(Contract, ASessionAndAConnectionEndOnce) {
    openSession();
    EXPECT_EQ(md.AMDeviceStopSession(device), 0);
    EXPECT_NE(md.AMDeviceStopSession(device), 0);
    EXPECT_EQ(md.AMDeviceDisconnect(device), 0);
    EXPECT_NE(md.AMDeviceDisconnect(device), 0);
    openSession();
}

TEST_P(Contract, AServiceNeedsASession) {
    am_service* service = nullptr;
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    ASSERT_EQ(md.AMDeviceValidatePairing(device), 0);
    EXPECT_NE(md.AMDeviceStartService(device, CFSTR("com.apple.afc"), &service, nullptr), 0);
    EXPECT_EQ(service, nullptr);
}

TEST_P(Contract, AServiceStaysUsableAfterSessionAndConnection) {
    am_service* service = startService(CFSTR("com.apple.afc"));
    EXPECT_EQ(md.AMDeviceDisconnect(device), 0);
    afc_connection* files = nullptr;
    ASSERT_EQ(md.AFCConnectionOpen(service, 0, &files), 0);
    EXPECT_EQ(md.AFCDirectoryCreate(files, "/made"), 0);
    EXPECT_TRUE(world->exists("/made"));
}

TEST_P(Contract, OpeningTheFileServiceUsesTheServiceUp) {
    am_service* service = startService(CFSTR("com.apple.afc"));
    afc_connection* files = nullptr;
    afc_connection* again = nullptr;
    ASSERT_EQ(md.AFCConnectionOpen(service, 0, &files), 0);
    EXPECT_NE(md.AFCConnectionOpen(service, 0, &again), 0);
    EXPECT_EQ(again, nullptr);
}

TEST_P(Contract, ValuesComeOneByOneAndByDomain) {
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    EXPECT_EQ(value(nullptr, CFSTR("DeviceName")), kName);
    EXPECT_EQ(value(nullptr, CFSTR("DeviceClass")), "iPhone");
    EXPECT_EQ(value(nullptr, CFSTR("NoSuchValue")), "none");
    ASSERT_EQ(md.AMDeviceValidatePairing(device), 0);
    ASSERT_EQ(md.AMDeviceStartSession(device), 0);
    const auto all = adopt(md.AMDeviceCopyValue(device, nullptr, nullptr));
    const auto values = krl::cf::cast<CFDictionaryRef>(all.get());
    ASSERT_NE(values, nullptr);
    EXPECT_EQ(text(CFDictionaryGetValue(values, CFSTR("ProductVersion"))), "1.1.1");
    EXPECT_EQ(text(CFDictionaryGetValue(values, CFSTR("DeviceName"))), kName);
}

TEST_P(Contract, AProxyPostsUntilItIsShutDownOnce) {
    am_service* proxy = openProxy();
    EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("a.note"), nullptr), 0);
    EXPECT_EQ(md.AMDeviceDisconnect(device), 0);
    EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("another.note"), nullptr), 0);
    EXPECT_EQ(md.AMDShutdownNotificationProxy(proxy), 0);
    EXPECT_NE(md.AMDPostNotification(proxy, CFSTR("a.note"), nullptr), 0);
    EXPECT_NE(md.AMDShutdownNotificationProxy(proxy), 0);
}

// ---------------------------------------------------------------------------- directories

TEST_P(Contract, ADirectoryIsMadeOnceWhereItsParentIs) {
    afc_connection* files = openFiles();
    EXPECT_EQ(md.AFCDirectoryCreate(files, "/a"), 0);
    EXPECT_EQ(md.AFCDirectoryCreate(files, "/a"), kAFCObjectExists);
    EXPECT_EQ(md.AFCDirectoryCreate(files, "/none/a"), kAFCObjectNotFound);
    EXPECT_THAT(list(files, "/a"), ElementsAre(".", ".."));
    world->put("/a/b", "1");
    world->put("/a/c d", "2");
    EXPECT_THAT(list(files, "/a"), UnorderedElementsAre(".", "..", "b", "c d"));
    EXPECT_THAT(list(files, "/"), IsSupersetOf({"a", "iTunes_Control"}));
}

TEST_P(Contract, WhatIsNoDirectoryIsNotListed) {
    afc_connection* files = openFiles();
    world->put("/f", "");
    afc_directory* directory = nullptr;
    EXPECT_EQ(md.AFCDirectoryOpen(files, "/none", &directory), kAFCObjectNotFound);
    EXPECT_NE(md.AFCDirectoryOpen(files, "/f", &directory), 0);
    EXPECT_EQ(directory, nullptr);
}

TEST_P(Contract, FilesAndEmptyDirectoriesAreRemoved) {
    afc_connection* files = openFiles();
    world->put("/a/f", "1");
    EXPECT_EQ(md.AFCRemovePath(files, "/a"), kAFCUnknownError);
    EXPECT_EQ(md.AFCRemovePath(files, "/a/f"), 0);
    EXPECT_EQ(md.AFCRemovePath(files, "/a/f"), kAFCObjectNotFound);
    EXPECT_EQ(md.AFCRemovePath(files, "/a"), 0);
    EXPECT_FALSE(world->exists("/a"));
}

TEST_P(Contract, ARenameReplacesAFileOfTheNewName) {
    afc_connection* files = openFiles();
    world->put("/old", "1");
    world->put("/new", "2");
    EXPECT_EQ(md.AFCRenamePath(files, "/old", "/new"), 0);
    EXPECT_EQ(world->contents("/new"), "1");
    EXPECT_FALSE(world->exists("/old"));
    EXPECT_EQ(md.AFCRenamePath(files, "/old", "/new"), kAFCObjectNotFound);
    EXPECT_EQ(md.AFCRenamePath(files, "/new", "/none/new"), kAFCObjectNotFound);
    EXPECT_EQ(world->contents("/new"), "1");
}

// ---------------------------------------------------------------------------- files

TEST_P(Contract, ModesSayWhetherAFileIsMadeOrEmptied) {
    afc_connection* files = openFiles();
    afc_file_ref file = 0;
    EXPECT_EQ(md.AFCFileRefOpen(files, "/f", kAFCOpenRead, &file), kAFCObjectNotFound);
    EXPECT_EQ(file, 0U);
    EXPECT_FALSE(world->exists("/f"));
    EXPECT_EQ(md.AFCFileRefClose(files, open(files, "/f", kAFCOpenReadWrite)), 0);
    EXPECT_EQ(world->contents("/f"), "");

    world->put("/f", "123");
    EXPECT_EQ(md.AFCFileRefClose(files, open(files, "/f", kAFCOpenRead)), 0);
    EXPECT_EQ(md.AFCFileRefClose(files, open(files, "/f", kAFCOpenReadWrite)), 0);
    EXPECT_EQ(world->contents("/f"), "123");
    EXPECT_EQ(md.AFCFileRefClose(files, open(files, "/f", kAFCOpenWrite)), 0);
    EXPECT_EQ(world->contents("/f"), "");

    EXPECT_EQ(md.AFCFileRefOpen(files, "/iTunes_Control", kAFCOpenWrite, &file),
              kAFCObjectIsDirectory);
    EXPECT_EQ(md.AFCFileRefOpen(files, "/none/f", kAFCOpenWrite, &file), kAFCObjectNotFound);
    EXPECT_EQ(file, 0U);
}

TEST_P(Contract, WritesAndReadsFollowEachOther) {
    afc_connection* files = openFiles();
    const afc_file_ref written = open(files, "/f", kAFCOpenWrite);
    EXPECT_EQ(md.AFCFileRefWrite(files, written, "abc", 3), 0);
    EXPECT_EQ(md.AFCFileRefWrite(files, written, "", 0), 0);
    EXPECT_EQ(md.AFCFileRefWrite(files, written, "defg", 4), 0);
    EXPECT_EQ(md.AFCFileRefClose(files, written), 0);
    EXPECT_EQ(world->contents("/f"), "abcdefg");

    const afc_file_ref read = open(files, "/f", kAFCOpenRead);
    for (const std::string expected : {"abcd", "efg", ""}) {
        char buffer[4];
        uint32_t length = sizeof buffer;
        EXPECT_EQ(md.AFCFileRefRead(files, read, buffer, &length), 0);
        EXPECT_EQ(std::string(buffer, length), expected);
    }
}

TEST_P(Contract, AFileIsClosedOnceAndMeansNothingOnAnotherConnection) {
    afc_connection* files = openFiles();
    afc_connection* others = openFiles();
    const afc_file_ref file = open(files, "/f", kAFCOpenReadWrite);
    EXPECT_NE(md.AFCFileRefClose(others, file), 0);
    EXPECT_EQ(md.AFCFileRefClose(files, file), 0);
    EXPECT_NE(md.AFCFileRefClose(files, file), 0);
    char buffer[1];
    uint32_t length = sizeof buffer;
    EXPECT_NE(md.AFCFileRefRead(files, file, buffer, &length), 0);
    EXPECT_EQ(length, 0U) << "nothing of it is good";
    EXPECT_NE(md.AFCFileRefWrite(files, file, "x", 1), 0);
    EXPECT_NE(md.AFCFileRefLock(files, file), 0);
    EXPECT_NE(md.AFCFileRefUnlock(files, file), 0);
}

TEST_P(Contract, ALockIsExclusiveDoesNotWaitAndGoesWithItsFile) {
    afc_connection* files = openFiles();
    afc_connection* others = openFiles();
    const afc_file_ref mine = open(files, "/lock", kAFCOpenReadWrite);
    const afc_file_ref theirs = open(others, "/lock", kAFCOpenReadWrite);
    EXPECT_EQ(md.AFCFileRefLock(files, mine), 0);
    EXPECT_EQ(md.AFCFileRefLock(files, mine), 0);
    EXPECT_EQ(md.AFCFileRefLock(others, theirs), kAFCWouldBlock);
    EXPECT_EQ(md.AFCFileRefUnlock(files, mine), 0);
    EXPECT_EQ(md.AFCFileRefLock(others, theirs), 0);
    EXPECT_EQ(md.AFCFileRefLock(files, mine), kAFCWouldBlock);
    EXPECT_EQ(md.AFCFileRefClose(others, theirs), 0);
    EXPECT_EQ(md.AFCFileRefLock(files, mine), 0);
}

TEST_P(Contract, TheLockOfTheMediaLibraryIsRefused) {
    afc_connection* files = openFiles();
    const afc_file_ref file = open(files, kSyncLock, kAFCOpenReadWrite);
    world->holdSyncLock();
    EXPECT_EQ(md.AFCFileRefLock(files, file), kAFCWouldBlock);
}

TEST_P(Contract, InformationComesInPairs) {
    afc_connection* files = openFiles();
    world->put("/f", "12345");
    world->setFreeBytes(123'456'789);
    afc_dictionary* info = nullptr;
    ASSERT_EQ(md.AFCFileInfoOpen(files, "/f", &info), 0);
    EXPECT_EQ(valueIn(info, "st_size"), "5");
    ASSERT_EQ(md.AFCFileInfoOpen(files, "/iTunes_Control", &info), 0);
    EXPECT_EQ(valueIn(info, "st_ifmt"), "S_IFDIR");
    ASSERT_EQ(md.AFCDeviceInfoOpen(files, &info), 0);
    EXPECT_EQ(valueIn(info, "FSFreeBytes"), "123456789");
    info = nullptr;
    EXPECT_EQ(md.AFCFileInfoOpen(files, "/none", &info), kAFCObjectNotFound);
    EXPECT_EQ(info, nullptr);
}

// ---------------------------------------------------------------------------- handles

TEST_P(Contract, IteratorsAndFilesGoWithTheirConnectionWhichIsClosedOnce) {
    afc_connection* files = openFiles();
    const afc_file_ref file = open(files, "/f", kAFCOpenReadWrite);
    afc_dictionary* info = nullptr;
    afc_directory* directory = nullptr;
    ASSERT_EQ(md.AFCDeviceInfoOpen(files, &info), 0);
    ASSERT_EQ(md.AFCDirectoryOpen(files, "/", &directory), 0);
    EXPECT_EQ(md.AFCConnectionClose(files), 0);
    EXPECT_EQ(md.AFCConnectionClose(files), kAFCNotConnected);

    char* key = nullptr;
    char* value = nullptr;
    EXPECT_EQ(md.AFCKeyValueRead(info, &key, &value), kAFCInvalidArgument);
    EXPECT_EQ(md.AFCDirectoryRead(files, directory, &key), kAFCInvalidArgument);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(md.AFCFileRefClose(files, file), kAFCNotConnected);
    EXPECT_EQ(md.AFCRemovePath(files, "/f"), kAFCNotConnected);
}

TEST_P(Contract, NullHandlesAndPathsAreAnsweredWithAStatus) {
    am_service* service = nullptr;
    EXPECT_NE(md.AMDeviceConnect(nullptr), 0);
    EXPECT_NE(md.AMDeviceDisconnect(nullptr), 0);
    EXPECT_EQ(md.AMDeviceIsPaired(nullptr), 0);
    EXPECT_NE(md.AMDeviceValidatePairing(nullptr), 0);
    EXPECT_NE(md.AMDeviceStartSession(nullptr), 0);
    EXPECT_NE(md.AMDeviceStopSession(nullptr), 0);
    EXPECT_NE(md.AMDeviceStartService(nullptr, CFSTR("com.apple.afc"), &service, nullptr), 0);
    EXPECT_EQ(md.AMDeviceCopyValue(nullptr, nullptr, nullptr), nullptr);
    EXPECT_NE(md.AMDPostNotification(nullptr, CFSTR("a.note"), nullptr), 0);
    EXPECT_NE(md.AMDShutdownNotificationProxy(nullptr), 0);

    afc_connection* none = nullptr;
    afc_directory* directory = nullptr;
    afc_dictionary* info = nullptr;
    afc_file_ref file = 0;
    uint32_t length = 1;
    char buffer[1];
    char* text = nullptr;
    EXPECT_NE(md.AFCConnectionOpen(nullptr, 0, &none), 0);
    EXPECT_EQ(md.AFCConnectionClose(none), kAFCNotConnected);
    EXPECT_EQ(md.AFCDirectoryCreate(none, "/a"), kAFCNotConnected);
    EXPECT_EQ(md.AFCDirectoryOpen(none, "/", &directory), kAFCNotConnected);
    EXPECT_EQ(md.AFCRemovePath(none, "/a"), kAFCNotConnected);
    EXPECT_EQ(md.AFCRenamePath(none, "/a", "/b"), kAFCNotConnected);
    EXPECT_EQ(md.AFCFileRefOpen(none, "/a", kAFCOpenWrite, &file), kAFCNotConnected);
    EXPECT_EQ(md.AFCFileRefRead(none, 1, buffer, &length), kAFCNotConnected);
    EXPECT_EQ(md.AFCFileRefWrite(none, 1, "x", 1), kAFCNotConnected);
    EXPECT_EQ(md.AFCFileRefClose(none, 1), kAFCNotConnected);
    EXPECT_EQ(md.AFCFileRefLock(none, 1), kAFCNotConnected);
    EXPECT_EQ(md.AFCFileRefUnlock(none, 1), kAFCNotConnected);
    EXPECT_EQ(md.AFCFileInfoOpen(none, "/a", &info), kAFCNotConnected);
    EXPECT_EQ(md.AFCDeviceInfoOpen(none, &info), kAFCNotConnected);
    EXPECT_EQ(md.AFCKeyValueRead(nullptr, &text, &text), kAFCInvalidArgument);
    EXPECT_EQ(md.AFCKeyValueClose(nullptr), kAFCInvalidArgument);

    afc_connection* files = openFiles();
    EXPECT_EQ(md.AFCDirectoryCreate(files, nullptr), kAFCInvalidArgument);
    EXPECT_EQ(md.AFCDirectoryOpen(files, nullptr, &directory), kAFCInvalidArgument);
    EXPECT_EQ(md.AFCDirectoryRead(files, nullptr, &text), kAFCInvalidArgument);
    EXPECT_EQ(md.AFCDirectoryClose(files, nullptr), kAFCInvalidArgument);
    EXPECT_EQ(md.AFCRemovePath(files, nullptr), kAFCInvalidArgument);
    EXPECT_EQ(md.AFCRenamePath(files, nullptr, "/x"), kAFCInvalidArgument);
    EXPECT_EQ(md.AFCRenamePath(files, "/x", nullptr), kAFCInvalidArgument);
    EXPECT_EQ(md.AFCFileRefOpen(files, nullptr, kAFCOpenRead, &file), kAFCInvalidArgument);
    EXPECT_EQ(md.AFCFileInfoOpen(files, nullptr, &info), kAFCInvalidArgument);
    EXPECT_EQ(directory, nullptr);
    EXPECT_EQ(info, nullptr);
    EXPECT_EQ(file, 0U);
}

TEST_P(Contract, APhoneThatIsPulledOutFailsEveryCall) {
    am_service* proxy = openProxy();
    EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("a.note"), nullptr), 0);
    afc_connection* files = openFiles();
    const afc_file_ref file = open(files, "/f", kAFCOpenReadWrite);
    am_service* service = startService(CFSTR("com.apple.afc"));
    pullOut();

    EXPECT_NE(md.AMDeviceConnect(device), 0);
    EXPECT_NE(md.AMDeviceValidatePairing(device), 0);
    EXPECT_NE(md.AMDeviceStartSession(device), 0);
    EXPECT_EQ(value(nullptr, CFSTR("DeviceName")), "none");
    EXPECT_NE(md.AMDPostNotification(proxy, CFSTR("a.note"), nullptr), 0);
    afc_connection* more = nullptr;
    EXPECT_NE(md.AFCConnectionOpen(service, 0, &more), 0);
    EXPECT_EQ(more, nullptr);
    EXPECT_EQ(md.AFCDirectoryCreate(files, "/a"), kAFCNotConnected);
    EXPECT_EQ(md.AFCFileRefWrite(files, file, "x", 1), kAFCNotConnected);
    EXPECT_EQ(md.AFCFileRefLock(files, file), kAFCNotConnected);
    EXPECT_EQ(md.AFCFileRefClose(files, file), kAFCNotConnected);
}

INSTANTIATE_TEST_SUITE_P(MobileDevice, Contract,
                         testing::Values(Implementation{"Fake",
                                                        []() -> std::unique_ptr<World> {
                                                            return std::make_unique<FakeWorld>();
                                                        }},
                                         Implementation{"ProviderAndVirtualPhone",
                                                        []() -> std::unique_ptr<World> {
                                                            return std::make_unique<WireWorld>();
                                                        }}),
                         [](const auto& row) { return row.param.name; });

} // namespace
