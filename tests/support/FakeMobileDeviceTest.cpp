#include "tests/support/FakeMobileDevice.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using krl::test::FakeMobileDevice;
using krl::test::FakePhone;
using krl::test::InfoPairs;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Fake : public ::testing::Test {
protected:
    /// A file connection of a phone, made the way the library makes it.
    afc_connection* connect(FakePhone& phone) {
        am_service* service = nullptr;
        afc_connection* connection = nullptr;
        EXPECT_EQ(AMDeviceConnect(phone.device()), 0);
        EXPECT_EQ(AMDeviceValidatePairing(phone.device()), 0);
        EXPECT_EQ(AMDeviceStartSession(phone.device()), 0);
        EXPECT_EQ(AMDeviceStartService(phone.device(), CFSTR("com.apple.afc"), &service, nullptr),
                  0);
        EXPECT_EQ(AMDeviceStopSession(phone.device()), 0);
        EXPECT_EQ(AFCConnectionOpen(service, 0, &connection), 0);
        fake.clearCalls();
        return connection;
    }

    afc_file_ref open(afc_connection* connection, const char* path, uint64_t mode) {
        afc_file_ref file = 0;
        EXPECT_EQ(AFCFileRefOpen(connection, path, mode, &file), 0);
        return file;
    }

    FakeMobileDevice fake;
};

std::vector<std::string> events;

void recordEvent(am_device_notification_info* info) {
    const auto* phone = reinterpret_cast<FakePhone*>(info->device);
    events.push_back(std::to_string(info->message) + (phone->isConnected() ? " connected" : ""));
}

TEST(FakeLifetime, FillsTheVariablesAndLeavesThemNull) {
    EXPECT_EQ(AMDeviceConnect, nullptr);
    {
        FakeMobileDevice fake;
        EXPECT_NE(AMDeviceConnect, nullptr);
        EXPECT_NE(AFCKeyValueClose, nullptr);
    }
    EXPECT_EQ(AMDeviceConnect, nullptr);
    EXPECT_EQ(AFCKeyValueClose, nullptr);
}

TEST_F(Fake, IsOneAtATime) {
    EXPECT_THROW(FakeMobileDevice(), std::logic_error);
    EXPECT_NE(AMDeviceConnect, nullptr);
}

TEST_F(Fake, RecordsCallsWithTheirArguments) {
    afc_connection* connection = connect(fake.phone());
    afc_file_ref file = open(connection, "/a", kAFCOpenWrite);
    AFCFileRefWrite(connection, file, "x", 1);
    AFCRenamePath(connection, "/a", "/b");
    AFCConnectionClose(connection);
    AFCFileRefClose(connection, file);
    AFCFileRefClose(nullptr, file);
    AMDeviceConnect(nullptr);
    EXPECT_THAT(fake.calls(),
                ElementsAre("AFCFileRefOpen /a 3", "AFCFileRefWrite 1 1", "AFCRenamePath /a /b",
                            "AFCConnectionClose 1", "AFCFileRefClose 1 (closed connection)",
                            "AFCFileRefClose 1 (null connection)", "AMDeviceConnect null"));
    EXPECT_THAT(fake.callsOf({"AFCRenamePath", "AMDeviceConnect"}),
                ElementsAre("AFCRenamePath /a /b", "AMDeviceConnect null"));
    EXPECT_EQ(fake.countOf("AFCFileRefClose"), 2);
}

TEST_F(Fake, ShowsArgumentsThatAreToBeZeroOrNull) {
    am_device* device = fake.phone().device();
    am_service* service = nullptr;
    afc_connection* connection = nullptr;
    uint32_t unused = 0;
    ASSERT_EQ(AMDeviceConnect(device), 0);
    ASSERT_EQ(AMDeviceValidatePairing(device), 0);
    ASSERT_EQ(AMDeviceStartSession(device), 0);
    fake.clearCalls();
    AMDeviceStartService(device, CFSTR("a.service"), &service, &unused);
    AMDPostNotification(service, CFSTR("a.note"), CFSTR("information"));
    AFCConnectionOpen(service, 5, &connection);
    EXPECT_THAT(fake.calls(), ElementsAre("AMDeviceStartService a.service (unused argument)",
                                          "AMDPostNotification a.note (user information)",
                                          "AFCConnectionOpen (timeout 5)"));
}

