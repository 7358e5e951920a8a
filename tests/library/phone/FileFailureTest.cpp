#include "tests/library/phone/PhoneTest.h"

#include <CoreFoundation/CFRef.h>

#include <algorithm>
#include <set>

// What each failure of a file operation records and gives back, row for row, and a sweep over every
// call of every operation.

namespace {

struct Operation {
    const char* name;
    /// Runs it on paths that exist; true for success.
    bool (*run)(KRTPhoneRef phone);
    /// Its codes when the phone cannot be opened, and when the file service cannot be started.
    int codeOpenFailed;
    int codeServiceFailed;
    /// Opens after a failed start of the service, of 3 before the operation.
    int32_t openAfterServiceFailed;
};

// 1 is success, 0 failure, and there is no third.
bool succeeded(int result) {
    EXPECT_TRUE(result == 0 || result == 1) << "result " << result;
    return result == 1;
}

bool createDirectory(KRTPhoneRef phone) {
    return succeeded(KRTPhoneCreateDirectoryAtPath(phone, "/new"));
}

bool listDirectory(KRTPhoneRef phone) {
    return static_cast<bool>(krl::cf::adopt(KRTPhoneListDirectoryAtPath(phone, "/R")));
}

bool removeObject(KRTPhoneRef phone) {
    return succeeded(KRTPhoneRemoveObjectAtPath(phone, "/R/a"));
}

bool renameObject(KRTPhoneRef phone) {
    return succeeded(KRTPhoneRenameObjectAtPath(phone, "/R/a", "/R/b"));
}

bool writeData(KRTPhoneRef phone) {
    return succeeded(KRTPhoneWriteDataToFileAtPath(phone, "/R/a", "bytes", 5));
}

bool readFile(KRTPhoneRef phone) {
    char buffer[8];
    uint32_t length = sizeof buffer;
    return succeeded(KRTPhoneReadFileAtPath(phone, "/R/a", buffer, &length));
}

bool sizeOfFile(KRTPhoneRef phone) {
    uint32_t size = 0;
    return succeeded(KRTPhoneSizeOfFileAtPath(phone, "/R/a", &size));
}

const Operation kCreate = {"CreateDirectory", createDirectory, 0, 0, 2};
const Operation kList = {"ListDirectory", listDirectory, 0, 1, 2};
const Operation kRemove = {"Remove", removeObject, 1, 0, 2};
const Operation kRename = {"Rename", renameObject, 1, 0, 2};
const Operation kWrite = {"Write", writeData, 1, 0, 3};
const Operation kRead = {"Read", readFile, 1, 2, 3};
const Operation kSize = {"Size", sizeOfFile, 0, 0, 2};

const Operation kOperations[] = {kCreate, kList, kRemove, kRename, kWrite, kRead, kSize};

// ---------------------------------------------------------------------------- open, service

class FileOperation : public ::testing::TestWithParam<Operation>, protected WithPhone {
protected:
    FileOperation() { fake.phone().file("/R/a", "contents"); }
};

TEST_P(FileOperation, LowersTheOpenCountByTwoAndRaisesItByOne) {
    openPhone(5);
    EXPECT_TRUE(GetParam().run(phone));
    EXPECT_EQ(counts(), (Counts{4, 1}));
    EXPECT_EQ(reportedCode(), std::nullopt);
}

TEST_P(FileOperation, OnAnOpenPhoneDoesNotReconnect) {
    openPhone(2);
    EXPECT_TRUE(GetParam().run(phone));
    EXPECT_EQ(fake.countOf("AMDeviceConnect"), 0);
    EXPECT_EQ(fake.countOf("AMDeviceDisconnect"), 0);
    EXPECT_EQ(counts(), (Counts{1, 1}));
}

TEST_P(FileOperation, ThatCannotOpenThePhoneReportsItsOwnCodeAfterTheReason) {
    fake.phone().paired(false);
    clearErrorsAt("AMDeviceDisconnect");
    EXPECT_FALSE(GetParam().run(phone));
    EXPECT_EQ(reportedCode(), GetParam().codeOpenFailed);
    EXPECT_EQ(counts(), (Counts{0, 0}));
    EXPECT_THAT(fake.calls(),
                ElementsAre("AMDeviceConnect", "AMDeviceIsPaired", "AMDeviceDisconnect"));
}

TEST_P(FileOperation, ThatCannotOpenThePhoneRecordsTheReason) {
    fake.fail("AMDeviceConnect", kStatus);
    EXPECT_FALSE(GetParam().run(phone));
    EXPECT_EQ(reportedCode(), kStatus);
    EXPECT_THAT(fake.calls(), ElementsAre("AMDeviceConnect", "AMDeviceDisconnect"));
}

TEST_P(FileOperation, ThatCannotStartTheServiceReportsItsOwnCodeAfterTheReason) {
    openPhoneWithLeftover(3);
    fake.fail("AMDeviceStartSession", kStatus);
    // Closed for the second time after the reason was recorded.
    clearErrorsAt("AFCConnectionClose closed");
    EXPECT_FALSE(GetParam().run(phone));
    EXPECT_EQ(reportedCode(), GetParam().codeServiceFailed);
    EXPECT_EQ(counts(), (Counts{GetParam().openAfterServiceFailed, 0}));
    EXPECT_THAT(fake.calls(), ElementsAre("AFCConnectionClose 1", "AMDeviceStartSession",
                                          "AFCConnectionClose closed 1"));
}

TEST_P(FileOperation, ThatCannotStartTheServiceRecordsTheReason) {
    openPhoneWithoutService();
    fake.fail("AMDeviceStopSession", kStatus);
    EXPECT_FALSE(GetParam().run(phone));
    EXPECT_EQ(reportedCode(), kStatus);
}

INSTANTIATE_TEST_SUITE_P(Each, FileOperation, ::testing::ValuesIn(kOperations),
                         [](const auto& row) { return std::string(row.param.name); });

// ---------------------------------------------------------------------------- the work itself

// The call that fails, and what is given back afterwards: seen in the counts from three beginnings
// (closed; opened five times; open once without a running service) and, from the last one, in the
// calls from the failing one on.
struct FileFailure {
    Operation operation;
    const char* call;
    Counts fromClosed;
    Counts fromFive;
    Counts fromNoService;
    std::vector<std::string> callsFromThere;

