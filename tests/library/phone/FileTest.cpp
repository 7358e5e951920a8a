#include "tests/library/phone/PhoneTest.h"

#include <CoreFoundation/CFRef.h>

#include <limits>

namespace {

using krl::cf::adopt;

using Directories = PhoneTest;
using Listing = PhoneTest;
using Removing = PhoneTest;
using Renaming = PhoneTest;
using Writing = PhoneTest;
using Reading = PhoneTest;
using SizeOfFile = PhoneTest;

constexpr uintptr_t kChunkBytes = 4'194'304;

std::string text(CFStringRef string) {
    const CFIndex size =
        CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8) + 1;
    std::vector<char> buffer(static_cast<size_t>(size));
    EXPECT_TRUE(CFStringGetCString(string, buffer.data(), size, kCFStringEncodingUTF8));
    return buffer.data();
}

/// The names that the list function gives; fails the test when it gives null.
std::vector<std::string> listed(KRTPhoneRef phone, const char* path) {
    const auto names = adopt(KRTPhoneListDirectoryAtPath(phone, path));
    EXPECT_TRUE(names) << "null instead of an array";
    std::vector<std::string> texts;
    for (CFIndex i = 0; names && i < CFArrayGetCount(names.get()); ++i) {
        texts.push_back(text(static_cast<CFStringRef>(CFArrayGetValueAtIndex(names.get(), i))));
    }
    return texts;
}

/// What one operation on a closed phone calls, and the counts after it.
std::vector<std::string> aroundOpenPhone(std::vector<std::string> operation) {
    return inTurn({kOpenCalls, std::move(operation), {"AMDeviceDisconnect"}});
}

// ---------------------------------------------------------------------------- directories

TEST_F(Directories, AreCreatedByOneCall) {
    EXPECT_EQ(KRTPhoneCreateDirectoryAtPath(phone, "/iTunes_Control/Ringtones"), 1);
    EXPECT_TRUE(fake.phone().hasDirectory("/iTunes_Control/Ringtones"));
    EXPECT_THAT(fake.calls(), ElementsAreArray(aroundOpenPhone(
                                  {"AFCDirectoryCreate /iTunes_Control/Ringtones"})));
    EXPECT_EQ(counts(), (Counts{0, 1}));
}

TEST_F(Directories, TakeAnyUtf8Name) {
    EXPECT_EQ(KRTPhoneCreateDirectoryAtPath(phone, "/Kl\xC3\xA4nge \xE2\x99\xAA"), 1);
    EXPECT_TRUE(fake.phone().hasDirectory("/Kl\xC3\xA4nge \xE2\x99\xAA"));
}

// ---------------------------------------------------------------------------- listing

TEST_F(Listing, GivesTheNamesInThePhonesOrder) {
    fake.phone().file("/R/c.m4r").file("/R/a.mp3").directory("/R/b");
    EXPECT_THAT(listed(phone, "/R"), ElementsAre("c.m4r", "a.mp3", "b"));
    EXPECT_THAT(fake.calls(), ElementsAreArray(aroundOpenPhone(
                                  {"AFCDirectoryOpen /R", "AFCDirectoryRead", "AFCDirectoryRead",
                                   "AFCDirectoryRead", "AFCDirectoryRead", "AFCDirectoryRead",
                                   "AFCDirectoryRead", "AFCDirectoryClose"})));
    EXPECT_EQ(counts(), (Counts{0, 1}));
    EXPECT_EQ(fake.live().directories, 0);
}

TEST_F(Listing, OfADirectoryWithNothingButItselfAndItsParentIsEmptyAndNotNull) {
    fake.phone().directory("/R");
    EXPECT_THAT(listed(phone, "/R"), IsEmpty());
}

TEST_F(Listing, LeavesOutOnlyTheNamesOfOneAndTwoPoints) {
    fake.phone().file("/R/...").file("/R/.a").file("/R/..a");
    EXPECT_THAT(listed(phone, "/R"), ElementsAre("...", ".a", "..a"));
}

