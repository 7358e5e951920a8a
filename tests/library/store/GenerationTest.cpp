#include "tests/library/store/GenerationTest.h"

#include <cstdlib>
#include <set>

namespace {

TEST_F(Generation, EmptyListsGiveAnEmptyCatalogueAndNoRenames) {
    for (const char* firmware : {"1.1.1", "1.1.3"}) {
        setFirmware(firmware);
        const Generated generated = generate({}, {});
        EXPECT_THAT(tableOf(generated.catalogue.get()), IsEmpty());
        EXPECT_THAT(tableOf(generated.renames.get()), IsEmpty());
    }
}

TEST_F(Generation, NullListsAreEmpty) {
    CFRef<CFMutableDictionaryRef> catalogue;
    CFRef<CFMutableDictionaryRef> renames;
    EXPECT_EQ(KRTRingtoneManagerGeneratePList(manager, nullptr, nullptr, nullptr,
                                              catalogue.receive(), renames.receive()),
              1);
    EXPECT_EQ(CFDictionaryGetCount(catalogue.get()), 0);
    EXPECT_EQ(CFDictionaryGetCount(renames.get()), 0);
}

TEST_F(Generation, HandsOverNewDictionaries) {
    const Generated generated = generate({newTone("A", "m4r")}, {});
    EXPECT_EQ(CFGetRetainCount(generated.catalogue.get()), 1);
    EXPECT_EQ(CFGetRetainCount(generated.renames.get()), 1);
}

TEST_F(Generation, RemovedRingtonesAreNotUsed) {
    const auto added = listOf({newTone("A", "m4r")});
    const auto removed = listOf({putTone("B", "BBBB.m4r")});
    CFRef<CFMutableDictionaryRef> catalogue;
    CFRef<CFMutableDictionaryRef> renames;
    ASSERT_EQ(KRTRingtoneManagerGeneratePList(manager, added.get(), removed.get(), nullptr,
                                              catalogue.receive(), renames.receive()),
              1);
    EXPECT_THAT(keysOf(catalogue.get()), ElementsAre("BQJH.m4r"));
}

// ---------------------------------------------------------------------------- names

TEST_F(Generation, NewRingtonesGetTheNamesOfTheFixedSequence) {
    std::vector<Tone> added;
    std::vector<std::string> expected;
    for (const std::string& name : kFirstNames) {
        added.push_back(newTone("ringtone " + name, "m4r"));
        expected.push_back(name + ".m4r");
    }
    EXPECT_THAT(keysOf(generate(added, {}).catalogue.get()), ElementsAreArray(expected));
}

TEST_F(Generation, TwoGenerationsWithTheSameListsGiveTheSameNames) {
    setFirmware("1.1.1");
    const std::vector<Tone> added = {newTone("A", "mp3"), newTone("B", "wav"), newTone("C", "m4r")};
    const std::vector<Tone> unchanged = {putTone("D", "Some long name.m4r")};
    const Generated first = generate(added, unchanged);
    random();
    const Generated second = generate(added, unchanged);
    EXPECT_EQ(tableOf(first.catalogue.get()), tableOf(second.catalogue.get()));
    EXPECT_EQ(tableOf(first.renames.get()), tableOf(second.renames.get()));
}

TEST_F(Generation, SeedsTheGeneratorOfTheProcess) {
    srandom(0);
    for (int i = 0; i < 4; ++i) {
        random();
    }
    const long fifthDraw = random();
    srandom(77);
    generate({newTone("A", "m4r")}, {});
    EXPECT_EQ(random(), fifthDraw);
}

TEST_F(Generation, UnchangedRingtonesComeFirstAndTheirNamesAreNotDrawn) {
    const Generated generated =
        generate({newTone("A", "m4r")}, {putTone("B", "FHKM.m4r"), putTone("C", "BQJH.m4r")});
    EXPECT_THAT(keysOf(generated.catalogue.get()), ElementsAre("FHKM.m4r", "BQJH.m4r", "PBON.m4r"));
}

TEST_F(Generation, ANameInUseWithAnotherExtensionIsNotDrawnEither) {
    const Generated generated = generate({newTone("A", "m4r")}, {putTone("B", "BQJH.wav")});
    EXPECT_THAT(keysOf(generated.catalogue.get()), ElementsAre("BQJH.wav", "FHKM.m4r"));
}

TEST_F(Generation, TheNameOfARemovedRingtoneIsFree) {
    putTone("gone", "BQJH.m4r");
    EXPECT_THAT(keysOf(generate({newTone("A", "m4r")}, {}).catalogue.get()),
                ElementsAre("BQJH.m4r"));
}

struct NewNameRow {
    const char* fileType;
    const char* fileName;
};

void PrintTo(const NewNameRow& row, std::ostream* out) {
    *out << row.fileType;
}

class NewNames : public Generation, public ::testing::WithParamInterface<NewNameRow> {};

TEST_P(NewNames, AreBaseNamePointAndFileType) {
    const Generated generated = generate({newTone("A", GetParam().fileType)}, {});
    EXPECT_THAT(keysOf(generated.catalogue.get()), ElementsAre(GetParam().fileName));
}

INSTANTIATE_TEST_SUITE_P(
    All, NewNames,
    ::testing::Values(NewNameRow{"m4r", "BQJH.m4r"}, NewNameRow{"mp3", "BQJH.mp3"},
                      NewNameRow{"aiff", "BQJH.aiff"}, NewNameRow{"M4R", "BQJH.M4R"},
                      NewNameRow{"hrlx", "BQJH.m4r"}, NewNameRow{"HRLX", "BQJH.HRLX"},
                      NewNameRow{"", "BQJH"}));

// ---------------------------------------------------------------------------- entries

TEST_F(Generation, EntriesKeepAllButFourKeys) {
    const Tone tone = putTone("A", "AAAA.m4r")
                          .with("FileType", "m4r")
                          .withObject("NeedsSync", kCFBooleanTrue)
                          .with("LocalPath", "/music/a.m4r")
                          .withObject("LocalData", number(1).get())
                          .withObject("TrackID", number(2).get())
                          .with("Playlist", "mine")
                          .with("FileName", "theirs");
    const Texts expected = {
        {"Name", "A"},    {"GUID", "guid-A"},   {"LocalPath", "/music/a.m4r"}, {"LocalData", "1"},
        {"TrackID", "2"}, {"Playlist", "mine"}, {"FileName", "theirs"}};
    EXPECT_THAT(tableOf(generate({}, {tone}).catalogue.get()),
                ElementsAre(Pair("AAAA.m4r", expected)));
    EXPECT_THAT(tableOf(generate({Tone(tone).without("RemotePath")}, {}).catalogue.get()),
                ElementsAre(Pair("BQJH.m4r", expected)));
}

TEST_F(Generation, TheCallersEntryIsNotChanged) {
    const Tone tone = putTone("A", "AAAA.mp3").with("NeedsSync", "yes");
    const Texts before = textsOf(tone.get());
    setFirmware("1.1.1");
    generate({}, {tone});
    EXPECT_EQ(textsOf(tone.get()), before);
}

TEST_F(Generation, AFileOnThePhoneKeepsItsName) {
    EXPECT_THAT(keysOf(generate({}, {putTone("A", "Any name at all.m4r")}).catalogue.get()),
                ElementsAre("Any name at all.m4r"));
}

TEST_F(Generation, AnUnchangedRingtoneWhoseFileIsGoneIsLeftOutWithItsCompanion) {
    setFirmware("1.1.1");
    const Tone gone = toneOnPhone("A", "BQJH.mp3");
    const Generated generated = generate({newTone("B", "m4r")}, {gone});
    // Its base name is not in use either.
    EXPECT_THAT(keysOf(generated.catalogue.get()), ElementsAre("BQJH.m4r"));
    EXPECT_EQ(textOf(valueOf(dictionaryAt(generated.catalogue, "BQJH.m4r"), "Name")), "B");
    EXPECT_EQ(recordedCode(), std::nullopt);
}

TEST_F(Generation, AnAddedRingtoneWithARemotePathIsTakenAsOnThePhone) {
    const Generated generated = generate({putTone("A", "AAAA.m4r")}, {});
    EXPECT_THAT(keysOf(generated.catalogue.get()), ElementsAre("AAAA.m4r"));
}

TEST_F(Generation, AsksThePhoneOnlyForFilesThatShouldBeThere) {
    generate({newTone("A", "m4r")}, {putTone("B", "BBBB.m4r"), toneOnPhone("C", "CCCC.m4r")});
    EXPECT_THAT(fake.callsOf({"AFCFileInfoOpen", "AFCFileRefOpen", "AFCRenamePath", "AFCRemovePath",
                              "AFCDirectoryOpen", "AFCDirectoryCreate"}),
                ElementsAre("AFCFileInfoOpen " + kFolder + "/BBBB.m4r",
                            "AFCFileInfoOpen " + kFolder + "/CCCC.m4r"));
}

TEST_F(Generation, ACatalogueThatCouldNotBeReadBackFailsWithCode2) {
    const Tone tone = newTone("tone", "m4r");
    const auto added = emptyDictionary();
    for (int i = 0; i < 50000; ++i) {
        CFDictionarySetValue(added.get(), string(std::to_string(i)).get(), tone.get());
    }
    CFMutableDictionaryRef catalogue = nullptr;
    CFMutableDictionaryRef renames = nullptr;
    ASSERT_EQ(KRTRingtoneManagerGeneratePList(manager, added.get(), nullptr, nullptr, &catalogue,
                                              &renames),
              1);
    EXPECT_EQ(CFDictionaryGetCount(catalogue), 50000);
    CFRelease(catalogue);
    CFRelease(renames);
    CFDictionarySetValue(added.get(), CFSTR("one more"), tone.get());
    EXPECT_EQ(KRTRingtoneManagerGeneratePList(manager, added.get(), nullptr, nullptr, &catalogue,
                                              &renames),
              0);
    EXPECT_EQ(recordedCode(), 2);
}

TEST_F(Generation, TheLastComponentOfTheRemotePathIsTheFileName) {
    fake.phone().file("/elsewhere/deep/BBBB.m4r");
    const Tone tone = newTone("A", "m4r").with("RemotePath", "/elsewhere/deep/BBBB.m4r");
    EXPECT_THAT(keysOf(generate({}, {tone}).catalogue.get()), ElementsAre("BBBB.m4r"));
}

// ---------------------------------------------------------------------------- layouts

struct LayoutRow {
    const char* version;
    bool isOlder;
};

void PrintTo(const LayoutRow& row, std::ostream* out) {
    *out << row.version;
}

class Layouts : public Generation, public ::testing::WithParamInterface<LayoutRow> {};

TEST_P(Layouts, CompanionsAreMadeFor102To111Only) {
    setFirmware(GetParam().version);
    const std::vector<std::string> keys =
        keysOf(generate({newTone("A", "mp3")}, {}).catalogue.get());
    if (GetParam().isOlder) {
        EXPECT_THAT(keys, ElementsAre(MatchesRegex("[A-R]{4}.mp3"), MatchesRegex("[A-R]{4}.m4r")));
        EXPECT_EQ(keys[0].substr(0, 4), keys[1].substr(0, 4));
    } else {
        EXPECT_THAT(keys, ElementsAre("BQJH.mp3"));
    }
}

TEST_P(Layouts, LongNamesMoveOn102To111Only) {
    setFirmware(GetParam().version);
    const Generated generated = generate({}, {putTone("A", "Long name.m4r")});
    EXPECT_THAT(keysOf(generated.catalogue.get()),
                ElementsAre(GetParam().isOlder ? "BQJH.m4r" : "Long name.m4r"));
    EXPECT_EQ(CFDictionaryGetCount(generated.renames.get()), GetParam().isOlder ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(Firmware, Layouts,
                         ::testing::Values(LayoutRow{"1.0.0", false}, LayoutRow{"1.0.1", false},
                                           LayoutRow{"1.0.2", true}, LayoutRow{"1.1", true},
                                           LayoutRow{"1.1.1", true}, LayoutRow{"1.1.2", false},
                                           LayoutRow{"1.1.3", false}, LayoutRow{"2.0", false}));

TEST_F(Generation, AnUnknownFirmwareHasTheCurrentLayout) {
    fake.phone().withoutValue("ProductVersion");
    KRTPhoneUpdateInformation(phone);
    ASSERT_EQ(KRTPhoneFirmwareVersion(phone), 1014);
    EXPECT_THAT(keysOf(generate({newTone("A", "mp3")}, {}).catalogue.get()),
                ElementsAre("BQJH.mp3"));
}

// ---------------------------------------------------------------------------- companions

class Companions : public Generation {
protected:
    Companions() { setFirmware("1.1.1"); }
};

TEST_F(Companions, HoldExactlyNameAndGUID) {
    const std::string base = baseThatMeets(/*mp3First=*/false);
    const Tone tone = putTone("A", base + ".mp3").with("LocalPath", "/a").with("TrackID", "1");
    EXPECT_THAT(
        tableOf(generate({}, {tone}).catalogue.get()),
        ElementsAre(
            Pair(base + ".mp3",
                 Texts{{"Name", "A"}, {"GUID", "guid-A"}, {"LocalPath", "/a"}, {"TrackID", "1"}}),
            Pair(base + ".m4r", Texts{{"Name", "A"}, {"GUID", "guid-A"}})));
}

TEST_F(Companions, AreNotMadeForM4RNorForHRLX) {
    const Generated generated = generate({newTone("A", "m4r"), newTone("B", "hrlx")}, {});
    EXPECT_THAT(keysOf(generated.catalogue.get()), ElementsAre("BQJH.m4r", "FHKM.m4r"));
}

TEST_F(Companions, AreMadeForOtherLettersOfM4RAndHRLX) {
    // The companion of a "M4R" ringtone has its own key: names differ by letter case.
    const std::vector<std::string> upper =
        keysOf(generate({newTone("A", "M4R")}, {}).catalogue.get());
    EXPECT_THAT(upper, ElementsAre(MatchesRegex("[A-R]{4}.M4R"), MatchesRegex("[A-R]{4}.m4r")));
    const std::vector<std::string> hrlx =
        keysOf(generate({newTone("A", "HRLX")}, {}).catalogue.get());
    EXPECT_THAT(hrlx, Contains(MatchesRegex("[A-R]{4}.HRLX")));
    EXPECT_THAT(hrlx, Contains(MatchesRegex("[A-R]{4}.m4r")));
}

TEST_F(Companions, DependOnTheEntrysFileTypeNotOnTheFilesExtension) {
    // An mp3 file that says it is an m4r has none.
    const Generated none = generate({}, {putTone("A", "AAAA.mp3").with("FileType", "m4r")});
    EXPECT_THAT(keysOf(none.catalogue.get()), ElementsAre("AAAA.mp3"));
}

TEST_F(Companions, AnM4RFileWithoutAFileTypeIsOverwrittenByItsOwnCompanion) {
    const Tone tone = putTone("A", "AAAA.m4r").without("FileType").with("LocalPath", "/a");
    EXPECT_THAT(tableOf(generate({}, {tone}).catalogue.get()),
                ElementsAre(Pair("AAAA.m4r", Texts{{"Name", "A"}, {"GUID", "guid-A"}})));
}

TEST_F(Companions, TwoRingtonesThatDifferByExtensionOverwriteEachOtherInListOrder) {
    const std::string base = baseThatMeets(/*mp3First=*/false);
    const Tone mp3 = putTone("mp3 tone", base + ".mp3").with("LocalPath", "/mp3");
    const Tone m4r = putTone("m4r tone", base + ".m4r").with("LocalPath", "/m4r");

    const auto companionLast = generate({}, {m4r, mp3});
    EXPECT_THAT(keysOf(companionLast.catalogue.get()), ElementsAre(base + ".m4r", base + ".mp3"));
    EXPECT_EQ(textsOf(dictionaryAt(companionLast.catalogue, base + ".m4r")),
              (Texts{{"Name", "mp3 tone"}, {"GUID", "guid-mp3 tone"}}));

    const auto ringtoneLast = generate({}, {mp3, m4r});
    EXPECT_THAT(keysOf(ringtoneLast.catalogue.get()), ElementsAre(base + ".mp3", base + ".m4r"));
    EXPECT_EQ(textOf(valueOf(dictionaryAt(ringtoneLast.catalogue, base + ".m4r"), "Name")),
              "m4r tone");
}

TEST_F(Companions, MissingNameOrGUIDIsMissingInThemToo) {
    const Tone tone = putTone("A", "AAAA.m4r").without("FileType").without("GUID");
    EXPECT_THAT(tableOf(generate({}, {tone}).catalogue.get()),
                ElementsAre(Pair("AAAA.m4r", Texts{{"Name", "A"}})));
}

// ---------------------------------------------------------------------------- failures

struct PathFailure {
    const char* name;
    CFRef<CFTypeRef> remotePath; // null: the key without a value
    int code;
};

void PrintTo(const PathFailure& row, std::ostream* out) {
    *out << row.name;
}

class PathFailures : public Generation, public ::testing::WithParamInterface<PathFailure> {
protected:
    /// A list of one ringtone with the path of the row.
    CFRef<CFMutableDictionaryRef> badList() const {
        // Without callbacks, so that a key can stand there without a value.
        auto tone =
            adopt(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, nullptr));
        CFDictionarySetValue(tone.get(), CFSTR("Name"), CFSTR("A"));
        CFDictionarySetValue(tone.get(), CFSTR("RemotePath"), GetParam().remotePath.get());
        auto list = emptyDictionary();
        CFDictionarySetValue(list.get(), CFSTR("A"), tone.get());
        return list;
    }
};

TEST_P(PathFailures, EndTheParseWithTheirCode) {
    const auto catalogue = emptyDictionary();
    const auto baseNames = arrayOf({});
    EXPECT_EQ(KRTRingtoneManagerGeneratorParseDictionary(manager, badList().get(), catalogue.get(),
                                                         baseNames.get()),
              0);
    EXPECT_EQ(recordedCode(), GetParam().code);
    EXPECT_STREQ(KRTErrorGetFile(), "KRTRingtoneManagerInternal");
    EXPECT_THAT(fake.calls(), IsEmpty());
}

TEST_P(PathFailures, FailTheGenerationWithTheCodeOfTheParse) {
    for (const bool inUnchanged : {true, false}) {
        KRTErrorClear();
        CFMutableDictionaryRef catalogue = nullptr;
        CFMutableDictionaryRef renames = nullptr;
        const auto bad = badList();
        EXPECT_EQ(KRTRingtoneManagerGeneratePList(manager, inUnchanged ? nullptr : bad.get(),
                                                  nullptr, inUnchanged ? bad.get() : nullptr,
                                                  &catalogue, &renames),
                  0);
        EXPECT_EQ(recordedCode(), GetParam().code);
        EXPECT_EQ(catalogue, nullptr);
        EXPECT_EQ(renames, nullptr);
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, PathFailures,
    ::testing::Values(PathFailure{"NoValue", nullptr, -1},
                      PathFailure{"NoString", krl::cf::retain<CFTypeRef>(kCFBooleanTrue), -1},
                      PathFailure{"NoPath", krl::cf::retain<CFTypeRef>(CFSTR("")), -2}),
    [](const auto& row) { return row.param.name; });

TEST_F(Generation, AParseThatFailsKeepsTheNamesBeforeTheFailure) {
    const auto list = listOf({putTone("A", "AAAA.m4r"), newTone("B", "m4r").with("RemotePath", ""),
                              putTone("C", "CCCC.m4r")});
    const auto catalogue = emptyDictionary();
    const auto baseNames = arrayOf({"before"});
    EXPECT_EQ(KRTRingtoneManagerGeneratorParseDictionary(manager, list.get(), catalogue.get(),
                                                         baseNames.get()),
              0);
    EXPECT_THAT(keysOf(catalogue.get()), ElementsAre("AAAA.m4r"));
    EXPECT_THAT(textsOf(baseNames.get()), ElementsAre("before", "AAAA"));
}

// ---------------------------------------------------------------------------- one list alone

TEST_F(Generation, AParseAppendsBaseNamesInListOrder) {
    const auto list = listOf({putTone("A", "AAAA.m4r"), putTone("B", "AAAA.wav"),
                              putTone("C", "No extension"), toneOnPhone("D", "GONE.m4r")});
    const auto catalogue = emptyDictionary();
    const auto baseNames = arrayOf({"ZZZZ", "ZZZZ"});
    EXPECT_EQ(KRTRingtoneManagerGeneratorParseDictionary(manager, list.get(), catalogue.get(),
                                                         baseNames.get()),
              1);
    EXPECT_THAT(textsOf(baseNames.get()),
                ElementsAre("ZZZZ", "ZZZZ", "AAAA", "AAAA", "No extension"));
}

TEST_F(Generation, AParseDrawsAroundTheNamesItWasGiven) {
    srandom(0);
    const auto list = listOf({newTone("A", "m4r")});
    const auto catalogue = emptyDictionary();
    const auto baseNames = arrayOf({"BQJH", "FHKM"});
    EXPECT_EQ(KRTRingtoneManagerGeneratorParseDictionary(manager, list.get(), catalogue.get(),
                                                         baseNames.get()),
              1);
    EXPECT_THAT(keysOf(catalogue.get()), ElementsAre("PBON.m4r"));
    EXPECT_THAT(textsOf(baseNames.get()), ElementsAre("BQJH", "FHKM", "PBON"));
}

TEST_F(Generation, AParseOfAnEmptyListSucceedsAtOnce) {
    const auto catalogue = emptyDictionary();
    const auto baseNames = arrayOf({"X"});
    EXPECT_EQ(KRTRingtoneManagerGeneratorParseDictionary(manager, listOf({}).get(), catalogue.get(),
                                                         baseNames.get()),
              1);
    EXPECT_EQ(KRTRingtoneManagerGeneratorParseDictionary(manager, nullptr, catalogue.get(),
                                                         baseNames.get()),
              1);
    EXPECT_EQ(CFDictionaryGetCount(catalogue.get()), 0);
    EXPECT_THAT(textsOf(baseNames.get()), ElementsAre("X"));
    EXPECT_THAT(fake.calls(), IsEmpty());
}

TEST_F(Generation, WhatIsNoRingtoneInAListIsLeftOut) {
    const auto list = listOf({newTone("A", "m4r")});
    CFDictionarySetValue(list.get(), CFSTR("B"), CFSTR("text"));
    CFRef<CFMutableDictionaryRef> catalogue;
    CFRef<CFMutableDictionaryRef> renames;
    EXPECT_EQ(KRTRingtoneManagerGeneratePList(manager, list.get(), nullptr, nullptr,
                                              catalogue.receive(), renames.receive()),
              1);
    EXPECT_THAT(keysOf(catalogue.get()), ElementsAre("BQJH.m4r"));
}

} // namespace