TEST_F(Fake, NamesTheFurtherPhoneInItsCalls) {
    FakePhone& second = fake.addPhone("second");
    second.file("/only here", "x");
    afc_connection* connection = connect(second);
    EXPECT_EQ(AFCRemovePath(connection, "/only here"), 0);
    EXPECT_THAT(fake.calls(), ElementsAre("AFCRemovePath /only here [second]"));
    EXPECT_TRUE(second.isConnected());
    EXPECT_FALSE(fake.phone().isConnected());
}

TEST_F(Fake, RefusesNamesThatNoFunctionHas) {
    EXPECT_THROW(fake.fail("AFCFileRefOpn", 1), std::invalid_argument);
    EXPECT_THROW(fake.fail("AMDeviceRelease", 1), std::invalid_argument);
    EXPECT_THROW(fake.callsOf("AFC"), std::invalid_argument);
}

TEST_F(Fake, FailsTheCallsAskedForAndNoOthers) {
    am_device* device = fake.phone().device();
    fake.failNth("AMDeviceConnect", 2, 5);
    EXPECT_EQ(AMDeviceConnect(device), 0);
    EXPECT_EQ(AMDeviceConnect(device), 5);
    EXPECT_EQ(AMDeviceConnect(device), 0);
    fake.clearFaults();
    fake.failFirst("AMDeviceConnect", 2, 6);
    EXPECT_EQ(AMDeviceConnect(device), 6);
    EXPECT_EQ(AMDeviceConnect(device), 6);
    EXPECT_EQ(AMDeviceConnect(device), 0);
    EXPECT_EQ(fake.faultsMet(), 2);
    fake.clearFaults();
    fake.failFrom("AMDeviceConnect", 2, 7);
    EXPECT_EQ(AMDeviceConnect(device), 0);
    EXPECT_EQ(AMDeviceConnect(device), 7);
    EXPECT_EQ(AMDeviceConnect(device), 7);
}

TEST_F(Fake, FailsTheNthCallOfAnyFunction) {
    am_device* device = fake.phone().device();
    fake.failNthCall(2, 5);
    EXPECT_EQ(AMDeviceConnect(device), 0);
    AMDeviceRetain(device);
    EXPECT_EQ(AMDeviceIsPaired(device), 0);
    EXPECT_EQ(AMDeviceValidatePairing(device), 0);
    fake.clearFaults();
    fake.failFromCall(2, 6);
    EXPECT_EQ(AMDeviceStartSession(device), 0);
    EXPECT_EQ(AMDeviceCopyValue(device, nullptr, CFSTR("DeviceName")), nullptr);
    EXPECT_EQ(AMDeviceStopSession(device), 6);
    EXPECT_EQ(fake.faultsMet(), 2);
}

TEST_F(Fake, HoldsToTheOrderOfARealConnection) {
    am_device* device = fake.phone().device();
    am_service* service = nullptr;
    EXPECT_EQ(AMDeviceStartSession(device), krl::test::kFakeNotConnected);
    EXPECT_EQ(AMDeviceCopyValue(device, nullptr, CFSTR("DeviceName")), nullptr);
    ASSERT_EQ(AMDeviceConnect(device), 0);
    EXPECT_EQ(AMDeviceStartService(device, CFSTR("com.apple.afc"), &service, nullptr),
              krl::test::kFakeSessionInactive);
    EXPECT_EQ(AMDeviceStartSession(device), krl::test::kFakeNotPaired);
    ASSERT_EQ(AMDeviceValidatePairing(device), 0);
    ASSERT_EQ(AMDeviceStartSession(device), 0);
    EXPECT_EQ(AMDeviceStartSession(device), krl::test::kFakeSessionActive);
    EXPECT_EQ(AMDeviceDisconnect(device), 0);
    EXPECT_EQ(AMDeviceDisconnect(device), krl::test::kFakeNotConnected);
}

