#include "tests/library/phone/PhoneTest.h"

namespace {

using PhoneOpen = PhoneTest;
using PhoneClose = PhoneTest;
using FileService = PhoneTest;
using PhoneCounts = PhoneTest;

// ---------------------------------------------------------------------------- open

TEST_F(PhoneOpen, ConnectsChecksThePairingAndStartsTheFileService) {
    EXPECT_EQ(KRTPhoneOpen(phone), 1);
    EXPECT_THAT(fake.calls(), ElementsAreArray(kOpenCalls));
    EXPECT_EQ(counts(), (Counts{1, 1}));
    EXPECT_NE(phone->fileConnection, nullptr);
    EXPECT_NE(phone->fileService, nullptr);
    EXPECT_EQ(reportedCode(), std::nullopt);
}

TEST_F(PhoneOpen, OfAnOpenPhoneOnlyCounts) {
    openPhone();
    EXPECT_EQ(KRTPhoneOpen(phone), 1);
    EXPECT_EQ(KRTPhoneOpen(phone), 1);
    EXPECT_THAT(fake.calls(), IsEmpty());
    EXPECT_EQ(counts(), (Counts{3, 1}));
}

TEST_F(PhoneOpen, AnyAnswerButZeroSaysThatThePhoneIsPaired) {
    for (const int32_t answer : {1, 2, -1, INT32_MIN, 256}) {
        fake.phone().pairedAnswer(answer);
        EXPECT_EQ(KRTPhoneOpen(phone), 1) << answer;
        KRTPhoneClose(phone);
    }
    EXPECT_EQ(reportedCode(), std::nullopt);
}

class RecordWithoutDevice : public ::testing::Test {
protected:
    RecordWithoutDevice() : phone(KRTPhoneWithDevice(nullptr)) {
        KRTErrorClear();
        fake.clearCalls();
    }

    ~RecordWithoutDevice() override {
        KRTPhoneRelease(phone);
        KRTErrorClear();
    }

    FakeMobileDevice fake;
    KRTPhoneRef phone;
};

TEST_F(RecordWithoutDevice, OpenFailsWithCodeZeroDisconnectsNullAndClearsTheHandles) {
    phone->fileConnection = reinterpret_cast<afc_connection*>(&phone->spareValue);
    phone->fileService = reinterpret_cast<am_service*>(&phone->spareValue);
    EXPECT_EQ(KRTPhoneOpen(phone), 0);
    EXPECT_EQ(reportedCode(), 0);
    EXPECT_THAT(fake.calls(), ElementsAre("AMDeviceDisconnect null"));
    EXPECT_EQ(phone->fileConnection, nullptr);
    EXPECT_EQ(phone->fileService, nullptr);
    EXPECT_EQ(phone->openCount, 0);
}

TEST_F(RecordWithoutDevice, OpenLooksAtTheDeviceBeforeTheCount) {
    phone->openCount = 3;
    EXPECT_EQ(KRTPhoneOpen(phone), 0);
    EXPECT_EQ(reportedCode(), 0);
    EXPECT_EQ(phone->openCount, 0);
}

TEST_F(RecordWithoutDevice, StartOfTheFileServiceFailsAndClosesOnce) {
    phone->openCount = 3;
    EXPECT_EQ(KRTPhoneStartFileService(phone), 0);
    EXPECT_EQ(reportedCode(), -1000);
    EXPECT_EQ(phone->openCount, 2);
    EXPECT_THAT(fake.calls(), IsEmpty());
}

TEST_F(RecordWithoutDevice, CloseDisconnectsNothing) {
    phone->openCount = 1;
    KRTPhoneClose(phone);
    EXPECT_EQ(phone->openCount, 0);
    EXPECT_THAT(fake.calls(), IsEmpty());
}

// The call that fails on a phone that was opened before and has a file connection left; the code
// that is recorded; all calls from the failing one on; the service count that stays.
struct OpenFailure {
    const char* call;
    int code;
    std::vector<std::string> callsFromThere;
    int32_t serviceCount;
    int doubleCloses;
    int connectionsLeft;