TEST_F(Listing, LeavesOutNamesThatAreNotUtf8) {
    fake.phone().file("/R/a").file("/R/\xFF\xFE").file("/R/\xC3\xA4");
    EXPECT_THAT(listed(phone, "/R"), ElementsAre("a", "\xC3\xA4"));
}

TEST_F(Listing, ThatBreaksOffHalfWayIsASuccess) {
    fake.phone().file("/R/a").file("/R/b").file("/R/c");
    fake.failNth("AFCDirectoryRead", 5, kStatus);
    EXPECT_THAT(listed(phone, "/R"), ElementsAre("a", "b"));
    EXPECT_EQ(reportedCode(), std::nullopt);
    EXPECT_EQ(fake.live().directories, 0);
    EXPECT_EQ(counts(), (Counts{0, 1}));
}

TEST_F(Listing, ThatBreaksOffAtOnceIsAnEmptyArray) {
    fake.phone().file("/R/a");
    fake.fail("AFCDirectoryRead", kStatus);
    EXPECT_THAT(listed(phone, "/R"), IsEmpty());
    EXPECT_EQ(reportedCode(), std::nullopt);
}

TEST_F(Listing, IsTheCallersToChange) {
    fake.phone().file("/R/a");
    const auto names = adopt(KRTPhoneListDirectoryAtPath(phone, "/R"));
    ASSERT_TRUE(names);
    EXPECT_EQ(CFGetRetainCount(names.get()), 1);
    CFArrayAppendValue(names.get(), CFSTR("b"));
    EXPECT_EQ(CFArrayGetCount(names.get()), 2);
}

// ---------------------------------------------------------------------------- remove, rename

TEST_F(Removing, IsOneCall) {
    fake.phone().file("/R/a", "x");
    EXPECT_EQ(KRTPhoneRemoveObjectAtPath(phone, "/R/a"), 1);
    EXPECT_FALSE(fake.phone().hasFile("/R/a"));
    EXPECT_THAT(fake.calls(), ElementsAreArray(aroundOpenPhone({"AFCRemovePath /R/a"})));
    EXPECT_EQ(counts(), (Counts{0, 1}));
}

TEST_F(Renaming, IsOneCallFromTheOldPathToTheNew) {
    fake.phone().file("/R/a", "x");
    EXPECT_EQ(KRTPhoneRenameObjectAtPath(phone, "/R/a", "/R/b"), 1);
    EXPECT_FALSE(fake.phone().hasFile("/R/a"));
    EXPECT_EQ(fake.phone().contents("/R/b"), "x");
    EXPECT_THAT(fake.calls(), ElementsAreArray(aroundOpenPhone({"AFCRenamePath /R/a /R/b"})));
    EXPECT_EQ(counts(), (Counts{0, 1}));
}

// ---------------------------------------------------------------------------- write

TEST_F(Writing, OpensForWritingWritesAndCloses) {
    EXPECT_EQ(KRTPhoneWriteDataToFileAtPath(phone, "/a", "hello", 5), 1);
    EXPECT_EQ(fake.phone().contents("/a"), "hello");
    EXPECT_THAT(fake.calls(),
                ElementsAreArray(aroundOpenPhone(
                    {"AFCFileRefOpen /a 3", "AFCFileRefWrite 1 5", "AFCFileRefClose 1"})));
    EXPECT_EQ(counts(), (Counts{0, 1}));
}

TEST_F(Writing, ReplacesAFileThatWasLonger) {
    fake.phone().file("/a", "something longer");
    EXPECT_EQ(KRTPhoneWriteDataToFileAtPath(phone, "/a", "short", 5), 1);
    EXPECT_EQ(fake.phone().contents("/a"), "short");
}

TEST_F(Writing, ZeroBytesCreatesAnEmptyFile) {
    EXPECT_EQ(KRTPhoneWriteDataToFileAtPath(phone, "/a", nullptr, 0), 1);
    EXPECT_TRUE(fake.phone().hasFile("/a"));
    EXPECT_EQ(fake.phone().contents("/a"), "");
    EXPECT_THAT(fake.calls(),
                ElementsAreArray(aroundOpenPhone({"AFCFileRefOpen /a 3", "AFCFileRefClose 1"})));
    EXPECT_EQ(counts(), (Counts{0, 1}));
}