    friend std::ostream& operator<<(std::ostream& out, const FileFailure& row) {
        return out << row.operation.name << " " << row.call;
    }
};

const FileFailure kFileFailures[] = {
    // Closed once, the service not ended.
    {kCreate, "AFCDirectoryCreate", {0, 2}, {5, 2}, {1, 1}, {"AFCDirectoryCreate /new"}},
    {kRemove, "AFCRemovePath", {0, 2}, {5, 2}, {1, 1}, {"AFCRemovePath /R/a"}},
    {kRename, "AFCRenamePath", {0, 2}, {5, 2}, {1, 1}, {"AFCRenamePath /R/a /R/b"}},
    // Service ended, closed, closed once more.
    {kList,
     "AFCDirectoryOpen",
     {0, 1},
     {3, 1},
     {0, 0},
     {"AFCDirectoryOpen /R", "AFCConnectionClose 2", "AMDeviceDisconnect"}},
    // Nothing.
    {kWrite, "AFCFileRefOpen", {1, 2}, {6, 2}, {2, 1}, {"AFCFileRefOpen /R/a 3"}},
    // The file closed, nothing else.
    {kWrite,
     "AFCFileRefWrite",
     {1, 2},
     {6, 2},
     {2, 1},
     {"AFCFileRefWrite 1 5", "AFCFileRefClose 1"}},
    // Service ended, closed.
    {kRead,
     "AFCFileRefOpen",
     {0, 1},
     {4, 1},
     {0, 0},
     {"AFCFileRefOpen /R/a 2", "AFCConnectionClose 2", "AMDeviceDisconnect"}},
    // The file closed, service ended, closed.
    {kRead,
     "AFCFileRefRead",
     {0, 1},
     {4, 1},
     {0, 0},
     {"AFCFileRefRead 1 8", "AFCFileRefClose 1", "AFCConnectionClose 2", "AMDeviceDisconnect"}},
    // Service ended, closed.
    {kSize,
     "AFCFileInfoOpen",
     {0, 1},
     {4, 1},
     {0, 0},
     {"AFCFileInfoOpen /R/a", "AFCConnectionClose 2", "AMDeviceDisconnect"}},
};

class FileOperationFailure : public ::testing::TestWithParam<FileFailure>, protected WithPhone {
protected:
    FileOperationFailure() { fake.phone().file("/R/a", "contents"); }

