/// A phone object over the scripted phone.
#pragma once

#include "tests/library/objects/Ringtones.h"
#include "tests/support/FakeMobileDevice.h"

#include <KRLVesk/KRLVesk.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace krl::test {

/// What the error record holds, as the text of an error object.
inline std::string recordedErrorText(const std::string& domain = "com.korvane.vesk") {
    const char* const file = KRTErrorGetFile();
    return domain + " " + std::to_string(KRTErrorGetCode()) + " " + (file == nullptr ? "" : file) +
           ":" + std::to_string(KRTErrorGetLine());
}

class ObjectTest : public testing::Test {
protected:
    ObjectTest() { KRTErrorClear(); }

    ~ObjectTest() override {
        fake.onCall(nullptr);
        KRTErrorClear();
    }

    /// An object over a record of its own, with its information read.
    std::shared_ptr<KRTPhone> makePhone(FakePhone& over) {
        auto made = KRTPhone::_phoneWithPhoneRef(KRTPhoneWithDevice(over.device()));
        made->updateInformation();
        fake.clearCalls();
        return made;
    }

    std::shared_ptr<KRTPhone> makePhone() { return makePhone(fake.phone()); }

    FakeMobileDevice fake;
};

} // namespace krl::test
