#include "tests/library/store/StoreTest.h"

namespace {

class Loading : public StoreTest {
protected:
    /// The result of a load that must fail, with this code recorded by the store or below it.
    void expectFailure(int code, const char* module) {
        EXPECT_FALSE(load());
        EXPECT_EQ(recordedCode(), code);
        EXPECT_STREQ(KRTErrorGetFile(), module);
    }

    /// An entry that is no companion.
    Tone entry(std::string_view name) const {
        return companionOf(name).with("LocalPath", "/music/" + std::string(name));
    }

    void putFile(const std::string& fileName, const std::string& contents = "12345") {
        fake.phone().file(kFolder + "/" + fileName, contents);
    }
};

TEST_F(Loading, APhoneWithoutACatalogueHasAnEmptyList) {
    EXPECT_THAT(loaded(), IsEmpty());
    EXPECT_EQ(recordedCode(), std::nullopt);
}

TEST_F(Loading, AListIsMutableAndNew) {
    const auto list = load();
    ASSERT_TRUE(list);
    EXPECT_EQ(CFGetRetainCount(list.get()), 1);
    CFDictionarySetValue(list.get(), CFSTR("added"), CFSTR("by the caller"));
    EXPECT_EQ(CFDictionaryGetCount(list.get()), 1);
}

TEST_F(Loading, AddsTypePathAndSizeAndKeepsEverythingElse) {
    putFile("ABCD.m4r", "123");
    putCatalogue({{"ABCD.m4r", entry("A").withObject("TrackID", number(9).get()).with("x", "y")}});
    EXPECT_THAT(loaded(), ElementsAre(Pair("A", Texts{{"Name", "A"},
                                                      {"GUID", "guid-A"},
                                                      {"LocalPath", "/music/A"},
                                                      {"TrackID", "9"},
                                                      {"x", "y"},
                                                      {"FileType", "m4r"},
                                                      {"RemotePath", kFolder + "/ABCD.m4r"},
                                                      {"FileSize", "3"}})));
}

TEST_F(Loading, EntriesAreMutable) {
    putFile("ABCD.m4r");
    putCatalogue({{"ABCD.m4r", entry("A")}});
    const auto list = load();
    auto* tone = static_cast<CFMutableDictionaryRef>(
        const_cast<void*>(CFDictionaryGetValue(list.get(), CFSTR("A"))));
    ASSERT_NE(tone, nullptr);
    CFDictionarySetValue(tone, CFSTR("Playlist"), CFSTR("mine"));
    EXPECT_EQ(textOf(valueOf(tone, "Playlist")), "mine");
}

TEST_F(Loading, KeepsTheOrderOfTheCatalogue) {
    putFile("AAAA.m4r");
    putFile("BBBB.m4r");
    putFile("CCCC.m4r");
    // As another writer may have left it.
    putCatalogueBytes("<plist><dict><key>Ringtones</key><dict>"
                      "<key>CCCC.m4r</key><dict><key>Name</key><string>1</string></dict>"
                      "<key>AAAA.m4r</key><dict><key>Name</key><string>2</string></dict>"
                      "<key>BBBB.m4r</key><dict><key>Name</key><string>3</string></dict>"
                      "</dict></dict></plist>");
    EXPECT_THAT(keysOf(load().get()), ElementsAre("1", "2", "3"));
}

// ---------------------------------------------------------------------------- what is left out

TEST_F(Loading, AnEntryOfTwoKeysUnderAnM4RNameIsACompanionEvenWhenItsFileExists) {
    putFile("ABCD.m4r");
    putCatalogue({{"ABCD.m4r", companionOf("A")}});
    EXPECT_THAT(loaded(), IsEmpty());
    // The file is not even asked for.
    EXPECT_THAT(fake.callsOf("AFCFileInfoOpen"), ElementsAre("AFCFileInfoOpen " + kCatalogue));
}

TEST_F(Loading, TheSameEntryWithThreeKeysIsLoaded) {
    putFile("ABCD.m4r");
    putCatalogue({{"ABCD.m4r", companionOf("A").with("third", "key")}});
    EXPECT_THAT(keysOf(load().get()), ElementsAre("A"));
}

TEST_F(Loading, AnyTwoKeysMakeACompanion) {
    putFile("ABCD.m4r");
    putCatalogue({{"ABCD.m4r", Tone().with("Name", "A").with("LocalPath", "/a")}});
    EXPECT_THAT(loaded(), IsEmpty());
}

TEST_F(Loading, TwoKeysUnderAnotherNameMakeARingtone) {
    putFile("ABCD.mp3");
    putFile("ABCD.M4R");
    putCatalogue({{"ABCD.mp3", companionOf("A")}, {"ABCD.M4R", companionOf("B")}});
    EXPECT_THAT(keysOf(load().get()), UnorderedElementsAre("A", "B"));
}

TEST_F(Loading, TheCompanionRuleNeedsNoPointBeforeM4R) {
    putFile("xm4r");
    putCatalogue({{"xm4r", companionOf("A")}});
    EXPECT_THAT(loaded(), IsEmpty());
}

TEST_F(Loading, AnEntryWithoutItsFileIsLeftOutAndTheErrorCleared) {
    putFile("AAAA.m4r");
    putCatalogue({{"AAAA.m4r", entry("A")}, {"GONE.m4r", entry("B")}});
    EXPECT_THAT(keysOf(load().get()), ElementsAre("A"));
    EXPECT_EQ(recordedCode(), std::nullopt);
}

TEST_F(Loading, AnEntryWithoutANameIsDroppedAfterItsFileWasAskedFor) {
    putFile("AAAA.m4r");
    putCatalogue({{"AAAA.m4r", entry("A").without("Name").with("x", "y")}});
    EXPECT_THAT(loaded(), IsEmpty());
    EXPECT_THAT(
        fake.callsOf("AFCFileInfoOpen"),
        ElementsAre("AFCFileInfoOpen " + kCatalogue, "AFCFileInfoOpen " + kFolder + "/AAAA.m4r"));
}

TEST_F(Loading, APhoneThatGoesHalfWayLeavesTheRestOut) {
    putFile("AAAA.m4r");
    putFile("BBBB.m4r");
    putFile("CCCC.m4r");
    putCatalogue({{"AAAA.m4r", entry("A")}, {"BBBB.m4r", entry("B")}, {"CCCC.m4r", entry("C")}});
    fake.onCall([this](const std::string& line) {
        if (line == "AFCFileInfoOpen " + kFolder + "/BBBB.m4r") {
            fake.pull(fake.phone());
        }
    });
    EXPECT_THAT(keysOf(load().get()), ElementsAre("A"));
    EXPECT_EQ(recordedCode(), std::nullopt);
}

// ---------------------------------------------------------------------------- names and types

TEST_F(Loading, OfTwoEntriesWithOneNameTheLaterStaysInThePlaceOfTheEarlier) {
    putFile("AAAA.m4r");
    putFile("BBBB.m4r");
    putFile("CCCC.m4r");
    putCatalogue(
        {{"AAAA.m4r", entry("same")}, {"BBBB.m4r", entry("other")}, {"CCCC.m4r", entry("same")}});
    const auto list = load();
    EXPECT_THAT(keysOf(list.get()), ElementsAre("same", "other"));
    EXPECT_EQ(textOf(valueOf(dictionaryAt(list, "same"), "RemotePath")), kFolder + "/CCCC.m4r");
}

struct TypeRow {
    const char* fileName;
    const char* fileType;
};

void PrintTo(const TypeRow& row, std::ostream* out) {
    *out << row.fileName;
}

class FileTypes : public Loading, public ::testing::WithParamInterface<TypeRow> {};

TEST_P(FileTypes, AreTheLastThreeCharactersOfTheFileName) {
    putFile(GetParam().fileName);
    putCatalogue({{GetParam().fileName, entry("A")}});
    const auto list = load();
    EXPECT_EQ(textOf(valueOf(dictionaryAt(list, "A"), "FileType")), GetParam().fileType);
    EXPECT_EQ(textOf(valueOf(dictionaryAt(list, "A"), "RemotePath")),
              kFolder + "/" + GetParam().fileName);
}

INSTANTIATE_TEST_SUITE_P(All, FileTypes,
                         ::testing::Values(TypeRow{"ABCD.m4r", "m4r"}, TypeRow{"ABCD.mp3", "mp3"},
                                           TypeRow{"ABCD.aiff", "iff"}, TypeRow{"ABCD.M4R", "M4R"},
                                           TypeRow{"a.b", "a.b"}, TypeRow{"abcd", "bcd"},
                                           TypeRow{"ab", "ab"}, TypeRow{"x", "x"},
                                           TypeRow{"Gr\xC3\xB6\xC3\x9F"
                                                   "e.mp3",
                                                   "mp3"},
                                           TypeRow{"a%20b #?.wav", "wav"}));

TEST_F(Loading, ASizeThatThePhoneDoesNotTellIsZero) {
    putFile("AAAA.m4r");
    fake.phone().fileInfo(kFolder + "/AAAA.m4r", {{"st_ifmt", "S_IFREG"}});
    putCatalogue({{"AAAA.m4r", entry("A")}});
    EXPECT_EQ(textOf(valueOf(dictionaryAt(load(), "A"), "FileSize")), "0");
}

// ---------------------------------------------------------------------------- what is no catalogue

struct BytesRow {
    const char* name;
    std::string bytes;
};

void PrintTo(const BytesRow& row, std::ostream* out) {
    *out << row.name;
}

class NoPropertyList : public Loading, public ::testing::WithParamInterface<BytesRow> {};

TEST_P(NoPropertyList, GivesAnEmptyListAndRecordsNothing) {
    putCatalogueBytes(GetParam().bytes);
    EXPECT_THAT(loaded(), IsEmpty());
    EXPECT_EQ(recordedCode(), std::nullopt);
}

// A binary property list of one empty dictionary.
const std::string kBinaryPropertyList = std::string("bplist00\xD0\x08", 10) + std::string(6, '\0') +
                                        "\x01\x01" + std::string("\0\0\0\0\0\0\0\1", 8) +
                                        std::string(8, '\0') + std::string("\0\0\0\0\0\0\0\x09", 8);

INSTANTIATE_TEST_SUITE_P(
    All, NoPropertyList,
    ::testing::Values(BytesRow{"Empty", {}}, BytesRow{"Word", "hello"},
                      BytesRow{"WhiteSpace", " \n\t"}, BytesRow{"OldStyle", "{ Ringtones = { }; }"},
                      BytesRow{"JSON", "{\"Ringtones\": {}}"},
                      BytesRow{"Truncated", "<plist><dict><key>Ringtones</key><dict>"},
                      BytesRow{"HTML", "<html><body>no</body></html>"},
                      BytesRow{"Zeros", std::string(1000, '\0')},
                      BytesRow{"NoText", "\xFF\xFE\xFD"}, BytesRow{"Binary", kBinaryPropertyList}),
    [](const auto& row) { return row.param.name; });

TEST_F(Loading, AnEmptyRingtonesDictionaryGivesAnEmptyList) {
    putCatalogue({});
    EXPECT_THAT(loaded(), IsEmpty());
    EXPECT_EQ(recordedCode(), std::nullopt);
}

TEST_F(Loading, ACatalogueWithoutRingtonesFailsWithCode4) {
    putRoot(Tone().with("Other", "thing").get());
    expectFailure(4, "KRTRingtoneManagerInternal");
}

TEST_F(Loading, ARootThatIsNoDictionaryFailsWithCode4) {
    putRoot(CFSTR("Ringtones"));
    expectFailure(4, "KRTRingtoneManagerInternal");
    KRTErrorClear();
    putRoot(arrayOf({"Ringtones"}).get());
    expectFailure(4, "KRTRingtoneManagerInternal");
}

TEST_F(Loading, RingtonesThatAreNoDictionaryAreEmpty) {
    putRoot(Tone().withObject("Ringtones", arrayOf({"a", "b"}).get()).get());
    EXPECT_THAT(loaded(), IsEmpty());
    EXPECT_EQ(recordedCode(), std::nullopt);
}

TEST_F(Loading, EntriesThatAreNoDictionariesAreLeftOut) {
    putFile("AAAA.m4r");
    putFile("BBBB.m4r");
    const auto catalogue = catalogueOf({{"BBBB.m4r", entry("B")}});
    CFDictionarySetValue(catalogue.get(), CFSTR("AAAA.m4r"), CFSTR("text"));
    CFDictionarySetValue(catalogue.get(), CFSTR("CCCC.m4r"), arrayOf({"x"}).get());
    putRoot(Tone().withObject("Ringtones", catalogue.get()).get());
    EXPECT_THAT(keysOf(load().get()), ElementsAre("B"));
}

// ---------------------------------------------------------------------------- the phone

TEST_F(Loading, APhoneThatDoesNotOpenFailsWithTheStatusOfTheConnection) {
    fake.fail("AMDeviceConnect", kStatus);
    expectFailure(kStatus, "KRTPhoneInternal");
}

TEST_F(Loading, TheStoresOwnCodeForAPhoneThatDoesNotOpenIs0) {
    fake.fail("AMDeviceConnect", kStatus);
    // The phone's own report is taken away just before the store makes its own.
    fake.onCall([](const std::string& line) {
        if (line == "AMDeviceDisconnect") {
            KRTErrorClear();
        }
    });
    expectFailure(0, "KRTRingtoneManagerInternal");
}

TEST_F(Loading, ACatalogueThatCannotBeReadFailsWithTheStatusOfTheRead) {
    putCatalogue({});
    fake.fail("AFCFileRefRead", kStatus);
    expectFailure(kStatus, "KRTPhoneInternal");
}

TEST_F(Loading, TheStoresOwnCodeForACatalogueThatCannotBeReadIs2) {
    putCatalogue({});
    fake.fail("AFCFileRefOpen", kStatus);
    fake.onCall([](const std::string& line) {
        if (line == "AMDeviceDisconnect") {
            KRTErrorClear();
        }
    });
    expectFailure(2, "KRTRingtoneManagerInternal");
}

TEST_F(Loading, AnySizeThatCannotBeHadMeansNoCatalogue) {
    putCatalogue({{"ABCD.m4r", entry("A")}});
    fake.fail("AFCFileInfoOpen", kAFCPermissionDenied);
    EXPECT_THAT(loaded(), IsEmpty());
    EXPECT_EQ(recordedCode(), std::nullopt);
}

TEST_F(Loading, AnEarlierErrorSurvivesASuccessfulLoad) {
    putFile("AAAA.m4r");
    putCatalogue({{"AAAA.m4r", entry("A")}});
    KRTErrorSet(12, "earlier", 34);
    EXPECT_THAT(keysOf(load().get()), ElementsAre("A"));
    EXPECT_EQ(recordedCode(), 34);
}

TEST_F(Loading, AMissingFileClearsAnEarlierErrorToo) {
    putCatalogue({{"GONE.m4r", entry("A")}});
    KRTErrorSet(12, "earlier", 34);
    EXPECT_THAT(loaded(), IsEmpty());
    EXPECT_EQ(recordedCode(), std::nullopt);
}

TEST_F(Loading, TakesTheBytesThatWereReallyRead) {
    putFile("AAAA.m4r");
    putCatalogue({{"AAAA.m4r", entry("A")}});
    const size_t realSize = fake.phone().contents(kCatalogue).size();
    fake.phone().fileInfo(kCatalogue, {{"st_size", std::to_string(realSize + 1000)}});
    EXPECT_THAT(keysOf(load().get()), ElementsAre("A"));
}

TEST_F(Loading, ACatalogueReadInPartIsNoPropertyList) {
    putFile("AAAA.m4r");
    putCatalogue({{"AAAA.m4r", entry("A")}});
    fake.phone().readAtMost(100);
    EXPECT_THAT(loaded(), IsEmpty());
}

TEST_F(Loading, ASizeBeyondAllReasonIsBelievedAsFarAsBytesCome) {
    putFile("AAAA.m4r");
    putCatalogue({{"AAAA.m4r", entry("A")}});
    fake.phone().fileInfo(kCatalogue, {{"st_size", "2147483647"}});
    EXPECT_THAT(keysOf(load().get()), ElementsAre("A"));
}

/// A catalogue of one ringtone and of as many bytes as that.
std::string catalogueOfSize(const std::string& bytes, size_t size) {
    return bytes + std::string(size - bytes.size(), '\n');
}

TEST_F(Loading, ACatalogueOf64MiBIsReadAndALargerOneFailsWithCode2) {
    constexpr size_t kLargest = 64 * 1024 * 1024;
    putFile("AAAA.m4r");
    putCatalogue({{"AAAA.m4r", entry("A")}});
    const std::string bytes = fake.phone().contents(kCatalogue);
    putCatalogueBytes(catalogueOfSize(bytes, kLargest));
    EXPECT_THAT(keysOf(load().get()), ElementsAre("A"));
    putCatalogueBytes(catalogueOfSize(bytes, kLargest + 1));
    expectFailure(2, "KRTRingtoneManagerInternal");
    EXPECT_TRUE(fake.phone().hasFile(kFolder + "/AAAA.m4r"));
}

TEST_F(Loading, ACatalogueOf50000EntriesIsReadAndALongerOneFailsWithCode2) {
    // Companions, of which the phone is asked nothing.
    std::vector<std::pair<std::string, Tone>> entries;
    const Tone companion = companionOf("A");
    for (int i = 0; i < 50000; ++i) {
        entries.emplace_back(std::to_string(i) + ".m4r", companion);
    }
    putCatalogue(entries);
    EXPECT_THAT(loaded(), IsEmpty());
    EXPECT_EQ(recordedCode(), std::nullopt);
    entries.emplace_back("50000.m4r", companion);
    putCatalogue(entries);
    expectFailure(2, "KRTRingtoneManagerInternal");
}

TEST_F(Loading, NoPathIsMadeOfAFileNameThatIsNoPlainOne) {
    fake.phone().file("/DCIM/IMG_0001.JPG").file("/iTunes_Control/iTunes/iTunesDB");
    putFile("AAAA.m4r");
    putFile("sub/x.m4r");
    for (const char* name : {"../../DCIM/IMG_0001.JPG", "../iTunes/iTunesDB", "sub/x.m4r", "..",
                             ".", "", "/", "/AAAA.m4r", "AAAA.m4r/", "./AAAA.m4r"}) {
        SCOPED_TRACE(name);
        putCatalogue({{name, entry("damaged")}});
        fake.clearCalls();
        EXPECT_THAT(loaded(), IsEmpty());
        EXPECT_THAT(fake.callsOf("AFCFileInfoOpen"), ElementsAre("AFCFileInfoOpen " + kCatalogue));
        EXPECT_EQ(recordedCode(), std::nullopt);
    }
    putCatalogue({{"...", entry("odd")}, {"..AAAA.m4r", entry("odd too")}});
    putFile("...");
    putFile("..AAAA.m4r");
    EXPECT_THAT(keysOf(load().get()), ElementsAre("odd", "odd too"));
}

TEST_F(Loading, ReadsTheCatalogueWithOneCallIntoABufferOfItsSize) {
    putCatalogue({});
    const size_t size = fake.phone().contents(kCatalogue).size();
    load();
    EXPECT_THAT(fake.callsOf("AFCFileRefRead"),
                ElementsAre("AFCFileRefRead 1 " + std::to_string(size)));
}

// The counts after each way out: one close for the open at its start.
struct CountRow {
    const char* name;
    std::function<void(Store&)> prepare;
    Counts counts;
};

void PrintTo(const CountRow& row, std::ostream* out) {
    *out << row.name;
}

class LoadCounts : public StoreTest, public ::testing::WithParamInterface<CountRow> {};

TEST_P(LoadCounts, EveryWayOutClosesOnce) {
    GetParam().prepare(*this);
    // So often that no operation reconnects: each takes one open back.
    openPhone(10);
    load();
    EXPECT_EQ(counts(), GetParam().counts);
}

INSTANTIATE_TEST_SUITE_P(
    All, LoadCounts,
    ::testing::Values(
        // One size query.
        CountRow{"NoCatalogue", [](Store&) {}, {9, 1}},
        // One size query and one read.
        CountRow{"NotReadable",
                 [](Store& store) {
                     store.putCatalogue({});
                     store.fake.fail("AFCFileRefRead", kStatus);
                 },
                 {8, 1}},
        CountRow{"NoPropertyList", [](Store& store) { store.putCatalogueBytes("x"); }, {8, 1}},
        CountRow{"NoRingtones", [](Store& store) { store.putRoot(CFSTR("x")); }, {8, 1}},
        CountRow{"Empty", [](Store& store) { store.putCatalogue({}); }, {8, 1}},
        // And one size query for each entry.
        CountRow{"TwoEntries",
                 [](Store& store) {
                     store.putCatalogue(
                         {{"AAAA.mp3", companionOf("A")}, {"BBBB.mp3", companionOf("B")}});
                 },
                 {6, 1}}),
    [](const auto& row) { return row.param.name; });

TEST_F(Loading, AFailedOpenIsNotClosed) {
    fake.fail("AMDeviceConnect", kStatus);
    load();
    EXPECT_THAT(fake.calls(), ElementsAre("AMDeviceConnect", "AMDeviceDisconnect"));
}

TEST_F(Loading, ReconnectsForEachOperation) {
    putFile("AAAA.m4r");
    putCatalogue({{"AAAA.m4r", entry("A")}});
    load();
    // Opened by the load, which the size query takes back with its own; then by the read, then by
    // the size query of the entry.
    EXPECT_EQ(fake.countOf("AMDeviceConnect"), 3);
    EXPECT_EQ(fake.countOf("AMDeviceDisconnect"), 3);
    EXPECT_EQ(counts(), (Counts{0, 1}));
}

} // namespace