TEST_F(Fake, AnswersNullHandlesWithAStatus) {
    afc_connection* connection = nullptr;
    afc_directory* directory = nullptr;
    afc_dictionary* info = nullptr;
    afc_file_ref file = 0;
    char* text = nullptr;
    char buffer[1];
    uint32_t length = sizeof buffer;
    EXPECT_NE(AMDeviceDisconnect(nullptr), 0);
    EXPECT_NE(AMDeviceStartSession(nullptr), 0);
    EXPECT_EQ(AMDeviceCopyValue(nullptr, nullptr, nullptr), nullptr);
    EXPECT_NE(AMDPostNotification(nullptr, CFSTR("x"), nullptr), 0);
    EXPECT_NE(AMDShutdownNotificationProxy(nullptr), 0);
    EXPECT_NE(AFCConnectionOpen(nullptr, 0, &connection), 0);
    EXPECT_NE(AFCConnectionClose(nullptr), 0);
    EXPECT_NE(AFCDirectoryOpen(nullptr, "/", &directory), 0);
    EXPECT_NE(AFCDirectoryRead(nullptr, nullptr, &text), 0);
    EXPECT_NE(AFCFileRefOpen(nullptr, "/a", 2, &file), 0);
    EXPECT_NE(AFCFileRefRead(nullptr, 0, buffer, &length), 0);
    EXPECT_NE(AFCFileRefWrite(nullptr, 0, "x", 1), 0);
    EXPECT_NE(AFCFileRefLock(nullptr, 0), 0);
    EXPECT_NE(AFCFileInfoOpen(nullptr, "/a", &info), 0);
    EXPECT_NE(AFCDeviceInfoOpen(nullptr, &info), 0);
    EXPECT_NE(AFCKeyValueRead(nullptr, &text, &text), 0);
    EXPECT_EQ(AMDeviceRetain(nullptr), nullptr);
    AMDeviceRelease(nullptr);
}

TEST_F(Fake, KeepsFilesInDirectoriesAsAPhoneDoes) {
    afc_connection* connection = connect(fake.phone());
    EXPECT_EQ(AFCDirectoryCreate(connection, "/a/b"), kAFCObjectNotFound);
    EXPECT_EQ(AFCDirectoryCreate(connection, "/a"), 0);
    EXPECT_EQ(AFCDirectoryCreate(connection, "/a"), kAFCObjectExists);
    EXPECT_EQ(AFCFileRefClose(connection, open(connection, "/a/x", kAFCOpenReadWrite)), 0);
    EXPECT_EQ(AFCRemovePath(connection, "/a"), kAFCUnknownError);
    EXPECT_EQ(AFCRenamePath(connection, "/a", "/c"), 0);
    EXPECT_THAT(fake.phone().names("/c"), ElementsAre("x"));
    EXPECT_EQ(AFCRemovePath(connection, "/a/x"), kAFCObjectNotFound);
    EXPECT_EQ(AFCRemovePath(connection, "/c/x"), 0);
    EXPECT_EQ(AFCRemovePath(connection, "/c"), 0);
    afc_file_ref file = 0;
    EXPECT_EQ(AFCFileRefOpen(connection, "/x", kAFCOpenRead, &file), kAFCObjectNotFound);
    EXPECT_EQ(AFCFileRefOpen(connection, "/DCIM", kAFCOpenRead, &file), kAFCObjectIsDirectory);
}

TEST_F(Fake, ReadsAndWritesWhereTheFileStands) {
    afc_connection* connection = connect(fake.phone());
    afc_file_ref file = open(connection, "/a", kAFCOpenReadWrite);
    EXPECT_EQ(AFCFileRefWrite(connection, file, "hel", 3), 0);
    EXPECT_EQ(AFCFileRefWrite(connection, file, "lo", 2), 0);
    EXPECT_EQ(fake.phone().contents("/a"), "hello");
    file = open(connection, "/a", kAFCOpenRead);
    char buffer[4];
    uint32_t length = sizeof buffer;
    EXPECT_EQ(AFCFileRefRead(connection, file, buffer, &length), 0);
    EXPECT_EQ(std::string(buffer, length), "hell");
    length = sizeof buffer;
    EXPECT_EQ(AFCFileRefRead(connection, file, buffer, &length), 0);
    EXPECT_EQ(std::string(buffer, length), "o");
    EXPECT_NE(AFCFileRefWrite(connection, file, "x", 1), 0);
}

TEST_F(Fake, LocksAFileForOneOpenFileUntilItOrItsConnectionIsClosed) {
    afc_connection* first = connect(fake.phone());
    afc_connection* second = connect(fake.phone());
    const afc_file_ref mine = open(first, "/lock", kAFCOpenReadWrite);
    const afc_file_ref theirs = open(second, "/lock", kAFCOpenReadWrite);
    EXPECT_EQ(AFCFileRefLock(first, mine), 0);
    EXPECT_EQ(AFCFileRefLock(first, mine), 0);
    EXPECT_EQ(AFCFileRefLock(second, theirs), kAFCWouldBlock);
    EXPECT_EQ(AFCFileRefUnlock(first, mine), 0);
    EXPECT_EQ(AFCFileRefLock(second, theirs), 0);
    EXPECT_EQ(AFCConnectionClose(second), 0);
    EXPECT_EQ(AFCFileRefLock(first, mine), 0);
    EXPECT_EQ(AFCFileRefClose(first, mine), 0);
    EXPECT_FALSE(fake.phone().isLocked("/lock"));
    EXPECT_NE(AFCFileRefUnlock(first, mine), 0);
}

