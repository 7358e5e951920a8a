// What a submit does to the phone.
#include "tests/library/store/StoreTest.h"

#include <cstdint>
#include <thread>

namespace {

class Submit : public StoreTest {
protected:
    /// The calls that change the phone or list a folder, in order.
    std::vector<std::string> changes() const {
        return fake.callsOf({"AFCDirectoryCreate", "AFCRenamePath", "AFCFileRefOpen",
                             "AFCRemovePath", "AFCDirectoryOpen"});
    }

    static std::string write(const std::string& fileName) {
        return "AFCFileRefOpen " + kFolder + "/" + fileName + " 3";
    }

    static std::string remove(const std::string& fileName) {
        return "AFCRemovePath " + kFolder + "/" + fileName;
    }

    const std::string createFolder = "AFCDirectoryCreate " + kFolder;
    const std::string writeCatalogue = "AFCFileRefOpen " + kCatalogue + " 3";
    const std::string listFolder = "AFCDirectoryOpen " + kFolder;
};

// ---------------------------------------------------------------------------- the order

TEST_F(Submit, WithoutAnythingCreatesTheFolderWritesAnEmptyCatalogueAndListsTheFolder) {
    EXPECT_EQ(sync({}), 1);
    EXPECT_THAT(changes(), ElementsAre(createFolder, writeCatalogue, listFolder));
    EXPECT_THAT(writtenCatalogue(), IsEmpty());
    EXPECT_THAT(filesOnPhone(), IsEmpty());
}

TEST_F(Submit, RenamesUploadsRemovesWritesTheCatalogueAndCleansUpInThisOrder) {
    setFirmware("1.1.1");
    const Tone moved = putTone("moved", "Long name.m4r", "moved bytes");
    const Tone removed = putTone("removed", "RRRR.m4r");
    putTone("stray", "SSSS.m4r");
    EXPECT_EQ(sync({toneWithSource("new", "m4r")}, {removed}, {moved}), 1);
    EXPECT_THAT(changes(),
                ElementsAre(createFolder,
                            "AFCRenamePath " + kFolder + "/Long name.m4r " + kFolder + "/FHKM.m4r",
                            write("BQJH.m4r"), remove("RRRR.m4r"), writeCatalogue, listFolder,
                            remove("SSSS.m4r")));
    EXPECT_THAT(filesOnPhone(), UnorderedElementsAre("BQJH.m4r", "FHKM.m4r"));
    EXPECT_EQ(contentsOnPhone("FHKM.m4r"), "moved bytes");
    EXPECT_EQ(contentsOnPhone("BQJH.m4r"), "source bytes");
}

TEST_F(Submit, TheCatalogueIsWrittenAfterEveryRenameUploadAndRemoval) {
    putCatalogue({});
    const std::string oldCatalogue = fake.phone().contents(kCatalogue);
    fake.onCall([&](const std::string& line) {
        if (line == remove("RRRR.m4r") || line == write("BQJH.m4r")) {
            EXPECT_EQ(fake.phone().contents(kCatalogue), oldCatalogue);
        }
    });
    EXPECT_EQ(sync({toneWithSource("new", "m4r")}, {putTone("removed", "RRRR.m4r")}), 1);
    EXPECT_NE(fake.phone().contents(kCatalogue), oldCatalogue);
}

TEST_F(Submit, UploadsInTheOrderOfTheCatalogue) {
    EXPECT_EQ(sync({toneWithSource("Z", "m4r"), toneWithSource("A", "mp3")}), 1);
    EXPECT_THAT(changes(), ElementsAre(createFolder, write("BQJH.m4r"), write("FHKM.mp3"),
                                       writeCatalogue, listFolder));
}

TEST_F(Submit, DoesNotTouchTheSyncLock) {
    EXPECT_EQ(sync({toneWithSource("A", "m4r")}), 1);
    EXPECT_EQ(fake.countOf("AMDPostNotification"), 0);
    EXPECT_EQ(fake.countOf("AFCFileRefLock"), 0);
    EXPECT_EQ(fake.countOf("AFCFileRefUnlock"), 0);
}

// ---------------------------------------------------------------------------- what stays

TEST_F(Submit, WithNoChangesRewritesTheCatalogueAndRemovesFilesThatNoEntryNames) {
    const Tone a = putTone("A", "AAAA.m4r").with("LocalPath", "/a");
    const Tone b = putTone("B", "BBBB.mp3").with("LocalPath", "/b");
    putTone("stray", "STRAY.m4r");
    EXPECT_EQ(sync({}, {}, {a, b}), 1);
    EXPECT_THAT(
        writtenCatalogue(),
        ElementsAre(
            Pair("AAAA.m4r", Texts{{"Name", "A"}, {"GUID", "guid-A"}, {"LocalPath", "/a"}}),
            Pair("BBBB.mp3", Texts{{"Name", "B"}, {"GUID", "guid-B"}, {"LocalPath", "/b"}})));
    EXPECT_THAT(filesOnPhone(), UnorderedElementsAre("AAAA.m4r", "BBBB.mp3"));
    EXPECT_EQ(contentsOnPhone("AAAA.m4r"), "bytes");
}

TEST_F(Submit, AnAddedRingtoneWhoseNameIsUnchangedIsNotUploadedAgain) {
    const Tone onPhone = putTone("A", "AAAA.m4r");
    EXPECT_EQ(sync({toneWithSource("A", "m4r")}, {}, {onPhone}), 1);
    EXPECT_THAT(changes(), Not(Contains(write("BQJH.m4r"))));
    EXPECT_THAT(filesOnPhone(), ElementsAre("AAAA.m4r"));
}

TEST_F(Submit, AnAddedRingtoneWithoutALocalPathIsListedAndNotUploaded) {
    putTone("stray", "BQJH.mp3", "already there");
    EXPECT_EQ(sync({newTone("A", "mp3").with("TrackID", "1")}), 1);
    EXPECT_THAT(changes(), ElementsAre(createFolder, writeCatalogue, listFolder));
    EXPECT_THAT(
        writtenCatalogue(),
        ElementsAre(Pair("BQJH.mp3", Texts{{"Name", "A"}, {"GUID", "guid-A"}, {"TrackID", "1"}})));
    EXPECT_EQ(contentsOnPhone("BQJH.mp3"), "already there");
}

TEST_F(Submit, AnAddedM4RWithNothingButNameAndGUIDIsTakenForACompanion) {
    EXPECT_EQ(sync({newTone("A", "m4r")}), 1);
    EXPECT_THAT(changes(),
                ElementsAre(createFolder, write("BQJH.m4r"), writeCatalogue, listFolder));
    EXPECT_EQ(contentsOnPhone("BQJH.m4r"), "");
}

TEST_F(Submit, AnUnchangedM4RWithNothingButNameAndGUIDIsEmptied) {
    EXPECT_EQ(sync({}, {}, {putTone("A", "AAAA.m4r", "music")}), 1);
    EXPECT_EQ(contentsOnPhone("AAAA.m4r"), "");
}

TEST_F(Submit, ARingtoneWithARemotePathStaysThoughItsNameIsNotUnchanged) {
    // Its "LocalPath" makes it an upload, to the name that it has.
    const Tone tone =
        putTone("A", "AAAA.m4r", "old").with("LocalPath", computer.file("a.m4r", "new"));
    EXPECT_EQ(sync({tone}), 1);
    EXPECT_EQ(contentsOnPhone("AAAA.m4r"), "new");
}

// ---------------------------------------------------------------------------- uploads

TEST_F(Submit, TheComputersPathTravelsToThePhone) {
    const Tone tone = toneWithSource("A", "m4r").withObject("NeedsSync", kCFBooleanTrue);
    EXPECT_EQ(sync({tone}), 1);
    EXPECT_THAT(writtenCatalogue(),
                ElementsAre(Pair("BQJH.m4r", Texts{{"Name", "A"},
                                                   {"GUID", "guid-A"},
                                                   {"LocalPath", computer.path("A.m4r")}})));
}

TEST_F(Submit, TheCatalogueIsADictionaryUnderRingtones) {
    EXPECT_EQ(sync({toneWithSource("A & B", "m4r")}), 1);
    const std::string path = computer.path("A & B.m4r");
    const std::string escaped =
        path.substr(0, path.find('&')) + "&amp;" + path.substr(path.find('&') + 1);
    EXPECT_EQ(fake.phone().contents(kCatalogue),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
              "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
              "<plist version=\"1.0\">\n"
              "<dict>\n"
              "\t<key>Ringtones</key>\n"
              "\t<dict>\n"
              "\t\t<key>BQJH.m4r</key>\n"
              "\t\t<dict>\n"
              "\t\t\t<key>Name</key>\n"
              "\t\t\t<string>A &amp; B</string>\n"
              "\t\t\t<key>GUID</key>\n"
              "\t\t\t<string>guid-A &amp; B</string>\n"
              "\t\t\t<key>LocalPath</key>\n"
              "\t\t\t<string>" +
                  escaped +
                  "</string>\n"
                  "\t\t</dict>\n"
                  "\t</dict>\n"
                  "</dict>\n"
                  "</plist>\n");
}

TEST_F(Submit, AnEmptySourceFileMakesAnEmptyFileThatIsKept) {
    EXPECT_EQ(sync({toneWithSource("A", "mp3", "")}), 1);
    EXPECT_THAT(filesOnPhone(), ElementsAre("BQJH.mp3"));
    EXPECT_EQ(contentsOnPhone("BQJH.mp3"), "");
    EXPECT_EQ(fake.countOf("AFCFileRefWrite"), 1) << "the catalogue's";
}

TEST_F(Submit, ASourceFileIsWrittenInOneGo) {
    const std::string contents(100000, 'x');
    EXPECT_EQ(sync({toneWithSource("A", "m4r", contents)}), 1);
    EXPECT_EQ(contentsOnPhone("BQJH.m4r"), contents);
    EXPECT_EQ(fake.countOf("AFCFileRefWrite"), 2) << "the ringtone and the catalogue";
}

TEST_F(Submit, SourcePathsMayHoldAnyCharacters) {
    const std::string path = computer.file("100%41 #1? ü;.m4r", "odd");
    EXPECT_EQ(sync({newTone("A", "m4r").with("LocalPath", path)}), 1);
    EXPECT_EQ(contentsOnPhone("BQJH.m4r"), "odd");
}

TEST_F(Submit, AHRLXRingtoneIsStoredAsM4RWithoutACompanion) {
    setFirmware("1.1.1");
    EXPECT_EQ(sync({toneWithSource("A", "hrlx")}), 1);
    EXPECT_THAT(filesOnPhone(), ElementsAre("BQJH.m4r"));
    EXPECT_EQ(contentsOnPhone("BQJH.m4r"), "source bytes");
}

TEST_F(Submit, OfTwoRingtonesBothAreUploadedOneAfterTheOther) {
    EXPECT_EQ(sync({toneWithSource("A", "m4r", "first"), toneWithSource("B", "aiff", "second")}),
              1);
    EXPECT_EQ(contentsOnPhone("BQJH.m4r"), "first");
    EXPECT_EQ(contentsOnPhone("FHKM.aiff"), "second");
}

// ---------------------------------------------------------------------------- companions

TEST_F(Submit, AnAddedMP3OnFirmware111HasAnEmptyM4RFileBesideIt) {
    setFirmware("1.1.1");
    EXPECT_EQ(sync({toneWithSource("A", "mp3")}), 1);
    const std::vector<std::string> files = filesOnPhone();
    ASSERT_EQ(files.size(), 2u);
    const std::string base = files[0].substr(0, 4);
    EXPECT_THAT(files, UnorderedElementsAre(base + ".mp3", base + ".m4r"));
    EXPECT_EQ(contentsOnPhone(base + ".mp3"), "source bytes");
    EXPECT_EQ(contentsOnPhone(base + ".m4r"), "");
    EXPECT_THAT(writtenCatalogue(),
                Contains(Pair(base + ".m4r", Texts{{"Name", "A"}, {"GUID", "guid-A"}})));
}

TEST_F(Submit, PlaceholdersAreWrittenAnewEachTime) {
    setFirmware("1.1.1");
    const std::string base = baseThatMeets(/*mp3First=*/false);
    const Tone tone = putTone("A", base + ".mp3").with("LocalPath", "/a");
    fake.phone().file(kFolder + "/" + base + ".m4r", "not empty");
    EXPECT_EQ(sync({}, {}, {tone}), 1);
    EXPECT_THAT(changes(),
                ElementsAre(createFolder, write(base + ".m4r"), writeCatalogue, listFolder));
    EXPECT_EQ(contentsOnPhone(base + ".m4r"), "");
}

TEST_F(Submit, TheRenameOfAMovedRingtoneIsTriedForItsCompanionToo) {
    setFirmware("1.1.1");
    const std::string base = baseThatMeets(/*mp3First=*/true);
    const Tone tone = putTone("A", base + ".mp3", "music").with("LocalPath", "/a");
    // The folder is there already, which would stay the first error.
    fake.onCall([](const std::string& line) {
        if (line.starts_with("AFCRenamePath")) {
            KRTErrorClear();
        }
    });
    EXPECT_EQ(sync({}, {}, {tone}), 1);
    const std::vector<std::string> files = filesOnPhone();
    ASSERT_EQ(files.size(), 2u);
    const std::string moved = files[0].substr(0, 4);
    const std::string rename =
        "AFCRenamePath " + kFolder + "/" + base + ".mp3 " + kFolder + "/" + moved + ".mp3";
    EXPECT_THAT(fake.callsOf("AFCRenamePath"), ElementsAre(rename, rename));
    EXPECT_EQ(contentsOnPhone(moved + ".mp3"), "music");
    EXPECT_EQ(contentsOnPhone(moved + ".m4r"), "");
    // The second attempt finds no file, which is ignored and stays on record.
    EXPECT_EQ(recordedCode(), kAFCObjectNotFound);
}

TEST_F(Submit, ALongMP3OnFirmware111IsLostWhenItsCompanionMoves) {
    setFirmware("1.1.1");
    const Tone tone = putTone("A", "Long name.mp3", "music").with("LocalPath", "/a");
    EXPECT_EQ(sync({}, {}, {tone}), 1);
    // The file goes where the companion moved, while the catalogue still lists it under its long
    // name.
    EXPECT_THAT(filesOnPhone(), ElementsAre("BQJH.m4r"));
    EXPECT_EQ(contentsOnPhone("BQJH.m4r"), "music");
    EXPECT_THAT(writtenCatalogue(),
                ElementsAre(Pair("Long name.mp3", testing::_), Pair("BQJH.m4r", testing::_)));
    EXPECT_THAT(loaded(), IsEmpty());
}

TEST_F(Submit, OfTwoRingtonesThatDifferByExtensionTheLaterListedHasTheM4R) {
    setFirmware("1.1.1");
    const std::string base = baseThatMeets(/*mp3First=*/false);
    const Tone mp3 = putTone("mp3", base + ".mp3", "mp3").with("LocalPath", "/mp3");
    const Tone m4r = putTone("m4r", base + ".m4r", "m4r").with("LocalPath", "/m4r");
    EXPECT_EQ(sync({}, {}, {mp3, m4r}), 1);
    EXPECT_EQ(contentsOnPhone(base + ".m4r"), "m4r");
    EXPECT_EQ(sync({}, {}, {m4r, mp3}), 1);
    // Its entry was overwritten by the companion of the other, which has an empty file.
    EXPECT_EQ(contentsOnPhone(base + ".m4r"), "");
}

// ---------------------------------------------------------------------------- moves

TEST_F(Submit, ARenameRecordWhoseGUIDNoUnchangedRingtoneHasMovesNothing) {
    setFirmware("1.1.1");
    // The added ringtone has the name of an unchanged one and a GUID of its own. It moves, as the
    // mp3 file of its drawn name is met first or its name is long.
    const Tone unchanged = putTone("A", "AAAA.m4r").with("LocalPath", "/a");
    const Tone added = putTone("A", "Long name.m4r").with("GUID", "other").with("LocalPath", "/b");
    EXPECT_EQ(sync({added}, {}, {unchanged}), 1);
    EXPECT_EQ(fake.countOf("AFCRenamePath"), 0);
    // The new name counts as kept, though no file has it.
    EXPECT_THAT(filesOnPhone(), ElementsAre("AAAA.m4r"));
    EXPECT_THAT(keysOf(load().get()), ElementsAre("A"));
}

TEST_F(Submit, ARingtoneIsRenamedFromItsRemotePath) {
    setFirmware("1.1.1");
    fake.phone().file("/elsewhere/Long name.m4r", "music");
    const Tone tone =
        newTone("A", "m4r").with("RemotePath", "/elsewhere/Long name.m4r").with("LocalPath", "/a");
    EXPECT_EQ(sync({}, {}, {tone}), 1);
    EXPECT_EQ(contentsOnPhone("BQJH.m4r"), "music");
}

TEST_F(Submit, OfTwoUnchangedRingtonesWithOneGUIDTheFirstIsRenamed) {
    setFirmware("1.1.1");
    const Tone first =
        putTone("A", "Long one.m4r", "first").with("GUID", "same").with("LocalPath", "/a");
    const Tone second =
        putTone("B", "Long two.m4r", "second").with("GUID", "same").with("LocalPath", "/b");
    EXPECT_EQ(sync({}, {}, {first, second}), 1);
    // One record for the GUID, that of the later move; both entries lead to the first file.
    const std::string rename =
        "AFCRenamePath " + kFolder + "/Long one.m4r " + kFolder + "/FHKM.m4r";
    EXPECT_THAT(fake.callsOf("AFCRenamePath"), ElementsAre(rename, rename));
    EXPECT_EQ(contentsOnPhone("FHKM.m4r"), "first");
}

TEST_F(Submit, ManyMovesRenameEachFileToItsName) {
    setFirmware("1.1.1");
    std::vector<Tone> unchanged;
    for (int i = 0; i < 200; ++i) {
        const std::string name = "tone " + std::to_string(i);
        unchanged.push_back(
            putTone(name, "Long " + name + ".m4r", "of " + name).with("LocalPath", "/x"));
    }
    EXPECT_EQ(sync({}, {}, unchanged), 1);
    const auto list = load();
    ASSERT_EQ(CFDictionaryGetCount(list.get()), 200);
    for (const auto& [name, tone] : tableOf(list.get())) {
        EXPECT_EQ(fake.phone().contents(tone.at("RemotePath")), "of " + name);
    }
}

// ---------------------------------------------------------------------------- removals

TEST_F(Submit, ARemovedRingtonesFileGoesByItsRemotePath) {
    fake.phone().file("/elsewhere/GONE.m4r");
    const Tone tone = newTone("A", "m4r").with("RemotePath", "/elsewhere/GONE.m4r");
    EXPECT_EQ(sync({}, {tone}), 1);
    EXPECT_FALSE(fake.phone().hasFile("/elsewhere/GONE.m4r"));
}

TEST_F(Submit, ARemovedRingtoneWhoseFileNameIsReusedIsNotDeleted) {
    const Tone removed = putTone("old", "BQJH.m4r", "old");
    EXPECT_EQ(sync({toneWithSource("new", "m4r", "new")}, {removed}), 1);
    EXPECT_EQ(fake.countOf("AFCRemovePath"), 0);
    EXPECT_EQ(contentsOnPhone("BQJH.m4r"), "new");
}

TEST_F(Submit, ARemovedRingtoneWithoutARemotePathIsPassedOver) {
    EXPECT_EQ(sync({}, {newTone("A", "m4r"), newTone("B", "m4r").with("RemotePath", "")}), 1);
    EXPECT_EQ(fake.countOf("AFCRemovePath"), 0);
}

struct CompanionRow {
    const char* name;
    const char* version;
    const char* fileType; // null: no "FileType"
    std::vector<std::string> removed;
};

void PrintTo(const CompanionRow& row, std::ostream* out) {
    *out << row.name;
}

class RemovedCompanions : public Submit, public ::testing::WithParamInterface<CompanionRow> {};

TEST_P(RemovedCompanions, GoWithTheirRingtone) {
    setFirmware(GetParam().version);
    Tone tone = putTone("A", "AAAA.mp3").without("FileType");
    if (GetParam().fileType != nullptr) {
        tone.with("FileType", GetParam().fileType);
    }
    EXPECT_EQ(sync({}, {tone}), 1);
    EXPECT_THAT(fake.callsOf("AFCRemovePath"), ElementsAreArray(GetParam().removed));
}

const std::string kRemoveMP3 = "AFCRemovePath " + kFolder + "/AAAA.mp3";
const std::string kRemoveM4R = "AFCRemovePath " + kFolder + "/AAAA.m4r";

INSTANTIATE_TEST_SUITE_P(
    All, RemovedCompanions,
    ::testing::Values(CompanionRow{"FirstOlder", "1.0.2", "mp3", {kRemoveMP3, kRemoveM4R}},
                      CompanionRow{"LastOlder", "1.1.1", "mp3", {kRemoveMP3, kRemoveM4R}},
                      CompanionRow{"NoFileType", "1.1.1", nullptr, {kRemoveMP3, kRemoveM4R}},
                      CompanionRow{"OtherLetters", "1.1.1", "M4R", {kRemoveMP3, kRemoveM4R}},
                      CompanionRow{"M4R", "1.1.1", "m4r", {kRemoveMP3}},
                      CompanionRow{"BeforeOlder", "1.0.1", "mp3", {kRemoveMP3}},
                      CompanionRow{"AfterOlder", "1.1.2", "mp3", {kRemoveMP3}}),
    [](const auto& row) { return row.param.name; });

TEST_F(Submit, TheCompanionGoesAlsoWhenTheRingtonesOwnFileIsKept) {
    setFirmware("1.1.1");
    // The removed file's name is in use by a ringtone that stays and has no companion.
    const Tone kept = putTone("kept", "AAAA.mp3").with("FileType", "m4r").with("LocalPath", "/k");
    const Tone removed = toneOnPhone("removed", "AAAA.mp3");
    fake.phone().file(kFolder + "/AAAA.m4r");
    EXPECT_EQ(sync({}, {removed}, {kept}), 1);
    EXPECT_THAT(fake.callsOf("AFCRemovePath"), ElementsAre(kRemoveM4R));
}

TEST_F(Submit, TheCompanionOfAKeptFileIsRemovedByTheRemovalsNotOnlyByTheCleanup) {
    setFirmware("1.1.1");
    const Tone kept = putTone("kept", "AAAA.mp3").with("FileType", "m4r").with("LocalPath", "/k");
    // No listing shows the companion.
    EXPECT_EQ(sync({}, {toneOnPhone("removed", "AAAA.mp3")}, {kept}), 1);
    EXPECT_THAT(fake.callsOf("AFCRemovePath"), ElementsAre(kRemoveM4R));
}

TEST_F(Submit, ARingtoneIsOnThePhoneWhenItsNameIsAKeyOfTheUnchangedList) {
    putTone("A", "AAAA.m4r");
    const auto unchanged = listOf({});
    CFDictionarySetValue(unchanged.get(), CFSTR("key"), toneOnPhone("A", "AAAA.m4r").get());
    const auto added = listOf({toneWithSource("A", "m4r"), toneWithSource("key", "m4r")});
    openPhone();
    EXPECT_EQ(
        KRTRingtoneManagerSubmitChanges(manager, added.get(), listOf({}).get(), unchanged.get()),
        1);
    EXPECT_EQ(contentsOnPhone("BQJH.m4r"), "source bytes") << "the name of an entry alone";
    EXPECT_FALSE(fake.phone().hasFile(kFolder + "/FHKM.m4r")) << "the name that is a key";
}

TEST_F(Submit, ACompanionThatIsKeptStaysWhenTheRingtoneGoes) {
    setFirmware("1.1.1");
    const Tone removed = putTone("removed", "AAAA.mp3");
    const Tone kept = putTone("kept", "AAAA.m4r", "music").with("LocalPath", "/k");
    EXPECT_EQ(sync({}, {removed}, {kept}), 1);
    EXPECT_THAT(fake.callsOf("AFCRemovePath"), ElementsAre(kRemoveMP3));
    EXPECT_EQ(contentsOnPhone("AAAA.m4r"), "music");
}

TEST_F(Submit, ARemovedRingtoneWhosePathLeadsOutOfTheFolderIsPassedOver) {
    setFirmware("1.1.1");
    fake.phone().directory(kFolder).file("/DCIM/IMG_0001.JPG", "photo").file("/DCIM/IMG_0001.m4r");
    for (const char* path : {"/../../DCIM/IMG_0001.JPG", "/..", "/.", "/./../x.mp3"}) {
        const Tone removed = newTone("A", "mp3").with("RemotePath", kFolder + path);
        EXPECT_EQ(sync({}, {removed}), 1);
    }
    EXPECT_EQ(fake.countOf("AFCRemovePath"), 0);
    EXPECT_EQ(fake.phone().contents("/DCIM/IMG_0001.JPG"), "photo");
}

TEST_F(Submit, AnUnchangedRingtoneWhosePathLeadsOutOfTheFolderIsTakenAsGone) {
    setFirmware("1.1.1");
    fake.phone().file("/DCIM/Long name.m4r", "photo");
    const Tone unchanged = newTone("A", "m4r")
                               .with("RemotePath", kFolder + "/../../DCIM/Long name.m4r")
                               .with("LocalPath", "/a");
    EXPECT_EQ(sync({}, {}, {unchanged}), 1);
    EXPECT_EQ(fake.countOf("AFCRenamePath"), 0);
    EXPECT_THAT(writtenCatalogue(), IsEmpty());
    EXPECT_EQ(fake.phone().contents("/DCIM/Long name.m4r"), "photo");
}

TEST_F(Submit, AFileTypeThatLeadsOutOfTheFolderFailsTheUploadWithCode5) {
    const Tone added = toneWithSource("A", "m4r").with("FileType", "/../../escaped.m4r");
    openPhone();
    Reports reports;
    reportTo(reports);
    reports.answer = [](size_t, const std::string&) {
        KRTErrorClear();
        return true;
    };
    EXPECT_EQ(submit({added}), 0);
    EXPECT_EQ(recordedCode(), 5);
    EXPECT_EQ(fake.countOf("AFCFileRefOpen"), 0);
}

TEST_F(Submit, TheCompanionOfARingtoneElsewhereGoesFromTheRingtoneFolder) {
    setFirmware("1.1.1");
    fake.phone().file("/elsewhere/AAAA.mp3");
    const Tone removed = newTone("A", "mp3").with("RemotePath", "/elsewhere/AAAA.mp3");
    EXPECT_EQ(sync({}, {removed}), 1);
    EXPECT_THAT(fake.callsOf("AFCRemovePath"),
                ElementsAre("AFCRemovePath /elsewhere/AAAA.mp3", kRemoveM4R));
}

// ---------------------------------------------------------------------------- the data function

/// What the data functions below were called with, and what they give.
struct DataFunctions {
    static inline std::vector<std::string> sources;
    static inline CFDataRef lastData = nullptr;