TEST_F(Writing, ZeroBytesEmptiesAFile) {
    fake.phone().file("/a", "something");
    EXPECT_EQ(KRTPhoneWriteDataToFileAtPath(phone, "/a", "x", 0), 1);
    EXPECT_EQ(fake.phone().contents("/a"), "");
    EXPECT_EQ(fake.countOf("AFCFileRefWrite"), 0);
}

// A payload that differs at every place where a chunk could go wrong.
std::string payload(uintptr_t count) {
    std::string bytes(count, '\0');
    for (uintptr_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<char>(i * 31 / 1024 + i);
    }
    return bytes;
}

TEST_F(Writing, FourMebibytesTakeOneCall) {
    const std::string bytes = payload(kChunkBytes);
    EXPECT_EQ(KRTPhoneWriteDataToFileAtPath(phone, "/a", bytes.data(), bytes.size()), 1);
    EXPECT_THAT(fake.callsOf("AFCFileRefWrite"), ElementsAre("AFCFileRefWrite 1 4194304"));
    EXPECT_TRUE(fake.phone().contents("/a") == bytes);
}

TEST_F(Writing, OneByteMoreThanFourMebibytesTakesTwoCalls) {
    const std::string bytes = payload(kChunkBytes + 1);
    EXPECT_EQ(KRTPhoneWriteDataToFileAtPath(phone, "/a", bytes.data(), bytes.size()), 1);
    EXPECT_THAT(fake.callsOf("AFCFileRefWrite"),
                ElementsAre("AFCFileRefWrite 1 4194304", "AFCFileRefWrite 1 1"));
    EXPECT_TRUE(fake.phone().contents("/a") == bytes);
}

TEST_F(Writing, GoesOutFromTheCallersMemory) {
    const std::string bytes = payload(2 * kChunkBytes + 7);
    EXPECT_EQ(KRTPhoneWriteDataToFileAtPath(phone, "/a", bytes.data(), bytes.size()), 1);
    ASSERT_EQ(fake.writes().size(), 3u);
    EXPECT_EQ(fake.writes()[0].bytes, bytes.data());
    EXPECT_EQ(fake.writes()[1].bytes, bytes.data() + kChunkBytes);
    EXPECT_EQ(fake.writes()[2].bytes, bytes.data() + 2 * kChunkBytes);
    EXPECT_EQ(fake.writes()[2].count, 7u);
}

TEST_F(Writing, StopsAtTheFirstChunkThatFails) {
    const std::string bytes = payload(3 * kChunkBytes);
    fake.failNth("AFCFileRefWrite", 2, kAFCNoSpaceLeft);
    EXPECT_EQ(KRTPhoneWriteDataToFileAtPath(phone, "/a", bytes.data(), bytes.size()), 0);
    EXPECT_EQ(reportedCode(), kAFCNoSpaceLeft);
    EXPECT_EQ(fake.countOf("AFCFileRefWrite"), 2);
    EXPECT_EQ(fake.calls().back(), "AFCFileRefClose 1");
}

TEST_F(Writing, CountsBytesWithAllBitsOfAPointer) {
    // More than 32 bits of bytes: the first chunk is a whole one, and refusing it spares us the
    // rest.
    fake.fail("AFCFileRefWrite", kStatus);
    const char byte = 0;
    EXPECT_EQ(KRTPhoneWriteDataToFileAtPath(phone, "/a", &byte, uintptr_t{1} << 32), 0);
    EXPECT_THAT(fake.callsOf("AFCFileRefWrite"), ElementsAre("AFCFileRefWrite 1 4194304"));
}

// ---------------------------------------------------------------------------- read