    void runAndFail() {
        fake.fail(GetParam().call, kStatus);
        EXPECT_FALSE(GetParam().operation.run(phone));
        EXPECT_EQ(reportedCode(), kStatus);
        EXPECT_EQ(fake.live().files, 0);
        EXPECT_EQ(fake.live().keyValues, 0);
        EXPECT_EQ(fake.live().directories, 0);
        EXPECT_EQ(fake.doubleCloses(), 0);
    }
};

TEST_P(FileOperationFailure, OnAClosedPhoneRecordsTheStatusAndGivesBackExactlyThis) {
    runAndFail();
    EXPECT_EQ(counts(), GetParam().fromClosed);
}

TEST_P(FileOperationFailure, OnAPhoneOpenedFiveTimesRecordsTheStatusAndGivesBackExactlyThis) {
    openPhone(5);
    runAndFail();
    EXPECT_EQ(counts(), GetParam().fromFive);
    EXPECT_EQ(fake.countOf("AMDeviceDisconnect"), 0);
}

TEST_P(FileOperationFailure, WithoutARunningServiceGivesBackInThisOrder) {
    openPhoneWithoutService();
    runAndFail();
    EXPECT_EQ(counts(), GetParam().fromNoService);
    const auto& calls = fake.calls();
    const auto failing = std::find(calls.begin(), calls.end(), GetParam().callsFromThere.front());
    EXPECT_THAT(std::vector<std::string>(failing, calls.end()),
                ElementsAreArray(GetParam().callsFromThere));
}

INSTANTIATE_TEST_SUITE_P(Each, FileOperationFailure, ::testing::ValuesIn(kFileFailures),
                         [](const auto& row) {
                             return std::string(row.param.operation.name) + row.param.call;
                         });

TEST(FileOperationReports, TellByTheirLineWhichCallFailed) {
    std::set<int> lines;
    for (const FileFailure& row : kFileFailures) {
        KRTErrorClear();
        FakeMobileDevice fake;
        fake.phone().file("/R/a", "contents");
        fake.fail(row.call, kStatus);
        KRTPhoneRef phone = KRTPhoneWithDevice(fake.phone().device());
        EXPECT_FALSE(row.operation.run(phone));
        EXPECT_TRUE(lines.insert(KRTErrorGetLine()).second) << row;
        KRTPhoneRelease(phone);
    }
    KRTErrorClear();
}

TEST_F(PhoneTest, ReadThatCannotOpenTheFileSetsTheCallersLengthToZero) {
    fake.fail("AFCFileRefOpen", kStatus);
    char buffer[8];
    uint32_t length = sizeof buffer;
    EXPECT_EQ(KRTPhoneReadFileAtPath(phone, "/a", buffer, &length), 0);
    EXPECT_EQ(length, 0u);
}

// ---------------------------------------------------------------------------- sweep

// Calls whose outcome no file operation looks at.
bool isIgnored(const std::string& call) {
    static const char* const kIgnored[] = {
        "AMDeviceDisconnect", "AFCConnectionClose", "AFCDirectoryRead", "AFCDirectoryClose",
        "AFCFileRefClose",    "AFCKeyValueRead",    "AFCKeyValueClose"};
    return std::any_of(std::begin(kIgnored), std::end(kIgnored),
                       [&](const char* name) { return call.rfind(name, 0) == 0; });
}

struct Sweep {
    Operation operation;
    bool onwards;
    int opensBefore;
};

class FileOperationSweep : public ::testing::TestWithParam<Sweep> {};

// One run on a phone of its own with the n-th call failing; false when there is no n-th call.
class SweepRun : protected WithPhone {
public:
    bool run(const Sweep& sweep, int n) {
        SCOPED_TRACE("call " + std::to_string(n));
        fake.phone().file("/R/a", "contents");
        openPhone(sweep.opensBefore);
        sweep.onwards ? fake.failFromCall(n, kStatus) : fake.failNthCall(n, kStatus);
        const bool isDone = sweep.operation.run(phone);
        if (fake.faultsMet() == 0) {
            EXPECT_TRUE(isDone);
            return false;
        }
        const std::string& failed = fake.calls()[static_cast<size_t>(n) - 1];
        if (!sweep.onwards) {
            EXPECT_EQ(isDone, isIgnored(failed)) << failed;
        }
        EXPECT_EQ(KRTError(), !isDone) << failed;
        if (!isDone) {
            EXPECT_EQ(reportedCode(), failed == "AMDeviceIsPaired" ? 0 : kStatus) << failed;
        }
        EXPECT_GE(phone->openCount, 0);
        EXPECT_GE(phone->fileServiceCount, 0);
        EXPECT_EQ(fake.live().directories, 0);
        EXPECT_EQ(fake.live().keyValues, 0);
        worksAgain(sweep);
        return true;
    }

private:
    // Whatever the failure left behind, a phone that is well again can be used once it is closed.
    void worksAgain(const Sweep& sweep) {
        fake.clearFaults();
        fake.phone().file("/R/a", "contents").remove("/R/b").remove("/new");
        while (phone->openCount > 0) {
            KRTPhoneClose(phone);
        }
        KRTErrorClear();
        EXPECT_TRUE(sweep.operation.run(phone));
        EXPECT_EQ(reportedCode(), std::nullopt);
    }
};

TEST_P(FileOperationSweep, EndsWithAResultThatItsReportsExplain) {
    int n = 1;
    while (SweepRun().run(GetParam(), n)) {
        ++n;
    }
    // The work itself, at the very least.
    EXPECT_GT(n, 1);
}

std::vector<Sweep> sweeps() {
    std::vector<Sweep> all;
    for (const Operation& operation : kOperations) {
        for (const bool onwards : {false, true}) {
            for (const int opensBefore : {0, 1, 2}) {
                all.push_back({operation, onwards, opensBefore});
            }
        }
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(Each, FileOperationSweep, ::testing::ValuesIn(sweeps()),
                         [](const auto& row) {
                             return std::string(row.param.operation.name) +
                                    (row.param.onwards ? "Onwards" : "Once") + "Opened" +
                                    std::to_string(row.param.opensBefore);
                         });

} // namespace