    static CFDataRef give(CFURLRef source) {
        sources.push_back(
            textOf(adopt(CFURLCopyFileSystemPath(source, kCFURLPOSIXPathStyle)).get()));
        lastData = CFDataCreate(nullptr, reinterpret_cast<const UInt8*>("made up"), 7);
        CFRetain(lastData);
        return lastData;
    }

    static CFDataRef giveNone(CFURLRef source) {
        sources.push_back(
            textOf(adopt(CFURLCopyFileSystemPath(source, kCFURLPOSIXPathStyle)).get()));
        return nullptr;
    }

    /// Nobody registers this one.
    static CFDataRef stranger(CFURLRef) {
        ADD_FAILURE() << "a function that was never registered is called";
        return nullptr;
    }
};

class DataFunction : public Submit {
protected:
    DataFunction() {
        DataFunctions::sources.clear();
        KRTRingtoneManagerRegisterDataFunction(DataFunctions::give);
        KRTRingtoneManagerRegisterDataFunction(DataFunctions::giveNone);
    }

    Tone toneWith(CFTypeRef localData) const {
        return newTone("A", "m4r")
            .with("LocalPath", "/no/such/file.m4r")
            .withObject("LocalData", localData);
    }

    static CFRef<CFNumberRef> addressOf(KRTRingtoneDataFunction function) {
        return number(static_cast<int64_t>(reinterpret_cast<uintptr_t>(function)));
    }
};

TEST_F(DataFunction, GivesTheBytesInPlaceOfTheFile) {
    EXPECT_EQ(sync({toneWith(addressOf(DataFunctions::give).get())}), 1);
    EXPECT_THAT(DataFunctions::sources, ElementsAre("/no/such/file.m4r"));
    EXPECT_EQ(contentsOnPhone("BQJH.m4r"), "made up");
    // Released by the store; one reference is the test's.
    EXPECT_EQ(CFGetRetainCount(DataFunctions::lastData), 1);
    CFRelease(DataFunctions::lastData);
}

TEST_F(DataFunction, ItsNumberIsItsAddressHoweverOftenItIsRegistered) {
    const int64_t address = static_cast<int64_t>(reinterpret_cast<uintptr_t>(&DataFunctions::give));
    EXPECT_EQ(KRTRingtoneManagerRegisterDataFunction(DataFunctions::give), address);
    EXPECT_EQ(KRTRingtoneManagerRegisterDataFunction(DataFunctions::give), address);
}

TEST_F(DataFunction, NullHasNoNumber) {
    EXPECT_EQ(KRTRingtoneManagerRegisterDataFunction(nullptr), 0);
}

TEST_F(DataFunction, MayBeRegisteredWhileAnotherThreadSubmits) {
    std::thread registering([] {
        for (int i = 0; i < 1000; ++i) {
            KRTRingtoneManagerRegisterDataFunction(DataFunctions::give);
        }
    });
    EXPECT_EQ(sync({toneWith(addressOf(DataFunctions::give).get())}), 1);
    registering.join();
    EXPECT_EQ(contentsOnPhone("BQJH.m4r"), "made up");
    CFRelease(DataFunctions::lastData);
}

TEST_F(DataFunction, ANumberThatThePhoneHasChosenIsNeverCalledAndStillTravels) {
    // Loaded from the phone and handed over as new, as an application may do it.
    const int64_t address =
        static_cast<int64_t>(reinterpret_cast<uintptr_t>(&DataFunctions::stranger));
    putTone("A", "AAAA.m4r");
    putCatalogue({{"AAAA.m4r", toneWith(number(address).get()).without("FileType")}});
    const auto list = load();
    const auto tone = adopt(CFDictionaryCreateMutableCopy(nullptr, 0, dictionaryAt(list, "A")));
    CFDictionaryRemoveValue(tone.get(), KRTRemotePath);
    CFDictionarySetValue(list.get(), CFSTR("A"), tone.get());
    Reports reports;
    reportTo(reports);
    // Creating the folder that is there would be the first error.
    reports.answer = [](size_t, const std::string&) {
        KRTErrorClear();
        return true;
    };
    openPhone();
    EXPECT_EQ(
        KRTRingtoneManagerSubmitChanges(manager, list.get(), listOf({}).get(), listOf({}).get()),
        1);
    EXPECT_FALSE(KRTError());
    const Table written = writtenCatalogue();
    ASSERT_EQ(written.size(), 1u);
    EXPECT_EQ(written[0].second.at("LocalData"), std::to_string(address));
}

TEST_F(DataFunction, IsNotConsultedForARingtoneOnThePhone) {
    const Tone onPhone = putTone("A", "AAAA.m4r")
                             .with("LocalPath", "/a")
                             .withObject("LocalData", addressOf(DataFunctions::give).get());
    EXPECT_EQ(sync({}, {}, {onPhone}), 1);
    EXPECT_THAT(DataFunctions::sources, IsEmpty());
}

TEST_F(DataFunction, OneThatComesBackFromThePhoneIsNotCalled) {
    EXPECT_EQ(sync({toneWith(addressOf(DataFunctions::give).get())}), 1);
    CFRelease(DataFunctions::lastData);
    DataFunctions::sources.clear();
    const auto list = load();
    ASSERT_EQ(CFDictionaryGetCount(list.get()), 1);
    ASSERT_NE(valueOf(dictionaryAt(list, "A"), "LocalData"), nullptr) << "it travels";
    openPhone();
    EXPECT_EQ(
        KRTRingtoneManagerSubmitChanges(manager, listOf({}).get(), listOf({}).get(), list.get()),
        1);
    EXPECT_THAT(DataFunctions::sources, IsEmpty());
    EXPECT_EQ(contentsOnPhone("BQJH.m4r"), "made up");
}

struct NoDataRow {
    const char* name;
    CFRef<CFTypeRef> localData;
};

void PrintTo(const NoDataRow& row, std::ostream* out) {
    *out << row.name;
}

class NoData : public DataFunction, public ::testing::WithParamInterface<NoDataRow> {};

TEST_P(NoData, PassesTheUploadOverListsTheRingtoneAndDoesNotKeepItsFile) {
    putTone("stray", "BQJH.m4r", "old");
    Reports reports;
    reportTo(reports);
    EXPECT_EQ(sync({toneWith(GetParam().localData.get())}), 1);
    EXPECT_THAT(keysOf(load().get()), IsEmpty());
    EXPECT_THAT(writtenCatalogue(), ElementsAre(Pair("BQJH.m4r", testing::_)));
    EXPECT_THAT(filesOnPhone(), IsEmpty());
    // Both reports of the upload are made.
    EXPECT_THAT(reports.lines, Contains("5 1 1 0 A"));
    EXPECT_THAT(reports.lines, Contains("5 0 1 1"));
}

CFRef<CFTypeRef> oneHalf() {
    const double value = 0.5;
    return adopt(CFNumberCreate(nullptr, kCFNumberFloat64Type, &value));
}

INSTANTIATE_TEST_SUITE_P(
    All, NoData,
    ::testing::Values(
        NoDataRow{
            "FunctionGivesNone",
            number(static_cast<int64_t>(reinterpret_cast<uintptr_t>(&DataFunctions::giveNone)))},
        NoDataRow{"NullFunction", number(0)},
        NoDataRow{
            "FunctionThatWasNotRegistered",
            number(static_cast<int64_t>(reinterpret_cast<uintptr_t>(&DataFunctions::stranger)))},
        NoDataRow{"NoNumber", krl::cf::retain<CFTypeRef>(CFSTR("4096"))},
        NoDataRow{"NoWholeNumber", oneHalf()}),
    [](const auto& row) { return row.param.name; });

// ---------------------------------------------------------------------------- results that do not
// matter

TEST_F(Submit, AFolderThatIsThereIsNoFailure) {
    fake.phone().directory(kFolder);
    EXPECT_EQ(sync({toneWithSource("A", "m4r")}), 1);
    EXPECT_EQ(contentsOnPhone("BQJH.m4r"), "source bytes");
}

struct IgnoredRow {
    const char* name;
    const char* function;
    int nth;
};

void PrintTo(const IgnoredRow& row, std::ostream* out) {
    *out << row.name;
}

class IgnoredResults : public Submit, public ::testing::WithParamInterface<IgnoredRow> {};

TEST_P(IgnoredResults, DoNotFailTheSubmitAndStayOnRecord) {
    setFirmware("1.1.1");
    const Tone moved = putTone("moved", "Long name.m4r").with("LocalPath", "/m");
    const Tone removed = putTone("removed", "RRRR.m4r");
    putTone("stray", "SSSS.m4r");
    const Tone added = toneWithSource("new", "m4r");
    fake.failNth(GetParam().function, GetParam().nth, kStatus);
    // The folder is there already, which the phone answers with a status that would stay first.
    Reports reports;
    const bool isFolderRow = std::string(GetParam().function) == "AFCDirectoryCreate";
    reports.answer = [&](size_t index, const std::string&) {
        if (index == 0 && !isFolderRow) {
            KRTErrorClear();
        }
        return true;
    };
    reportTo(reports);
    EXPECT_EQ(sync({added}, {removed}, {moved}), 1);
    EXPECT_EQ(fake.faultsMet(), 1);
    EXPECT_EQ(recordedCode(), kStatus);
}

INSTANTIATE_TEST_SUITE_P(All, IgnoredResults,
                         ::testing::Values(IgnoredRow{"Folder", "AFCDirectoryCreate", 1},
                                           IgnoredRow{"Rename", "AFCRenamePath", 1},
                                           IgnoredRow{"Removal", "AFCRemovePath", 1},
                                           IgnoredRow{"CatalogueOpen", "AFCFileRefOpen", 2},
                                           IgnoredRow{"CatalogueWrite", "AFCFileRefWrite", 2},
                                           IgnoredRow{"Listing", "AFCDirectoryOpen", 1},
                                           IgnoredRow{"CleanupRemoval", "AFCRemovePath", 2}),
                         [](const auto& row) { return row.param.name; });

TEST_F(Submit, TheCleanupFollowsAFailedWriteOfTheCatalogue) {
    putTone("stray", "SSSS.m4r");
    fake.fail("AFCFileRefOpen", kStatus);
    EXPECT_EQ(sync({}), 1);
    EXPECT_THAT(filesOnPhone(), IsEmpty());
}

TEST_F(Submit, ACatalogueThatNoPropertyListCanHoldIsNotWritten) {
    putCatalogue({});
    const std::string before = fake.phone().contents(kCatalogue);
    putTone("stray", "SSSS.m4r");
    const Tone tone =
        toneWithSource("A", "m4r").withObject("Playlist", adopt(CFUUIDCreate(nullptr)).get());
    EXPECT_EQ(sync({tone}), 1);
    EXPECT_EQ(fake.phone().contents(kCatalogue), before);
    EXPECT_THAT(filesOnPhone(), ElementsAre("BQJH.m4r"));
}

} // namespace
