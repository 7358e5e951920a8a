#include "library/errors/ErrorReport.h"

#include <KRLVesk/KRTError.h>
#include <MobileDevice/MobileDevice.h>

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <type_traits>

namespace {

static_assert(std::is_same_v<decltype(__krt_error_line), int32_t>);
static_assert(std::is_same_v<decltype(__krt_error_file), const char*>);
static_assert(std::is_same_v<decltype(__krt_error_code), int32_t>);
static_assert(std::is_same_v<decltype(KRTErrorDomain), CFStringRef>);

// The state before anything reported.
const int32_t kLineAtStart = __krt_error_line;
const char* const kFileAtStart = __krt_error_file;
const int32_t kCodeAtStart = __krt_error_code;

class ErrorRecord : public ::testing::Test {
protected:
    ErrorRecord() { KRTErrorClear(); }

    ~ErrorRecord() override { KRTErrorClear(); }
};

void expectRecord(int line, const char* file, int code) {
    EXPECT_EQ(KRTErrorGetLine(), line);
    EXPECT_STREQ(KRTErrorGetFile(), file);
    EXPECT_EQ(KRTErrorGetCode(), code);
}

TEST_F(ErrorRecord, IsEmptyWhenLoaded) {
    EXPECT_EQ(kLineAtStart, 0);
    EXPECT_EQ(kFileAtStart, nullptr);
    EXPECT_EQ(kCodeAtStart, 0);
}

TEST_F(ErrorRecord, KeepsLineFileAndCodeOfTheFirstFailure) {
    KRTErrorSet(12, "First", -500);
    KRTErrorSet(34, "Second", 8);
    EXPECT_TRUE(KRTError());
    expectRecord(12, "First", -500);
}

TEST_F(ErrorRecord, IsEmptyAfterAClear) {
    KRTErrorSet(12, "First", -500);
    KRTErrorClear();
    EXPECT_FALSE(KRTError());
    expectRecord(0, nullptr, 0);
}

TEST_F(ErrorRecord, TakesANewFailureAfterAClear) {
    KRTErrorSet(12, "First", -500);
    KRTErrorClear();
    KRTErrorSet(34, "Second", 8);
    expectRecord(34, "Second", 8);
}

TEST_F(ErrorRecord, CodeZeroIsAnError) {
    KRTErrorSet(12, "First", 0);
    KRTErrorSet(34, "Second", 8);
    EXPECT_TRUE(KRTError());
    expectRecord(12, "First", 0);
}

TEST_F(ErrorRecord, LineZeroWithAFileReadsAsNoErrorAndKeepsLaterFailuresOut) {
    KRTErrorSet(0, "First", 3);
    EXPECT_FALSE(KRTError());
    KRTErrorSet(34, "Second", 8);
    EXPECT_FALSE(KRTError());
    expectRecord(0, "First", 3);
}

TEST_F(ErrorRecord, NegativeLineReadsAsNoErrorAndKeepsLaterFailuresOut) {
    KRTErrorSet(-1, nullptr, 3);
    EXPECT_FALSE(KRTError());
    KRTErrorSet(34, "Second", 8);
    EXPECT_FALSE(KRTError());
    expectRecord(-1, nullptr, 3);
}

TEST_F(ErrorRecord, LineWithoutAFileIsAnError) {
    KRTErrorSet(12, nullptr, 3);
    KRTErrorSet(34, "Second", 8);
    EXPECT_TRUE(KRTError());
    expectRecord(12, nullptr, 3);
}

TEST_F(ErrorRecord, CodeAloneIsStoredAndDoesNotKeepLaterFailuresOut) {
    KRTErrorSet(0, nullptr, 3);
    EXPECT_FALSE(KRTError());
    expectRecord(0, nullptr, 3);
    KRTErrorSet(34, "Second", 8);
    expectRecord(34, "Second", 8);
}

TEST_F(ErrorRecord, DoesNotCopyTheFile) {
    static const char module[] = "Module";
    KRTErrorSet(12, module, 3);
    EXPECT_EQ(KRTErrorGetFile(), module);
}

TEST_F(ErrorRecord, FunctionsReadTheExportedVariables) {
    __krt_error_line = 7;
    __krt_error_file = "Written";
    __krt_error_code = -9;
    EXPECT_TRUE(KRTError());
    expectRecord(7, "Written", -9);
    KRTErrorSet(34, "Second", 8);
    expectRecord(7, "Written", -9);
}

TEST_F(ErrorRecord, FunctionsWriteTheExportedVariables) {
    KRTErrorSet(34, "Second", 8);
    EXPECT_EQ(__krt_error_line, 34);
    EXPECT_STREQ(__krt_error_file, "Second");
    EXPECT_EQ(__krt_error_code, 8);
    KRTErrorClear();
    EXPECT_EQ(__krt_error_line, 0);
    EXPECT_EQ(__krt_error_file, nullptr);
    EXPECT_EQ(__krt_error_code, 0);
}

TEST_F(ErrorRecord, ReporterRecordsTheLineOfItsCallAndItsModule) {
    constexpr krl::ErrorReporter reportError{"KRTModule"};
    const int line = __LINE__ + 1;
    reportError(42);
    expectRecord(line, "KRTModule", 42);
}

TEST(ErrorDomain, IsTheLibrarysOwnAtFirst) {
    EXPECT_TRUE(CFEqual(KRTErrorDomain, CFSTR("com.korvane.vesk")));
}

TEST(StatusText, EachStatusThatHasANameHasWordsOfItsOwn) {
    std::set<std::string> texts;
    size_t count = 0;
    const auto expectWords = [&](int32_t status) {
        const char* const text = KRTErrorTextForStatus(status);
        ASSERT_NE(text, nullptr) << status;
        EXPECT_STRNE(text, "") << status;
        texts.insert(text);
        ++count;
    };
#define KRL_EXPECT_WORDS(name, status) expectWords(status);
    MOBILEDEVICE_LOCKDOWN_ERRORS(KRL_EXPECT_WORDS)
#undef KRL_EXPECT_WORDS
    for (const int32_t status : {kAFCUnknownError, kAFCInvalidArgument, kAFCObjectNotFound,
                                 kAFCObjectIsDirectory, kAFCPermissionDenied, kAFCNotConnected,
                                 kAFCTimedOut, kAFCObjectExists, kAFCNoSpaceLeft, kAFCWouldBlock}) {
        expectWords(status);
    }
    for (int32_t status = kAMDInvalidHandle; status <= kAMDWrongDevice; ++status) {
        expectWords(status);
    }
    // A silent phone is one in the same words, whichever service was asked.
    EXPECT_EQ(texts.size(), count - 1);
    EXPECT_STREQ(KRTErrorTextForStatus(kAFCObjectExists), "object exists");
}

TEST(StatusText, SuccessAndNumbersWithoutANameHaveNone) {
    for (const int32_t status :
         {0, -1, -10, -35, 24, 63, kAMDWrongDevice + 1, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(KRTErrorTextForStatus(status), nullptr) << status;
    }
}

} // namespace