TEST_F(Fake, CountsLiveHandlesAndDoubleCloses) {
    afc_connection* connection = connect(fake.phone());
    afc_dictionary* info = nullptr;
    ASSERT_EQ(AFCDeviceInfoOpen(connection, &info), 0);
    open(connection, "/a", kAFCOpenWrite);
    EXPECT_EQ(fake.live().fileConnections, 1);
    EXPECT_EQ(fake.live().files, 1);
    EXPECT_EQ(fake.live().keyValues, 1);
    AFCKeyValueClose(info);
    AFCConnectionClose(connection);
    EXPECT_EQ(fake.live().fileConnections, 0);
    EXPECT_EQ(fake.live().files, 0);
    EXPECT_EQ(fake.live().keyValues, 0);
    EXPECT_EQ(fake.doubleCloses(), 0);
    EXPECT_NE(AFCConnectionClose(connection), 0);
    EXPECT_EQ(fake.doubleCloses(), 1);
}

TEST_F(Fake, ClosesAlsoWhenTheCloseIsToFail) {
    afc_connection* connection = connect(fake.phone());
    fake.fail("AFCConnectionClose", 5);
    EXPECT_EQ(AFCConnectionClose(connection), 5);
    EXPECT_EQ(fake.live().fileConnections, 0);
}

TEST_F(Fake, FailsEveryCallForAPhoneThatWasPulledOut) {
    afc_connection* connection = connect(fake.phone());
    fake.pull(fake.phone());
    EXPECT_EQ(AFCRemovePath(connection, "/DCIM"), kAFCNotConnected);
    EXPECT_EQ(AMDeviceConnect(fake.phone().device()), krl::test::kFakeNotConnected);
    EXPECT_TRUE(fake.phone().hasDirectory("/DCIM"));
    fake.attach();
    EXPECT_EQ(AMDeviceConnect(fake.phone().device()), 0);
    EXPECT_EQ(AFCRemovePath(connection, "/DCIM"), kAFCNotConnected);
}

TEST_F(Fake, TellsSubscribersOfArrivalsAndRemovals) {
    events.clear();
    fake.attach();
    EXPECT_THAT(events, IsEmpty());
    am_device_notification* subscription = nullptr;
    ASSERT_EQ(AMDeviceNotificationSubscribe(recordEvent, 0, 0, nullptr, &subscription), 0);
    EXPECT_THAT(events, IsEmpty());
    fake.deliverArrivals();
    fake.deliverArrivals();
    EXPECT_THAT(events, ElementsAre("1"));
    AMDeviceConnect(fake.phone().device());
    fake.detach();
    fake.attach();
    fake.notify(fake.phone(), 3);
    EXPECT_THAT(events, ElementsAre("1", "2", "1", "3"));
    EXPECT_EQ(AMDShutdownNotificationProxy(subscription), 0);
    EXPECT_EQ(fake.live().subscriptions, 0);
    fake.detach();
    EXPECT_EQ(events.size(), 4u);
    EXPECT_EQ(fake.calls().back(), "AMDShutdownNotificationProxy subscription");
}

TEST_F(Fake, LetsATestChangeTheWorldAtACall) {
    fake.onCall([&](const std::string& line) {
        if (line == "AMDeviceIsPaired") {
            fake.phone().paired(false);
        }
    });
    EXPECT_EQ(AMDeviceIsPaired(fake.phone().device()), 0);
}

TEST_F(Fake, GivesScriptedInformation) {
    afc_connection* connection = connect(fake.phone());
    fake.phone().fileInfo("/a", {{"st_size", "010"}, {"LinkTarget", std::nullopt}});
    afc_dictionary* info = nullptr;
    ASSERT_EQ(AFCFileInfoOpen(connection, "/a", &info), 0);
    char* key = nullptr;
    char* value = nullptr;
    EXPECT_EQ(AFCKeyValueRead(info, &key, &value), 0);
    EXPECT_STREQ(key, "st_size");
    EXPECT_STREQ(value, "010");
    EXPECT_EQ(AFCKeyValueRead(info, &key, &value), 0);
    EXPECT_STREQ(key, "LinkTarget");
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(AFCKeyValueRead(info, &key, &value), 0);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(AFCKeyValueClose(info), 0);
}

} // namespace