    friend std::ostream& operator<<(std::ostream& out, const OpenFailure& row) {
        return out << row.call;
    }
};

const OpenFailure kOpenFailures[] = {
    {"AMDeviceConnect", kStatus, {"AMDeviceConnect", "AMDeviceDisconnect"}, 1, 0, 1},
    {"AMDeviceIsPaired", 0, {"AMDeviceIsPaired", "AMDeviceDisconnect"}, 1, 0, 1},
    {"AMDeviceValidatePairing",
     kStatus,
     {"AMDeviceValidatePairing", "AMDeviceDisconnect"},
     1,
     0,
     1},
    {"AMDeviceStartSession",
     kStatus,
     {"AMDeviceStartSession", "AFCConnectionClose closed 1", "AMDeviceDisconnect",
      "AMDeviceDisconnect"},
     0,
     1,
     0},
    {"AMDeviceStartService",
     kStatus,
     {"AMDeviceStartService com.apple.afc", "AFCConnectionClose closed 1", "AMDeviceDisconnect",
      "AMDeviceDisconnect"},
     0,
     1,
     0},
    {"AMDeviceStopSession",
     kStatus,
     {"AMDeviceStopSession", "AFCConnectionClose closed 1", "AMDeviceDisconnect",
      "AMDeviceDisconnect"},
     0,
     1,
     0},
    {"AFCConnectionOpen",
     kStatus,
     {"AFCConnectionOpen", "AFCConnectionClose closed 1", "AMDeviceDisconnect",
      "AMDeviceDisconnect"},
     0,
     1,
     0},
};

class PhoneOpenFailure : public ::testing::TestWithParam<OpenFailure>, protected WithPhone {};

TEST_P(PhoneOpenFailure, RecordsTheStatusDisconnectsAndForgetsTheHandles) {
    const OpenFailure& row = GetParam();
    openPhone();
    KRTPhoneClose(phone);
    ASSERT_EQ(counts(), (Counts{0, 1}));
    fake.clearCalls();
    fake.fail(row.call, kStatus);

    EXPECT_EQ(KRTPhoneOpen(phone), 0);

    EXPECT_EQ(reportedCode(), row.code);
    EXPECT_EQ(counts(), (Counts{0, row.serviceCount}));
    EXPECT_EQ(phone->fileConnection, nullptr);
    EXPECT_EQ(phone->fileService, nullptr);
    const auto& calls = fake.calls();
    const auto failing = std::find(calls.begin(), calls.end(), row.callsFromThere.front());
    EXPECT_THAT(std::vector<std::string>(failing, calls.end()),
                ElementsAreArray(row.callsFromThere));
    EXPECT_EQ(fake.doubleCloses(), row.doubleCloses);
    EXPECT_EQ(fake.live().fileConnections, row.connectionsLeft);
}

TEST_P(PhoneOpenFailure, LeavesAPhoneThatOpensAgain) {
    openPhone();
    KRTPhoneClose(phone);
    fake.failNth(GetParam().call, 1, kStatus);
    ASSERT_EQ(KRTPhoneOpen(phone), 0);
    EXPECT_EQ(KRTPhoneOpen(phone), 1);
    EXPECT_EQ(counts(), (Counts{1, 1}));
}

INSTANTIATE_TEST_SUITE_P(EachCall, PhoneOpenFailure, ::testing::ValuesIn(kOpenFailures),
                         [](const auto& row) { return std::string(row.param.call); });

TEST_F(PhoneOpen, OfAPhoneThatIsNotPairedFailsWithCodeZero) {
    fake.phone().paired(false);
    EXPECT_EQ(KRTPhoneOpen(phone), 0);
    EXPECT_EQ(reportedCode(), 0);
    EXPECT_THAT(fake.calls(),
                ElementsAre("AMDeviceConnect", "AMDeviceIsPaired", "AMDeviceDisconnect"));
}

TEST_F(PhoneOpen, WhoseFileServiceFailsRecordsTheFileServicesReasonFirst) {
    fake.fail("AFCConnectionOpen", kStatus);
    EXPECT_EQ(KRTPhoneOpen(phone), 0);
    EXPECT_EQ(reportedCode(), kStatus);
}

TEST_F(PhoneOpen, WhoseFileServiceFailsThenReportsMinusThousand) {
    fake.fail("AFCConnectionOpen", kStatus);
    // The disconnection of the failed start comes between the two reports; that of the open after.
    int disconnections = 0;
    fake.onCall([&](const std::string& line) {
        if (line == "AMDeviceDisconnect" && ++disconnections == 1) {
            KRTErrorClear();
        }
    });
    EXPECT_EQ(KRTPhoneOpen(phone), 0);
    EXPECT_EQ(disconnections, 2);
    EXPECT_EQ(reportedCode(), -1000);
}

TEST_F(PhoneOpen, ThatFailsBeforeTheFileServiceKeepsItsCountAndLeavesTheConnectionOpen) {
    openPhone();
    ASSERT_EQ(KRTPhoneStartFileService(phone), 1);
    KRTPhoneClose(phone);
    fake.fail("AMDeviceConnect", kStatus);
    EXPECT_EQ(KRTPhoneOpen(phone), 0);
    EXPECT_EQ(counts(), (Counts{0, 2}));
    EXPECT_EQ(phone->fileConnection, nullptr);
    EXPECT_EQ(fake.live().fileConnections, 1);
}

TEST_F(PhoneOpen, ForgetsStartsThatWereNeverEnded) {
    openPhone();
    ASSERT_EQ(KRTPhoneStartFileService(phone), 1);
    KRTPhoneClose(phone);
    ASSERT_EQ(counts(), (Counts{0, 2}));
    EXPECT_EQ(KRTPhoneOpen(phone), 1);
    EXPECT_EQ(counts(), (Counts{1, 1}));
}

// ---------------------------------------------------------------------------- close

TEST_F(PhoneClose, OfAClosedPhoneDoesNothing) {
    KRTPhoneClose(phone);
    KRTPhoneClose(phone);
    EXPECT_EQ(counts(), (Counts{0, 0}));
    EXPECT_THAT(fake.calls(), IsEmpty());
}

TEST_F(PhoneClose, TakesOneOpenBack) {
    openPhone(2);
    KRTPhoneClose(phone);
    EXPECT_EQ(counts(), (Counts{1, 1}));
    EXPECT_THAT(fake.calls(), IsEmpty());
}

TEST_F(PhoneClose, OfTheLastOpenDisconnectsAndKeepsTheFileConnection) {
    openPhone();
    KRTPhoneClose(phone);
    EXPECT_EQ(counts(), (Counts{0, 1}));
    EXPECT_THAT(fake.calls(), ElementsAre("AMDeviceDisconnect"));
    EXPECT_NE(phone->fileConnection, nullptr);
    EXPECT_EQ(fake.live().fileConnections, 1);
}

TEST_F(PhoneClose, LeavesAConnectionThatTheNextOpenCloses) {
    openPhone();
    KRTPhoneClose(phone);
    fake.clearCalls();
    EXPECT_EQ(KRTPhoneOpen(phone), 1);
    EXPECT_THAT(fake.calls(),
                ElementsAre("AMDeviceConnect", "AMDeviceIsPaired", "AMDeviceValidatePairing",
                            "AFCConnectionClose 1", "AMDeviceStartSession",
                            "AMDeviceStartService com.apple.afc", "AMDeviceStopSession",
                            "AFCConnectionOpen"));
    EXPECT_EQ(fake.live().fileConnections, 1);
    EXPECT_EQ(fake.doubleCloses(), 0);
}

// ---------------------------------------------------------------------------- file service

TEST_F(FileService, StartOfARunningServiceOnlyCounts) {
    openPhone();
    EXPECT_EQ(KRTPhoneStartFileService(phone), 1);
    EXPECT_EQ(counts(), (Counts{1, 2}));
    EXPECT_THAT(fake.calls(), IsEmpty());
}

TEST_F(FileService, StartMakesANewConnectionInASessionOfItsOwn) {
    openPhoneWithoutService();
    EXPECT_EQ(KRTPhoneStartFileService(phone), 1);
    EXPECT_THAT(fake.calls(),
                ElementsAre("AMDeviceStartSession", "AMDeviceStartService com.apple.afc",
                            "AMDeviceStopSession", "AFCConnectionOpen"));
    EXPECT_EQ(counts(), (Counts{1, 1}));
}

TEST_F(FileService, StartOnAClosedPhoneFailsWithMinus500AndLeavesTheOpenCount) {
    EXPECT_EQ(KRTPhoneStartFileService(phone), 0);
    EXPECT_EQ(reportedCode(), -500);
    EXPECT_EQ(counts(), (Counts{0, 0}));
    EXPECT_THAT(fake.calls(), IsEmpty());
}

TEST_F(FileService, StartOnAClosedPhoneClosesAndForgetsAConnectionThatIsLeft) {
    openPhone();
    KRTPhoneClose(phone);
    phone->fileServiceCount = 0;
    fake.clearCalls();
    EXPECT_EQ(KRTPhoneStartFileService(phone), 0);
    EXPECT_EQ(reportedCode(), -500);
    EXPECT_THAT(fake.calls(), ElementsAre("AFCConnectionClose 1"));
    EXPECT_EQ(phone->fileConnection, nullptr);
    EXPECT_EQ(phone->fileService, nullptr);
}

TEST_F(FileService, StartCountsARunningServiceAlsoWhenThePhoneIsClosed) {
    openPhone();
    KRTPhoneClose(phone);
    ASSERT_EQ(counts(), (Counts{0, 1}));
    fake.clearCalls();
    EXPECT_EQ(KRTPhoneStartFileService(phone), 1);
    EXPECT_EQ(counts(), (Counts{0, 2}));
    EXPECT_EQ(reportedCode(), std::nullopt);
    EXPECT_THAT(fake.calls(), IsEmpty());
}

// The call that fails on a phone opened twice with a connection left, and whether the session that
// was started is still there.
struct StartFailure {
    const char* call;
    std::vector<std::string> calls;
    bool inSession;

