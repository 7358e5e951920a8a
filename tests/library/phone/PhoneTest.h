#pragma once

#include "library/phone/KRTPhoneInternal.h"
#include "tests/support/FakeMobileDevice.h"
#include "tests/support/PhoneCounts.h"

#include <KRLVesk/KRTError.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

using krl::test::Counts;
using krl::test::FakeMobileDevice;
using krl::test::FakePhone;
using krl::test::kStatus;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

const std::vector<std::string> kOpenCalls = {
    "AMDeviceConnect",
    "AMDeviceIsPaired",
    "AMDeviceValidatePairing",
    "AMDeviceStartSession",
    "AMDeviceStartService com.apple.afc",
    "AMDeviceStopSession",
    "AFCConnectionOpen",
};

/// The calls of one list followed by those of others.
inline std::vector<std::string> inTurn(std::initializer_list<std::vector<std::string>> lists) {
    std::vector<std::string> all;
    for (const auto& list : lists) {
        all.insert(all.end(), list.begin(), list.end());
    }
    return all;
}

/// A closed record of the fake's phone, and an empty error record.
class WithPhone {
protected:
    WithPhone() {
        KRTErrorClear();
        phone = KRTPhoneWithDevice(fake.phone().device());
        fake.clearCalls();
    }

    ~WithPhone() {
        fake.onCall(nullptr);
        KRTPhoneRelease(phone);
        KRTErrorClear();
    }

    WithPhone(const WithPhone&) = delete;
    WithPhone& operator=(const WithPhone&) = delete;

    Counts counts() const { return {phone->openCount, phone->fileServiceCount}; }

    /// Opens the phone as often as asked and forgets the calls.
    void openPhone(int times = 1) {
        for (int i = 0; i < times; ++i) {
            ASSERT_EQ(KRTPhoneOpen(phone), 1);
        }
        fake.clearCalls();
    }

    /// Open once, with the file service ended: open 1, service 0.
    void openPhoneWithoutService() {
        openPhone(2);
        KRTPhoneEndFileService(phone);
        ASSERT_EQ(counts(), (Counts{1, 0}));
        fake.clearCalls();
    }

    /// Open as often as asked and forgetful of its running file service, so that the next start
    /// makes a new file connection and closes the one that is left.
    void openPhoneWithLeftover(int times) {
        openPhone(times);
        phone->fileServiceCount = 0;
    }

    /// Empties the error record whenever a call is made that begins like this, so that the next
    /// report is seen.
    void clearErrorsAt(const std::string& prefix) {
        fake.onCall([prefix](const std::string& line) {
            if (line.rfind(prefix, 0) == 0) {
                KRTErrorClear();
            }
        });
    }

    FakeMobileDevice fake;
    KRTPhoneRef phone = nullptr;
};

class PhoneTest : public ::testing::Test, protected WithPhone {};

/// The recorded code; nothing when the record is empty. Whatever was reported came from this
/// module.
inline std::optional<int> reportedCode() {
    if (!KRTError()) {
        return std::nullopt;
    }
    EXPECT_STREQ(KRTErrorGetFile(), "KRTPhoneInternal");
    return KRTErrorGetCode();
}