TEST_F(Reading, OpensForReadingAndWritingAndReadsOnce) {
    fake.phone().file("/a", "hello");
    char buffer[8] = {};
    uint32_t length = sizeof buffer;
    EXPECT_EQ(KRTPhoneReadFileAtPath(phone, "/a", buffer, &length), 1);
    EXPECT_EQ(std::string(buffer, length), "hello");
    EXPECT_THAT(fake.calls(),
                ElementsAreArray(aroundOpenPhone(
                    {"AFCFileRefOpen /a 2", "AFCFileRefRead 1 8", "AFCFileRefClose 1"})));
    EXPECT_EQ(counts(), (Counts{0, 1}));
}

TEST_F(Reading, DoesNotAskForWhatAShortReadLeaves) {
    fake.phone().file("/a", "hello").readAtMost(2);
    char buffer[5] = {};
    uint32_t length = sizeof buffer;
    EXPECT_EQ(KRTPhoneReadFileAtPath(phone, "/a", buffer, &length), 1);
    EXPECT_EQ(length, 2u);
    EXPECT_EQ(fake.countOf("AFCFileRefRead"), 1);
}

TEST_F(Reading, GivesNoMoreThanTheBufferTakes) {
    fake.phone().file("/a", "hello");
    char buffer[4] = {0, 0, 0, 'z'};
    uint32_t length = 3;
    EXPECT_EQ(KRTPhoneReadFileAtPath(phone, "/a", buffer, &length), 1);
    EXPECT_EQ(std::string(buffer, 4), "helz");
    EXPECT_EQ(length, 3u);
}

TEST_F(Reading, OfAMissingFileMakesItWhereTheModeCreates) {
    char buffer[4];
    uint32_t length = sizeof buffer;
    EXPECT_EQ(KRTPhoneReadFileAtPath(phone, "/missing", buffer, &length), 1);
    EXPECT_EQ(length, 0u);
    EXPECT_TRUE(fake.phone().hasFile("/missing"));
}

TEST_F(Reading, WithANullPathFailsBeforeThePhoneIsTouched) {
    char buffer[4];
    uint32_t length = sizeof buffer;
    EXPECT_EQ(KRTPhoneReadFileAtPath(phone, nullptr, buffer, &length), 0);
    EXPECT_EQ(reportedCode(), 0);
    EXPECT_EQ(length, sizeof buffer);
    EXPECT_THAT(fake.calls(), IsEmpty());
}

TEST_F(Reading, WithANullBufferFailsBeforeThePhoneIsTouched) {
    uint32_t length = 4;
    EXPECT_EQ(KRTPhoneReadFileAtPath(phone, "/a", nullptr, &length), 0);
    EXPECT_EQ(reportedCode(), 0);
    EXPECT_EQ(length, 4u);
    EXPECT_THAT(fake.calls(), IsEmpty());
}

// ---------------------------------------------------------------------------- size

TEST_F(SizeOfFile, IsReadFromTheFilesInformation) {
    fake.phone().fileInfo("/a", {{"st_ifmt", "S_IFREG"}, {"st_size", "12345"}, {"x", "y"}});
    uint32_t size = 1;
    EXPECT_EQ(KRTPhoneSizeOfFileAtPath(phone, "/a", &size), 1);
    EXPECT_EQ(size, 12345u);
    EXPECT_THAT(fake.calls(),
                ElementsAreArray(aroundOpenPhone({"AFCFileInfoOpen /a", "AFCKeyValueRead",
                                                  "AFCKeyValueRead", "AFCKeyValueClose"})));
    EXPECT_EQ(counts(), (Counts{0, 1}));
    EXPECT_EQ(fake.live().keyValues, 0);
}

TEST_F(SizeOfFile, WithANullPathFailsBeforeThePhoneIsTouched) {
    uint32_t size = 1;
    EXPECT_EQ(KRTPhoneSizeOfFileAtPath(phone, nullptr, &size), 0);
    EXPECT_EQ(reportedCode(), 0);
    EXPECT_EQ(size, 1u);
    EXPECT_THAT(fake.calls(), IsEmpty());
}

TEST_F(SizeOfFile, OfAMissingFileFailsAndLeavesTheCallersSize) {
    uint32_t size = 1;
    EXPECT_EQ(KRTPhoneSizeOfFileAtPath(phone, "/missing", &size), 0);
    EXPECT_EQ(reportedCode(), kAFCObjectNotFound);
    EXPECT_EQ(size, 1u);
}

