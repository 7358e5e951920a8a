#include "tests/library/phone/PhoneTest.h"

#include <CoreFoundation/CFRef.h>

namespace {

using krl::cf::adopt;

using FirmwareVersion = PhoneTest;

struct Version {
    const char* name;
    const char* text;
    int code;
    int postUpdate;

    friend std::ostream& operator<<(std::ostream& out, const Version& row) {
        return out << row.text;
    }
};

const Version kVersions[] = {
    {"FirstOfAll", "1.0.0", 1000, 0},
    {"LastBeforeTheRange", "1.0.1", 1001, 0},
    {"FirstOfTheRange", "1.0.2", 1002, 1},
    {"InTheRange", "1.1.0", 1010, 1},
    {"LastOfTheRange", "1.1.1", 1011, 1},
    {"FirstAfterTheRange", "1.1.2", 1012, 0},
    {"LastOfItsGeneration", "1.1.3", 1013, 0},
    {"UnknownsNumber", "1.1.4", 1014, 0},
    {"TwoPartsHaveNoPatch", "1.1", 1010, 1},
    {"FourPartsHaveNeitherPatchNorFourth", "1.1.3.1", 1010, 1},
    {"FiveParts", "1.0.9.9.9", 1000, 0},
    {"OnePart", "1", 1000, 0},
    {"OneOtherPart", "3", 3000, 0},
    {"EmptyTextIsOneEmptyPart", "", 0, 0},
    {"PatchOfTwoDigitsRunsIntoTheMinor", "1.0.10", 1010, 1},
    {"PatchOfTwoDigits", "1.1.12", 1022, 0},
    {"MinorOfTwoDigits", "1.10.1", 1101, 0},
    {"NextGeneration", "2.0", 2000, 0},
    {"NextGenerationWithPatch", "2.0.1", 2001, 0},
    {"NoNumberAtAll", "abc", 0, 0},
    {"LettersAfterTheNumber", "1.1.1b2", 1011, 1},
    {"LettersBeforeTheNumber", "1.x1.2", 1002, 1},
    {"PointAtTheEnd", "1.1.", 1010, 1},
    {"PointsOnly", "..", 0, 0},
};

class FirmwareVersionText : public ::testing::TestWithParam<Version>, protected WithPhone {};

TEST_P(FirmwareVersionText, BecomesThisNumber) {
    fake.phone().firmware(GetParam().text);
    KRTPhoneUpdateInformation(phone);
    fake.clearCalls();
    EXPECT_EQ(KRTPhoneFirmwareVersion(phone), GetParam().code);
    EXPECT_EQ(KRTPhonePostUpdate(phone), GetParam().postUpdate);
    EXPECT_THAT(fake.calls(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Table, FirmwareVersionText, ::testing::ValuesIn(kVersions),
                         [](const auto& row) { return std::string(row.param.name); });

// Numbers that no phone has; what they come to is of no interest, that they come to something is.
TEST_F(FirmwareVersion, SurvivesNumbersThatDoNotFit) {
    fake.phone().firmware("2147483647.2147483647.99999999999999999999");
    KRTPhoneUpdateInformation(phone);
    EXPECT_EQ(KRTPhonePostUpdate(phone), 0);
}

TEST_F(FirmwareVersion, IsUnknownBeforeAnyUpdate) {
    EXPECT_EQ(KRTPhoneFirmwareVersion(phone), 1014);
    EXPECT_EQ(KRTPhonePostUpdate(phone), 0);
}

TEST_F(FirmwareVersion, IsUnknownWhenThePhoneDoesNotOpen) {
    fake.fail("AMDeviceConnect", kStatus);
    KRTPhoneUpdateInformation(phone);
    const auto information = adopt(KRTPhoneGetPhoneInformation(phone));
    ASSERT_TRUE(information);
    EXPECT_EQ(CFDictionaryGetCount(information.get()), 0);
    EXPECT_EQ(KRTPhoneFirmwareVersion(phone), 1014);
    EXPECT_EQ(KRTPhonePostUpdate(phone), 0);
}

TEST_F(FirmwareVersion, IsUnknownWithoutProductVersion) {
    fake.phone().withoutValue("ProductVersion");
    KRTPhoneUpdateInformation(phone);
    EXPECT_EQ(KRTPhoneFirmwareVersion(phone), 1014);
}

TEST_F(FirmwareVersion, IsUnknownWithoutDeviceValues) {
    fake.phone().withoutDomain("");
    KRTPhoneUpdateInformation(phone);
    EXPECT_EQ(KRTPhoneFirmwareVersion(phone), 1014);
}

TEST_F(FirmwareVersion, IsUnknownWhenItIsNoText) {
    const int number = 111;
    const auto object = adopt(CFNumberCreate(nullptr, kCFNumberIntType, &number));
    fake.phone().value("", "ProductVersion", object.get());
    KRTPhoneUpdateInformation(phone);
    EXPECT_EQ(KRTPhoneFirmwareVersion(phone), 1014);
    EXPECT_EQ(KRTPhonePostUpdate(phone), 0);
}

} // namespace
