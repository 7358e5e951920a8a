#include "library/system/Clock.h"
#include "tests/library/phone/PhoneTest.h"

namespace {

using krl::test::kFakeNotConnected;

constexpr char kLockPath[] = "/com.apple.itunes.lock_sync";

/// Turns the clock: sleeping takes no time and is counted.
class TurnedClock {
public:
    TurnedClock() : before_(krl::system::setSleepFunction(count)) { sleeps.clear(); }

    ~TurnedClock() { krl::system::setSleepFunction(before_); }

    TurnedClock(const TurnedClock&) = delete;
    TurnedClock& operator=(const TurnedClock&) = delete;

    static std::vector<unsigned> sleeps;

private:
    static void count(unsigned seconds) { sleeps.push_back(seconds); }

    krl::system::SleepFunction before_;
};

std::vector<unsigned> TurnedClock::sleeps;

class SyncLock : public PhoneTest {
protected:
    /// A phone opened once with an open sync, which has closed it again.
    void beginSync() {
        openPhone();
        ASSERT_EQ(KRTPhoneBeginSync(phone), 1);
        fake.clearCalls();
    }

    TurnedClock clock;
};

// ---------------------------------------------------------------------------- begin

TEST_F(SyncLock, BeginTellsThePhoneLocksAndEndsTheFileService) {
    openPhone();
    EXPECT_EQ(KRTPhoneBeginSync(phone), 1);
    EXPECT_THAT(fake.calls(),
                ElementsAre("AMDeviceStartSession",
                            "AMDeviceStartService com.apple.mobile.notification_proxy",
                            "AMDeviceStopSession",
                            "AMDPostNotification com.apple.itunes-mobdev.syncWillStart",
                            "AFCFileRefOpen /com.apple.itunes.lock_sync 2",
                            "AMDPostNotification com.apple.itunes-mobdev.syncLockRequest",
                            "AFCFileRefLock 1", "AMDeviceDisconnect"));
    EXPECT_EQ(counts(), (Counts{0, 1}));
    EXPECT_NE(phone->notificationProxy, nullptr);
    EXPECT_EQ(phone->lockFile, 1u);
    EXPECT_TRUE(fake.phone().isLocked(kLockPath));
    EXPECT_EQ(fake.live().fileConnections, 1);
    EXPECT_EQ(reportedCode(), std::nullopt);
    EXPECT_THAT(TurnedClock::sleeps, IsEmpty());
}

TEST_F(SyncLock, BeginTwicePostsNothingAndCountsNothing) {
    beginSync();
    const Counts before = counts();
    EXPECT_EQ(KRTPhoneBeginSync(phone), 1);
    EXPECT_THAT(fake.calls(), IsEmpty());
    EXPECT_EQ(counts(), before);
}

TEST_F(SyncLock, BeginDoesNotOpenThePhone) {
    EXPECT_EQ(KRTPhoneBeginSync(phone), 0);
    EXPECT_EQ(reportedCode(), -500);
    EXPECT_THAT(fake.calls(), IsEmpty());
    EXPECT_EQ(counts(), (Counts{0, 0}));
}

TEST_F(SyncLock, BeginWithoutFileServiceThenReportsCodeZero) {
    openPhone();
    KRTPhoneClose(phone);
    phone->fileServiceCount = 0;
    clearErrorsAt("AFCConnectionClose");
    // The connection that is left is closed between the two reports.
    EXPECT_EQ(KRTPhoneBeginSync(phone), 0);
    EXPECT_EQ(reportedCode(), 0);
}

TEST_F(SyncLock, BeginOnAClosedPhoneWithAStartedServiceGoesOnOverTheDisconnectedDevice) {
    openPhone();
    ASSERT_EQ(KRTPhoneCreateDirectoryAtPath(phone, "/a"), 1);
    ASSERT_EQ(counts(), (Counts{0, 1}));
    fake.clearCalls();
    EXPECT_EQ(KRTPhoneBeginSync(phone), 0);
    EXPECT_THAT(fake.calls(), ElementsAre("AMDeviceStartSession"));
    EXPECT_EQ(reportedCode(), kFakeNotConnected);
    EXPECT_EQ(counts(), (Counts{0, 2}));
}

TEST_F(SyncLock, BeginIgnoresAFailureToStopTheSession) {
    openPhone();
    fake.fail("AMDeviceStopSession", kStatus);
    EXPECT_EQ(KRTPhoneBeginSync(phone), 1);
    EXPECT_EQ(reportedCode(), std::nullopt);
    EXPECT_TRUE(fake.phone().isLocked(kLockPath));
}

TEST_F(SyncLock, BeginOnAPhoneOpenedTwiceLeavesItOpenOnce) {
    openPhone(2);
    EXPECT_EQ(KRTPhoneBeginSync(phone), 1);
    EXPECT_EQ(counts(), (Counts{1, 1}));
    EXPECT_TRUE(fake.phone().isConnected());
}

// The call that fails and which one of its name; what stays behind.
struct BeginFailure {
    const char* name;
    const char* call;
    int nth;
    std::string lastLine;
    bool hasProxy;
    bool hasLockFile;
    bool inSession;