struct SizeText {
    const char* name;
    krl::test::InfoPairs pairs;
    uint32_t size;
};

const SizeText kSizeTexts[] = {
    {"Zero", {{"st_size", "0"}}, 0},
    {"Decimal", {{"st_size", "1048576"}}, 1048576},
    {"LargestSigned", {{"st_size", "2147483647"}}, 2147483647},
    {"LeadingZeroIsOctal", {{"st_size", "010"}}, 8},
    {"OctalStopsAtTheEight", {{"st_size", "08"}}, 0},
    {"HexadecimalWithItsPrefix", {{"st_size", "0x10"}}, 16},
    {"FollowedByALetter", {{"st_size", "12u"}}, 12},
    {"NoNumber", {{"st_size", "many"}}, 0},
    {"EmptyText", {{"st_size", ""}}, 0},
    {"FirstOfTwoCounts", {{"st_size", "5"}, {"st_size", "6"}}, 5},
    {"NoSizeAmongOthers", {{"st_blocks", "8"}, {"st_sizes", "7"}}, 0},
    {"NothingAtAll", {}, 0},
    {"NullValueEndsTheSearch", {{"st_ifmt", std::nullopt}, {"st_size", "5"}}, 0},
    {"NullKeyEndsTheSearch", {{std::nullopt, "S_IFREG"}, {"st_size", "5"}}, 0},
    {"NullSizeEndsTheSearch", {{"st_size", std::nullopt}, {"st_size", "5"}}, 0},
};

class SizeOfFileText : public ::testing::TestWithParam<SizeText>, protected WithPhone {};

TEST_P(SizeOfFileText, IsReadLikeACIntegerLiteral) {
    fake.phone().fileInfo("/a", GetParam().pairs);
    uint32_t size = 99;
    EXPECT_EQ(KRTPhoneSizeOfFileAtPath(phone, "/a", &size), 1);
    EXPECT_EQ(size, GetParam().size);
    EXPECT_EQ(reportedCode(), std::nullopt);
    EXPECT_EQ(fake.live().keyValues, 0);
}

INSTANTIATE_TEST_SUITE_P(Texts, SizeOfFileText, ::testing::ValuesIn(kSizeTexts),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(SizeOfFile, ThatBreaksOffBeforeTheSizeIsASuccessOfZero) {
    fake.phone().fileInfo("/a", {{"st_ifmt", "S_IFREG"}, {"st_size", "5"}});
    fake.failNth("AFCKeyValueRead", 2, kStatus);
    uint32_t size = 99;
    EXPECT_EQ(KRTPhoneSizeOfFileAtPath(phone, "/a", &size), 1);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(reportedCode(), std::nullopt);
}

// ---------------------------------------------------------------------------- null paths

TEST_F(PhoneTest, NullPathsAreHandedToThePhone) {
    EXPECT_EQ(KRTPhoneCreateDirectoryAtPath(phone, nullptr), 0);
    EXPECT_EQ(KRTPhoneListDirectoryAtPath(phone, nullptr), nullptr);
    EXPECT_EQ(KRTPhoneRemoveObjectAtPath(phone, nullptr), 0);
    EXPECT_EQ(KRTPhoneRenameObjectAtPath(phone, nullptr, "/b"), 0);
    EXPECT_EQ(KRTPhoneRenameObjectAtPath(phone, "/a", nullptr), 0);
    EXPECT_EQ(KRTPhoneWriteDataToFileAtPath(phone, nullptr, "x", 1), 0);
    EXPECT_EQ(reportedCode(), kAFCInvalidArgument);
    EXPECT_THAT(fake.callsOf({"AFCDirectoryCreate", "AFCDirectoryOpen", "AFCRemovePath",
                              "AFCRenamePath", "AFCFileRefOpen"}),
                ElementsAre("AFCDirectoryCreate null", "AFCDirectoryOpen null",
                            "AFCRemovePath null", "AFCRenamePath null /b", "AFCRenamePath /a null",
                            "AFCFileRefOpen null 3"));
}

} // namespace