    friend std::ostream& operator<<(std::ostream& out, const StartFailure& row) {
        return out << row.call;
    }
};

const StartFailure kStartFailures[] = {
    {"AMDeviceStartSession",
     {"AFCConnectionClose 1", "AMDeviceStartSession", "AFCConnectionClose closed 1"},
     false},
    {"AMDeviceStartService",
     {"AFCConnectionClose 1", "AMDeviceStartSession", "AMDeviceStartService com.apple.afc",
      "AFCConnectionClose closed 1"},
     true},
    {"AMDeviceStopSession",
     {"AFCConnectionClose 1", "AMDeviceStartSession", "AMDeviceStartService com.apple.afc",
      "AMDeviceStopSession", "AFCConnectionClose closed 1"},
     true},
    {"AFCConnectionOpen",
     {"AFCConnectionClose 1", "AMDeviceStartSession", "AMDeviceStartService com.apple.afc",
      "AMDeviceStopSession", "AFCConnectionOpen", "AFCConnectionClose closed 1"},
     false},
};

class FileServiceStartFailure : public ::testing::TestWithParam<StartFailure>,
                                protected WithPhone {};

TEST_P(FileServiceStartFailure, ClosesTheLeftoverConnectionTwiceAndThePhoneOnce) {
    const StartFailure& row = GetParam();
    openPhoneWithLeftover(2);
    fake.fail(row.call, kStatus);

    EXPECT_EQ(KRTPhoneStartFileService(phone), 0);

    EXPECT_EQ(reportedCode(), kStatus);
    EXPECT_THAT(fake.calls(), ElementsAreArray(row.calls));
    EXPECT_EQ(fake.doubleCloses(), 1);
    EXPECT_EQ(counts(), (Counts{1, 0}));
    EXPECT_EQ(phone->fileConnection, nullptr);
    EXPECT_EQ(phone->fileService, nullptr);
    EXPECT_EQ(fake.phone().isInSession(), row.inSession);
}

INSTANTIATE_TEST_SUITE_P(EachCall, FileServiceStartFailure, ::testing::ValuesIn(kStartFailures),
                         [](const auto& row) { return std::string(row.param.call); });

TEST_F(FileService, EndOnAClosedPhoneDoesNothingHoweverOftenItWasStarted) {
    openPhone();
    ASSERT_EQ(KRTPhoneStartFileService(phone), 1);
    KRTPhoneClose(phone);
    ASSERT_EQ(counts(), (Counts{0, 2}));
    fake.clearCalls();
    KRTPhoneEndFileService(phone);
    EXPECT_EQ(counts(), (Counts{0, 2}));
    EXPECT_THAT(fake.calls(), IsEmpty());
}

TEST_F(FileService, EndOfAServiceThatIsNotRunningDoesNothing) {
    openPhoneWithoutService();
    KRTPhoneEndFileService(phone);
    EXPECT_EQ(counts(), (Counts{1, 0}));
    EXPECT_THAT(fake.calls(), IsEmpty());
}

TEST_F(FileService, EndOfTheLastStartClosesTheConnectionAndKeepsTheServiceHandle) {
    openPhone(2);
    const am_service* service = phone->fileService;
    KRTPhoneEndFileService(phone);
    EXPECT_EQ(counts(), (Counts{1, 0}));
    EXPECT_THAT(fake.calls(), ElementsAre("AFCConnectionClose 1"));
    EXPECT_EQ(phone->fileConnection, nullptr);
    EXPECT_EQ(phone->fileService, service);
}

TEST_F(FileService, EndOfTheLastStartOfAPhoneOpenedOnceAlsoDisconnects) {
    openPhone();
    KRTPhoneEndFileService(phone);
    EXPECT_EQ(counts(), (Counts{0, 0}));
    EXPECT_THAT(fake.calls(), ElementsAre("AFCConnectionClose 1", "AMDeviceDisconnect"));
}

TEST_F(PhoneCounts, EndingTheFileServiceAlsoClosesOnce) {
    openPhone(3);
    ASSERT_EQ(KRTPhoneStartFileService(phone), 1);
    KRTPhoneEndFileService(phone);
    EXPECT_EQ(counts(), (Counts{2, 1}));
    EXPECT_THAT(fake.calls(), IsEmpty());
}

TEST_F(PhoneCounts, OneFileOperationOnAPhoneOpenedOnceLeavesItDisconnected) {
    openPhone();
    EXPECT_EQ(KRTPhoneCreateDirectoryAtPath(phone, "/a"), 1);
    EXPECT_EQ(counts(), (Counts{0, 1}));
    EXPECT_FALSE(fake.phone().isConnected());
    EXPECT_NE(phone->fileConnection, nullptr);
}

TEST_F(PhoneCounts, TheNextFileOperationReconnects) {
    openPhone();
    ASSERT_EQ(KRTPhoneCreateDirectoryAtPath(phone, "/a"), 1);
    fake.clearCalls();
    EXPECT_EQ(KRTPhoneCreateDirectoryAtPath(phone, "/b"), 1);
    EXPECT_THAT(fake.calls(),
                ElementsAre("AMDeviceConnect", "AMDeviceIsPaired", "AMDeviceValidatePairing",
                            "AFCConnectionClose 1", "AMDeviceStartSession",
                            "AMDeviceStartService com.apple.afc", "AMDeviceStopSession",
                            "AFCConnectionOpen", "AFCDirectoryCreate /b", "AMDeviceDisconnect"));
    EXPECT_EQ(counts(), (Counts{0, 1}));
    EXPECT_EQ(fake.live().fileConnections, 1);
    EXPECT_EQ(fake.doubleCloses(), 0);
}

TEST_F(PhoneCounts, NothingWorksOnAPhoneThatWasPulledOutAndNothingCrashes) {
    openPhone();
    fake.pull(fake.phone());
    EXPECT_EQ(KRTPhoneCreateDirectoryAtPath(phone, "/a"), 0);
    EXPECT_EQ(reportedCode(), kAFCNotConnected);
    KRTPhoneClose(phone);
    KRTErrorClear();
    EXPECT_EQ(KRTPhoneOpen(phone), 0);
    EXPECT_EQ(reportedCode(), krl::test::kFakeNotConnected);
}

} // namespace