    friend std::ostream& operator<<(std::ostream& out, const BeginFailure& row) {
        return out << row.name;
    }
};

const BeginFailure kBeginFailures[] = {
    {"Session", "AMDeviceStartSession", 1, "AMDeviceStartSession", false, false, false},
    {"Proxy", "AMDeviceStartService", 1, "AMDeviceStartService com.apple.mobile.notification_proxy",
     false, false, true},
    {"WillStart", "AMDPostNotification", 1,
     "AMDPostNotification com.apple.itunes-mobdev.syncWillStart", true, false, false},
    {"LockFile", "AFCFileRefOpen", 1, "AFCFileRefOpen /com.apple.itunes.lock_sync 2", true, false,
     false},
    {"LockRequest", "AMDPostNotification", 2,
     "AMDPostNotification com.apple.itunes-mobdev.syncLockRequest", true, true, false},
};

class SyncLockBeginFailure : public ::testing::TestWithParam<BeginFailure>, protected WithPhone {
protected:
    TurnedClock clock;
};

TEST_P(SyncLockBeginFailure, RecordsTheStatusAndUndoesNothing) {
    const BeginFailure& row = GetParam();
    openPhone();
    fake.failNth(row.call, row.nth, kStatus);
    EXPECT_EQ(KRTPhoneBeginSync(phone), 0);
    EXPECT_EQ(reportedCode(), kStatus);
    EXPECT_EQ(fake.calls().back(), row.lastLine);
    EXPECT_EQ(counts(), (Counts{1, 2}));
    EXPECT_EQ(phone->notificationProxy != nullptr, row.hasProxy);
    EXPECT_EQ(fake.live().proxies, row.hasProxy ? 1 : 0);
    EXPECT_EQ(phone->lockFile != 0, row.hasLockFile);
    EXPECT_EQ(fake.live().files, row.hasLockFile ? 1 : 0);
    EXPECT_EQ(fake.phone().isInSession(), row.inSession);
}

TEST_P(SyncLockBeginFailure, LetsTheNextBeginSucceedAtOnceWhenTheProxyIsThere) {
    const BeginFailure& row = GetParam();
    openPhone();
    fake.failNth(row.call, row.nth, kStatus);
    ASSERT_EQ(KRTPhoneBeginSync(phone), 0);
    fake.clearCalls();
    const int again = KRTPhoneBeginSync(phone);
    if (row.hasProxy) {
        EXPECT_EQ(again, 1);
        EXPECT_THAT(fake.calls(), IsEmpty());
        EXPECT_EQ(counts(), (Counts{1, 2}));
    } else {
        EXPECT_EQ(fake.calls().front(), "AMDeviceStartSession");
    }
}

INSTANTIATE_TEST_SUITE_P(EachCall, SyncLockBeginFailure, ::testing::ValuesIn(kBeginFailures),
                         [](const auto& row) { return std::string(row.param.name); });

// ---------------------------------------------------------------------------- the wait

TEST_F(SyncLock, BeginSucceedsAfterSevenRefusals) {
    openPhone();
    fake.phone().lockHeldElsewhere(kLockPath);
    EXPECT_EQ(KRTPhoneBeginSync(phone), 1);
    EXPECT_EQ(fake.countOf("AFCFileRefLock"), 7);
    EXPECT_THAT(TurnedClock::sleeps, ElementsAre(1u, 1u, 1u, 1u, 1u, 1u, 1u));
    EXPECT_EQ(reportedCode(), std::nullopt);
    EXPECT_NE(phone->notificationProxy, nullptr);
    EXPECT_EQ(counts(), (Counts{0, 1}));
}

class SyncLockWait : public ::testing::TestWithParam<int>, protected WithPhone {
protected:
    TurnedClock clock;
};

TEST_P(SyncLockWait, SleepsOneSecondAfterEachRefusalAndStopsWhenItHasTheLock) {
    const int refusals = GetParam();
    openPhone();
    fake.failFirst("AFCFileRefLock", refusals, kAFCWouldBlock);
    EXPECT_EQ(KRTPhoneBeginSync(phone), 1);
    EXPECT_EQ(fake.countOf("AFCFileRefLock"), refusals + 1);
    EXPECT_EQ(TurnedClock::sleeps, std::vector<unsigned>(static_cast<size_t>(refusals), 1));
    EXPECT_TRUE(fake.phone().isLocked(kLockPath));
}

INSTANTIATE_TEST_SUITE_P(Refusals, SyncLockWait, ::testing::Range(0, 7));

// ---------------------------------------------------------------------------- end

TEST_F(SyncLock, EndUnlocksClosesTellsThePhoneAndEndsTheProxy) {
    beginSync();
    EXPECT_EQ(KRTPhoneEndSync(phone), 1);
    EXPECT_THAT(fake.calls(),
                ElementsAre("AFCFileRefUnlock 1", "AFCFileRefClose 1",
                            "AMDPostNotification com.apple.itunes-mobdev.syncDidFinish",
                            "AMDShutdownNotificationProxy proxy"));
    EXPECT_EQ(phone->notificationProxy, nullptr);
    EXPECT_EQ(phone->lockFile, 0u);
    EXPECT_FALSE(fake.phone().isLocked(kLockPath));
    EXPECT_EQ(fake.live().proxies, 0);
    EXPECT_EQ(reportedCode(), std::nullopt);
}

TEST_F(SyncLock, CountsAfterOpenBeginAndEndAreZeroAndTwo) {
    beginSync();
    ASSERT_EQ(counts(), (Counts{0, 1}));
    EXPECT_EQ(KRTPhoneEndSync(phone), 1);
    EXPECT_EQ(counts(), (Counts{0, 2}));
}

TEST_F(SyncLock, EndOnAnOpenPhoneEndsTheServiceAndClosesOnce) {
    openPhone(3);
    ASSERT_EQ(KRTPhoneBeginSync(phone), 1);
    ASSERT_EQ(counts(), (Counts{2, 1}));
    EXPECT_EQ(KRTPhoneEndSync(phone), 1);
    EXPECT_EQ(counts(), (Counts{1, 1}));
}

TEST_F(SyncLock, EndWithoutBeginFailsWithCodeZero) {
    openPhone();
    EXPECT_EQ(KRTPhoneEndSync(phone), 0);
    EXPECT_EQ(reportedCode(), 0);
    EXPECT_THAT(fake.calls(), IsEmpty());
    EXPECT_EQ(counts(), (Counts{1, 1}));
}

TEST_F(SyncLock, EndTwiceFailsTheSecondTime) {
    beginSync();
    ASSERT_EQ(KRTPhoneEndSync(phone), 1);
    EXPECT_EQ(KRTPhoneEndSync(phone), 0);
    EXPECT_EQ(reportedCode(), 0);
}

TEST_F(SyncLock, EndWithoutFileServiceFailsAndKeepsTheSyncOpen) {
    beginSync();
    phone->fileServiceCount = 0;
    EXPECT_EQ(KRTPhoneEndSync(phone), 0);
    EXPECT_EQ(reportedCode(), -500);
    EXPECT_NE(phone->notificationProxy, nullptr);
    EXPECT_NE(phone->lockFile, 0u);
    EXPECT_EQ(fake.countOf("AFCFileRefUnlock"), 0);
}

TEST_F(SyncLock, EndWithoutFileServiceThenReportsCodeOne) {
    beginSync();
    phone->fileServiceCount = 0;
    clearErrorsAt("AFCConnectionClose");
    EXPECT_EQ(KRTPhoneEndSync(phone), 0);
    EXPECT_EQ(reportedCode(), 1);
}

class SyncLockEndFailure : public ::testing::TestWithParam<const char*>, protected WithPhone {
protected:
    TurnedClock clock;
};

TEST_P(SyncLockEndFailure, IsIgnoredAndTheSyncIsClosedAllTheSame) {
    openPhone();
    ASSERT_EQ(KRTPhoneBeginSync(phone), 1);
    phone->spareConnection = phone->notificationProxy;
    fake.clearCalls();
    fake.fail(GetParam(), kStatus);
    EXPECT_EQ(KRTPhoneEndSync(phone), 1);
    EXPECT_EQ(reportedCode(), std::nullopt);
    EXPECT_EQ(fake.calls().size(), 4u);
    EXPECT_EQ(phone->notificationProxy, nullptr);
    EXPECT_EQ(phone->spareConnection, nullptr);
    EXPECT_EQ(phone->lockFile, 0u);
    EXPECT_EQ(counts(), (Counts{0, 2}));
}

INSTANTIATE_TEST_SUITE_P(EachCall, SyncLockEndFailure,
                         ::testing::Values("AFCFileRefUnlock", "AFCFileRefClose",
                                           "AMDPostNotification", "AMDShutdownNotificationProxy"),
                         [](const auto& row) { return std::string(row.param); });

TEST_F(SyncLock, ReconnectingDuringASyncFreesTheLockAndEndStillSucceeds) {
    beginSync();
    EXPECT_EQ(KRTPhoneCreateDirectoryAtPath(phone, "/a"), 1);
    EXPECT_FALSE(fake.phone().isLocked(kLockPath));
    fake.clearCalls();
    EXPECT_EQ(KRTPhoneEndSync(phone), 1);
    EXPECT_EQ(fake.calls()[0], "AFCFileRefUnlock 1");
    EXPECT_EQ(fake.calls()[1], "AFCFileRefClose 1");
    EXPECT_EQ(reportedCode(), std::nullopt);
}

TEST_F(SyncLock, EndAfterAFailedReconnectionUnlocksOnANullConnection) {
    beginSync();
    fake.failNth("AMDeviceConnect", 1, kStatus);
    ASSERT_EQ(KRTPhoneCreateDirectoryAtPath(phone, "/a"), 0);
    fake.clearCalls();
    KRTErrorClear();
    EXPECT_EQ(KRTPhoneEndSync(phone), 1);
    EXPECT_THAT(fake.calls(),
                ElementsAre("AFCFileRefUnlock 1 (null connection)",
                            "AFCFileRefClose 1 (null connection)",
                            "AMDPostNotification com.apple.itunes-mobdev.syncDidFinish",
                            "AMDShutdownNotificationProxy proxy"));
    EXPECT_EQ(reportedCode(), std::nullopt);
}

} // namespace
