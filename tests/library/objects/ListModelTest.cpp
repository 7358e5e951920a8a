// The working list: three lists by name, and what each way of editing does to them.

#include "tests/library/objects/ObjectTest.h"

#include "library/objects/RebuildRule.h"

#include <algorithm>
#include <functional>
#include <optional>

namespace {

using namespace krl::test;
using krl::cf::CFRef;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class ListModel : public ObjectTest {
protected:
    /// Starts with these ringtones on the phone.
    void start(const std::vector<Entry>& entries, const std::string& firmware = "1.1.1") {
        fake.phone().firmware(firmware);
        if (!entries.empty()) {
            putRingtones(fake.phone(), entries);
        }
        phone = makePhone();
        tones = phone->ringtoneManager();
        watch();
    }

    /// Starts with a phone whose list cannot be read.
    void startUnreadable() {
        fake.phone().file(kCataloguePath, "<plist><dict/></plist>");
        phone = makePhone();
        tones = phone->ringtoneManager();
        watch();
        ASSERT_EQ(KRTErrorGetCode(), 4);
    }

    void watch() {
        tones->addRingtonesUpdatedObserver(
            [this] { notices += tones->ringtonesUpdated() ? "will(true) " : "will(false) "; },
            [this] { notices += tones->ringtonesUpdated() ? "did(true) " : "did(false) "; });
    }

    std::string takeNotices() { return std::exchange(notices, {}); }

    CFDictionaryRef list(CFStringRef key) {
        lists = tones->generateChangeLists();
        return static_cast<CFDictionaryRef>(CFDictionaryGetValue(lists.get(), key));
    }

    std::vector<std::string> added() { return keys(list(CFSTR("added"))); }

    std::vector<std::string> removed() { return keys(list(CFSTR("removed"))); }

    std::vector<std::string> unchanged() { return keys(list(CFSTR("unchanged"))); }

    Record inList(CFStringRef key, const std::string& name) {
        return krl::cf::retain(static_cast<CFMutableDictionaryRef>(
            const_cast<void*>(CFDictionaryGetValue(list(key), str(name).get()))));
    }

    Record kept(const std::string& name) { return inList(CFSTR("unchanged"), name); }

    std::shared_ptr<KRTPhone> phone;
    std::shared_ptr<KRTRingtoneManager> tones;
    CFRef<CFDictionaryRef> lists;
    std::string notices;
};

const std::vector<Entry> kTwo = {{"AAAA.m4r", "Bells"}, {"BBBB.mp3", "Horn"}};

// ---------------------------------------------------------------------------- making

TEST_F(ListModel, IsEmptyOnAPhoneWithoutACatalogue) {
    start({});
    EXPECT_THAT(added(), IsEmpty());
    EXPECT_THAT(removed(), IsEmpty());
    EXPECT_THAT(unchanged(), IsEmpty());
    EXPECT_FALSE(tones->ringtonesUpdated());
    EXPECT_FALSE(tones->asyncMode());
    EXPECT_FALSE(tones->needsConversionFor113());
}

TEST_F(ListModel, KeepsWhatIsOnThePhone) {
    start(kTwo);
    EXPECT_THAT(unchanged(), ElementsAre("Bells", "Horn"));
    EXPECT_THAT(added(), IsEmpty());
    EXPECT_THAT(removed(), IsEmpty());
    EXPECT_EQ(valueOf(kept("Horn"), KRTRemotePath), "/iTunes_Control/Ringtones/BBBB.mp3");
}

TEST_F(ListModel, MakesTheSupportedFormatsOnce) {
    start({});
    ASSERT_NE(KRTPhoneSupportedFormats, nullptr);
    EXPECT_THAT(texts(KRTPhoneSupportedFormats),
                ElementsAre("m4a", "m4p", "mp3", "m4r", "wav", "aif", "aiff"));
    const CFArrayRef first = KRTPhoneSupportedFormats;
    makePhone()->ringtoneManager();
    EXPECT_EQ(KRTPhoneSupportedFormats, first);
}

TEST_F(ListModel, IsNotMadeWithoutAStoreRecord) {
    EXPECT_EQ(KRTRingtoneManager::_initWithRingtoneManagerRef(nullptr), nullptr);
}

// ---------------------------------------------------------------------------- adding

TEST_F(ListModel, AddingANewNameAddsTheRecordItself) {
    start({});
    const Record tone = record({"New"});
    tones->addRingtone(tone.get());
    EXPECT_THAT(added(), ElementsAre("New"));
    EXPECT_EQ(inList(CFSTR("added"), "New"), tone);
    EXPECT_EQ(takeNotices(), "will(false) did(true) ");
}

TEST_F(ListModel, AddingAKeptNameReplacesTheRingtone) {
    start(kTwo);
    const Record old = kept("Bells");
    const Record tone = record({"Bells"});

    tones->addRingtone(tone.get());

    EXPECT_THAT(unchanged(), ElementsAre("Horn"));
    EXPECT_EQ(inList(CFSTR("removed"), "Bells"), old);
    EXPECT_EQ(CFDictionaryGetValue(old.get(), CFSTR("RemoveWatch")), kCFBooleanTrue);
    EXPECT_EQ(inList(CFSTR("added"), "Bells"), tone);
    EXPECT_FALSE(CFDictionaryContainsKey(tone.get(), CFSTR("RemoveWatch")));
}

TEST_F(ListModel, AddingAKeptNameSendsTwoNotices) {
    start(kTwo);
    tones->addRingtone(record({"Bells"}).get());
    EXPECT_EQ(takeNotices(), "will(false) did(true) will(true) did(true) ");
}

TEST_F(ListModel, AddingAnAddedNameTakesItsPlaceAtTheEnd) {
    start({});
    tones->addRingtone(record({"First"}).get());
    tones->addRingtone(record({"Second"}).get());
    const Record again = record({"First"});

    tones->addRingtone(again.get());

    EXPECT_THAT(added(), ElementsAre("Second", "First"));
    EXPECT_EQ(inList(CFSTR("added"), "First"), again);
    EXPECT_THAT(removed(), IsEmpty());
}

TEST_F(ListModel, AddingARemovedNameMarksTheRemovedRecord) {
    start(kTwo);
    const Record old = kept("Horn");
    tones->removeRingtone(old.get());
    EXPECT_FALSE(CFDictionaryContainsKey(old.get(), CFSTR("RemoveWatch")));

    tones->addRingtone(record({"Horn"}).get());

    EXPECT_THAT(removed(), ElementsAre("Horn"));
    EXPECT_THAT(added(), ElementsAre("Horn"));
    EXPECT_EQ(CFDictionaryGetValue(old.get(), CFSTR("RemoveWatch")), kCFBooleanTrue);
}

TEST_F(ListModel, AddingTheRecordThatTheListHoldsIsSafe) {
    start({});
    tones->addRingtone(record({"Only reference"}).get());
    const CFMutableDictionaryRef lent = tones->ringtoneForName(CFSTR("Only reference")).get();

    tones->addRingtone(lent);

    EXPECT_EQ(CFGetRetainCount(lent), 1);
    EXPECT_THAT(added(), ElementsAre("Only reference"));
}

TEST_F(ListModel, ARecordWithoutANameIsNotAdded) {
    start({});
    tones->addRingtone(dictionary().get());
    tones->addRingtone(nullptr);
    EXPECT_THAT(added(), IsEmpty());
    EXPECT_EQ(takeNotices(), "");
}

// ---------------------------------------------------------------------------- removing

TEST_F(ListModel, RemovingAKeptNameMovesItToTheRemovedList) {
    start(kTwo);
    const Record old = kept("Bells");
    tones->removeRingtone(old.get());
    EXPECT_THAT(unchanged(), ElementsAre("Horn"));
    EXPECT_EQ(inList(CFSTR("removed"), "Bells"), old);
    EXPECT_EQ(takeNotices(), "will(false) did(true) ");
}

TEST_F(ListModel, RemovingAnAddedNameRecordsNothingAsRemoved) {
    start({});
    const Record tone = record({"New"});
    tones->addRingtone(tone.get());
    takeNotices();

    tones->removeRingtone(tone.get());

    EXPECT_THAT(added(), IsEmpty());
    EXPECT_THAT(removed(), IsEmpty());
    EXPECT_FALSE(tones->ringtonesUpdated());
    EXPECT_EQ(takeNotices(), "will(true) did(false) ");
}

TEST_F(ListModel, RemovingARemovedNameDoesNothingAndSendsNoNotice) {
    start(kTwo);
    const Record old = kept("Bells");
    tones->removeRingtone(old.get());
    takeNotices();

    tones->removeRingtone(old.get());

    EXPECT_THAT(removed(), ElementsAre("Bells"));
    EXPECT_EQ(takeNotices(), "");
}

TEST_F(ListModel, AReplacedRingtoneCannotBeTakenOutOfTheAddedListAgain) {
    start(kTwo);
    const Record replacement = record({"Bells"});
    tones->addRingtone(replacement.get());
    takeNotices();

    tones->removeRingtone(replacement.get());

    EXPECT_THAT(added(), ElementsAre("Bells"));
    EXPECT_THAT(removed(), ElementsAre("Bells"));
    EXPECT_EQ(takeNotices(), "");
}

TEST_F(ListModel, RemovingKeepsTheRecordThatWasPassedIn) {
    start(kTwo);
    const Record other = record({"Horn"});
    tones->removeRingtone(other.get());
    EXPECT_EQ(inList(CFSTR("removed"), "Horn"), other);
}

TEST_F(ListModel, RemovingAnUnknownNameStillSendsTheNotice) {
    start(kTwo);
    tones->removeRingtone(record({"Nobody"}).get());
    EXPECT_THAT(removed(), IsEmpty());
    EXPECT_EQ(takeNotices(), "will(false) did(false) ");
}

TEST_F(ListModel, RemovingAllMovesEverythingAndForgetsTheAdded) {
    start(kTwo);
    tones->removeRingtone(record({"Horn", "/passed in"}).get());
    tones->addRingtone(record({"New"}).get());
    takeNotices();

    tones->removeAllRingtones();

    EXPECT_THAT(removed(), UnorderedElementsAre("Bells", "Horn"));
    EXPECT_THAT(unchanged(), IsEmpty());
    EXPECT_THAT(added(), IsEmpty());
    EXPECT_EQ(takeNotices(), "will(true) did(true) ");
}

TEST_F(ListModel, RemovingAllSaysTrueEvenWithNothingToRemove) {
    start({});
    tones->removeAllRingtones();
    EXPECT_TRUE(tones->ringtonesUpdated());
    EXPECT_EQ(takeNotices(), "will(false) did(true) ");
}

// ---------------------------------------------------------------------------- looking

TEST_F(ListModel, NamesAreSortedWithoutRegardToCase) {
    const std::vector<std::string> names = {"apple", "Banana", "cherry"};
    std::vector<std::string> order = names;
    do {
        start({});
        for (const std::string& name : order) {
            tones->addRingtone(record({name}).get());
        }
        EXPECT_THAT(texts(tones->currentRingtonesManagedByNameOnly().get()),
                    testing::ElementsAreArray(names));
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(ListModel, NamesComeFromBothListsAndNotFromTheRemoved) {
    start({{"AAAA.m4r", "b"}, {"BBBB.m4r", "D"}, {"CCCC.m4r", "gone"}});
    tones->removeRingtone(kept("gone").get());
    tones->addRingtone(record({"C"}).get());
    tones->addRingtone(record({"a"}).get());
    EXPECT_THAT(texts(tones->currentRingtonesManagedByNameOnly().get()),
                ElementsAre("a", "b", "C", "D"));
}

TEST_F(ListModel, ManagedRingtonesAreTheKeptOnesThenTheAdded) {
    start(kTwo);
    tones->addRingtone(record({"A first by name"}).get());
    const auto managed = tones->currentRingtonesManaged();
    std::vector<std::string> names;
    for (CFIndex i = 0; i < CFArrayGetCount(managed.get()); ++i) {
        names.push_back(nameOf(CFArrayGetValueAtIndex(managed.get(), i)));
    }
    EXPECT_THAT(names, ElementsAre("Bells", "Horn", "A first by name"));
}

TEST_F(ListModel, ARingtoneIsFoundByItsNameLetterForLetter) {
    start(kTwo);
    tones->addRingtone(record({"New"}).get());
    tones->removeRingtone(kept("Horn").get());
    EXPECT_EQ(tones->ringtoneForName(CFSTR("Bells")), kept("Bells"));
    EXPECT_EQ(nameOf(tones->ringtoneForName(CFSTR("New")).get()), "New");
    EXPECT_EQ(tones->ringtoneForName(CFSTR("bells")), nullptr);
    EXPECT_EQ(tones->ringtoneForName(CFSTR("Horn")), nullptr) << "removed ringtones are not found";
    EXPECT_EQ(tones->ringtoneForName(nullptr), nullptr);
}

TEST_F(ListModel, AReplacedRingtoneIsFoundAsTheNewOne) {
    start(kTwo);
    const Record replacement = record({"Bells"});
    tones->addRingtone(replacement.get());
    EXPECT_EQ(tones->ringtoneForName(CFSTR("Bells")), replacement);
}

TEST_F(ListModel, ARingtoneIsFoundByItsKeyWithoutTheExtension) {
    start({{"AAAA.m4r", "Ring.m4r"}});
    EXPECT_EQ(tones->ringtoneForFileKey(CFSTR("Ring")), kept("Ring.m4r"));
    EXPECT_EQ(tones->ringtoneForFileKey(CFSTR("ring")), nullptr);
    EXPECT_EQ(tones->ringtoneForFileKey(CFSTR("Ring.m4r")), nullptr);
    EXPECT_EQ(tones->ringtoneForFileKey(nullptr), nullptr);
}

TEST_F(ListModel, AKeyIsSoughtAmongTheKeptBeforeTheAdded) {
    start({{"AAAA.m4r", "Ring.m4r"}});
    tones->addRingtone(record({"Ring.mp3"}).get());
    tones->addRingtone(record({"No extension"}).get());
    tones->addRingtone(record({"AC/DC.mp3"}).get());
    EXPECT_EQ(nameOf(tones->ringtoneForFileKey(CFSTR("Ring")).get()), "Ring.m4r");
    EXPECT_EQ(nameOf(tones->ringtoneForFileKey(CFSTR("No extension")).get()), "No extension");
    EXPECT_EQ(nameOf(tones->ringtoneForFileKey(CFSTR("AC/DC")).get()), "AC/DC.mp3");
}

// ---------------------------------------------------------------------------- starting again

TEST_F(ListModel, ARebuildDropsPendingChanges) {
    start(kTwo);
    tones->addRingtone(record({"New"}).get());
    tones->removeRingtone(kept("Bells").get());
    takeNotices();

    tones->rebuildRingtoneListFromOriginal();

    EXPECT_THAT(unchanged(), ElementsAre("Bells", "Horn"));
    EXPECT_THAT(added(), IsEmpty());
    EXPECT_THAT(removed(), IsEmpty());
    EXPECT_EQ(takeNotices(), "will(true) did(false) ");
}

TEST_F(ListModel, ARebuildWithNothingPendingKeepsTheFlagWithoutANotice) {
    for (const bool flag : {false, true}) {
        start(kTwo);
        tones->setRingtonesUpdated(flag);
        takeNotices();
        tones->rebuildRingtoneListFromOriginal();
        EXPECT_EQ(tones->ringtonesUpdated(), flag);
        EXPECT_EQ(takeNotices(), "");
    }
}

TEST_F(ListModel, ARebuildReadsThePhoneAgain) {
    start(kTwo);
    putRingtones(fake.phone(), {{"CCCC.m4r", "From elsewhere"}});
    tones->rebuildRingtoneListFromOriginal();
    EXPECT_THAT(unchanged(), ElementsAre("From elsewhere"));
}

TEST_F(ListModel, LoadingAloneLeavesTheWorkingList) {
    start(kTwo);
    putRingtones(fake.phone(), {});
    tones->_loadRingtoneList();
    EXPECT_THAT(unchanged(), ElementsAre("Bells", "Horn"));
}

struct ConversionCase {
    std::string firmware;
    std::string file;
    bool isNeeded;
};

class Conversion : public ListModel, public testing::WithParamInterface<ConversionCase> {};

TEST_P(Conversion, IsNeededForOtherFilesFromFirmware113On) {
    start({{GetParam().file, "Tone"}}, GetParam().firmware);
    EXPECT_EQ(tones->needsConversionFor113(), GetParam().isNeeded);
    EXPECT_EQ(tones->ringtonesUpdated(), GetParam().isNeeded);
}

INSTANTIATE_TEST_SUITE_P(Firmwares, Conversion,
                         testing::Values(ConversionCase{"1.1.1", "AAAA.mp3", false},
                                         ConversionCase{"1.1.2", "AAAA.mp3", false},
                                         ConversionCase{"1.1.3", "AAAA.mp3", true},
                                         ConversionCase{"1.1.3", "AAAA.m4r", false},
                                         ConversionCase{"1.1.3", "AAAA.aiff", true},
                                         ConversionCase{"1.1.4", "AAAA.mp3", true},
                                         ConversionCase{"", "AAAA.mp3", false}));

TEST_F(ListModel, AnUnknownFirmwareNeedsConversionToo) {
    fake.phone().withoutValue("ProductVersion");
    putRingtones(fake.phone(), {{"AAAA.mp3", "Tone"}});
    EXPECT_TRUE(makePhone()->ringtoneManager()->needsConversionFor113());
}

TEST_F(ListModel, ConversionOnceNeededStaysNeeded) {
    start({{"AAAA.mp3", "Tone"}}, "1.1.3");
    putRingtones(fake.phone(), {{"BBBB.m4r", "Other"}});
    tones->rebuildRingtoneListFromOriginal();
    EXPECT_TRUE(tones->needsConversionFor113());
}

TEST_F(ListModel, ARebuildThatDropsChangesSaysFalseAndTheNextOneThatConversionIsDue) {
    start({{"AAAA.mp3", "Tone"}}, "1.1.3");
    EXPECT_TRUE(tones->ringtonesUpdated());
    tones->addRingtone(record({"New"}).get());

    tones->rebuildRingtoneListFromOriginal();
    EXPECT_FALSE(tones->ringtonesUpdated());

    tones->rebuildRingtoneListFromOriginal();
    EXPECT_TRUE(tones->ringtonesUpdated());
}

TEST_F(ListModel, TheLayoutCheckOfTheObjectFindsNothing) {
    start({});
    const auto bad = parsedCatalogue({{"Far too long a name.m4r", "Tone"}});
    EXPECT_EQ(tones->isValidDictionaryFor111(bad.get()), nullptr);
    EXPECT_EQ(tones->isValidDictionaryFor111(nullptr), nullptr);
}

struct RuleRow {
    bool hasProblems;
    bool wasPending;
    bool needsConversion;
    std::optional<bool> updated;
    int checks;
};

class RebuildRule : public testing::TestWithParam<RuleRow> {};

TEST_P(RebuildRule, SaysWhatIsToBeSynced) {
    const RuleRow& row = GetParam();
    int checks = 0;
    const auto check = [&] {
        ++checks;
        return row.hasProblems;
    };
    EXPECT_EQ(krl::ringtones::updatedAfterRebuild(check, row.wasPending, row.needsConversion),
              row.updated);
    EXPECT_EQ(checks, row.checks);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, RebuildRule,
    testing::Values(RuleRow{true, false, false, true, 1}, RuleRow{true, false, true, true, 1},
                    RuleRow{true, true, false, true, 2}, RuleRow{true, true, true, true, 2},
                    RuleRow{false, false, false, std::nullopt, 1},
                    RuleRow{false, false, true, true, 1}, RuleRow{false, true, false, false, 1},
                    RuleRow{false, true, true, false, 1}));

// ---------------------------------------------------------------------------- comparing

TEST_F(ListModel, ComparingAddsWhatIsNotThere) {
    start(kTwo);
    const Record bells = record({"Bells"});
    tones->compareList(listOf({bells, record({"Horn"}), record({"New"})}).get());
    EXPECT_THAT(added(), ElementsAre("New"));
    EXPECT_THAT(removed(), IsEmpty());
    EXPECT_THAT(unchanged(), ElementsAre("Bells", "Horn"));
    EXPECT_NE(kept("Bells"), bells) << "one of the same name is kept as it is";
    EXPECT_EQ(takeNotices(), "will(false) did(true) ");
}

TEST_F(ListModel, ComparingKeepsAnUnwantedM4RThatDidNotComeFromThisComputer) {
    start({{"AAAA.m4r", "Bought"},
           {"BBBB.m4r", "Made here", "/music/made.m4r"},
           {"CCCC.mp3", "Song"}});
    tones->compareList(listOf({}).get());
    EXPECT_THAT(unchanged(), ElementsAre("Bought"));
    EXPECT_THAT(removed(), ElementsAre("Made here", "Song"));
    EXPECT_TRUE(tones->ringtonesUpdated());
}

TEST_F(ListModel, ComparingWithTheSameListChangesNothing) {
    start(kTwo);
    tones->compareList(listOf({record({"Horn"}), record({"Bells"})}).get());
    EXPECT_FALSE(tones->ringtonesUpdated());
    EXPECT_EQ(takeNotices(), "will(false) did(false) ");
}

TEST_F(ListModel, ComparingDropsPendingChangesFirstWithANoticeOfItsOwn) {
    start(kTwo);
    tones->addRingtone(record({"Pending"}).get());
    tones->removeRingtone(kept("Horn").get());
    takeNotices();

    tones->compareList(listOf({record({"New"}), record({"Horn"})}).get());

    EXPECT_THAT(added(), ElementsAre("New"));
    EXPECT_THAT(unchanged(), ElementsAre("Bells", "Horn"));
    EXPECT_EQ(takeNotices(), "will(true) did(false) will(false) did(true) ");
}

TEST_F(ListModel, ComparingAsksTheWantedListByKeyAndItsRecordsByName) {
    start({{"AAAA.mp3", "Bells"}});
    const auto wanted = dictionary();
    CFDictionarySetValue(wanted.get(), CFSTR("filed elsewhere"), record({"Bells"}).get());

    tones->compareList(wanted.get());

    // Not added, because one of that name is kept; but removed, because nothing is wanted under it.
    EXPECT_THAT(added(), IsEmpty());
    EXPECT_THAT(removed(), ElementsAre("Bells"));
}

TEST_F(ListModel, ComparingLeavesTheAddedListAloneWhenItRemoves) {
    start({{"AAAA.mp3", "Bells"}});
    const auto wanted = dictionary();
    CFDictionarySetValue(wanted.get(), CFSTR("one"), record({"New"}).get());
    tones->compareList(wanted.get());
    EXPECT_THAT(added(), ElementsAre("New"));
    EXPECT_THAT(removed(), ElementsAre("Bells"));
}

TEST_F(ListModel, ComparingWithNothingIsComparingWithAnEmptyList) {
    start(kTwo);
    tones->compareList(nullptr);
    EXPECT_THAT(removed(), ElementsAre("Horn"));
}

TEST_F(ListModel, ComparingPassesOverWhatIsNoRingtone) {
    start({});
    const auto wanted = listOf({record({"Fine"})});
    CFDictionarySetValue(wanted.get(), CFSTR("text"), CFSTR("no dictionary"));
    CFDictionarySetValue(wanted.get(), CFSTR("nameless"), dictionary().get());
    tones->compareList(wanted.get());
    EXPECT_THAT(added(), ElementsAre("Fine"));
}

TEST_F(ListModel, EditingGoesOnAfterComparing) {
    start(kTwo);
    tones->compareList(listOf({record({"New"})}).get());
    takeNotices();
    tones->removeRingtone(record({"New"}).get());
    EXPECT_THAT(added(), IsEmpty()) << "removing takes out of the added list again";
    EXPECT_NE(takeNotices(), "");
}

// ---------------------------------------------------------------------------- merging a catalogue

TEST_F(ListModel, MergingKeepsWhatTheCatalogueNames) {
    start(kTwo);
    const Record bells = kept("Bells");
    tones->updateRingtoneListFromList(
        parsedCatalogue({{"AAAA.m4r", "Bells"}, {"CCCC.aiff", "New there"}}).get());
    EXPECT_THAT(unchanged(), UnorderedElementsAre("Bells", "New there"));
    EXPECT_EQ(kept("Bells"), bells) << "a known one stays the record that it was";
    EXPECT_EQ(takeNotices(), "will(false) did(false) ");
}

TEST_F(ListModel, MergingAddsPathAndTheWholeExtension) {
    start({});
    tones->updateRingtoneListFromList(
        parsedCatalogue({{"CCCC.aiff", "Aiff"}, {"NOEXT", "Without"}}).get());
    EXPECT_EQ(valueOf(kept("Aiff"), KRTRemotePath), "/iTunes_Control/Ringtones/CCCC.aiff");
    EXPECT_EQ(valueOf(kept("Aiff"), CFSTR("FileType")), "aiff");
    EXPECT_EQ(valueOf(kept("Without"), CFSTR("FileType")), "");
}

TEST_F(ListModel, MergingMakesNoPathOfAFileNameThatIsNoPlainOne) {
    start({});
    tones->updateRingtoneListFromList(
        parsedCatalogue({{"../../DCIM/IMG_0001.JPG", "Damaged"}, {"CCCC.m4r", "Sound"}}).get());
    EXPECT_THAT(unchanged(), ElementsAre("Sound"));
}

TEST_F(ListModel, MergingLeavesPathAndTypeThatAreThere) {
    start({});
    const std::vector<Entry> entries = {
        {"CCCC.m4r", "Tone", {}, {{"RemotePath", "/elsewhere"}, {"FileType", "odd"}}}};
    const auto catalogue = parsedCatalogue(entries);
    tones->updateRingtoneListFromList(catalogue.get());
    EXPECT_EQ(valueOf(kept("Tone"), KRTRemotePath), "/elsewhere");
    EXPECT_EQ(valueOf(kept("Tone"), CFSTR("FileType")), "odd");
}

TEST_F(ListModel, MergingKeepsACopyOfTheEntry) {
    start({});
    const auto catalogue = parsedCatalogue({{"CCCC.m4r", "Tone"}});
    tones->updateRingtoneListFromList(catalogue.get());
    const auto entries =
        static_cast<CFDictionaryRef>(CFDictionaryGetValue(catalogue.get(), KRTRingtoneKeyName));
    const auto entry =
        static_cast<CFDictionaryRef>(CFDictionaryGetValue(entries, CFSTR("CCCC.m4r")));
    EXPECT_FALSE(CFDictionaryContainsKey(entry, KRTRemotePath));
}

TEST_F(ListModel, MergingBringsNoRemovedRingtoneBack) {
    start(kTwo);
    tones->removeRingtone(kept("Horn").get());
    takeNotices();
    tones->updateRingtoneListFromList(
        parsedCatalogue({{"AAAA.m4r", "Bells"}, {"BBBB.mp3", "Horn"}}).get());
    EXPECT_THAT(unchanged(), ElementsAre("Bells"));
    EXPECT_THAT(removed(), ElementsAre("Horn"));
    EXPECT_EQ(takeNotices(), "will(true) did(true) ");
}

TEST_F(ListModel, MergingLeavesAnAddedNameToBeAdded) {
    start({});
    tones->addRingtone(record({"New"}).get());
    tones->updateRingtoneListFromList(parsedCatalogue({{"CCCC.m4r", "New"}}).get());
    EXPECT_THAT(added(), ElementsAre("New"));
    EXPECT_THAT(unchanged(), IsEmpty());
}

TEST_F(ListModel, MergingAsksByNameAndMovesByFileKeySoThatARingtoneNamedLikeAFileIsLost) {
    start({});
    tones->addRingtone(record({"New"}).get());
    tones->addRingtone(record({"CCCC.m4r"}).get());

    tones->updateRingtoneListFromList(parsedCatalogue({{"CCCC.m4r", "New"}}).get());

    EXPECT_THAT(added(), ElementsAre("New"));
    EXPECT_THAT(unchanged(), IsEmpty());
    EXPECT_THAT(removed(), IsEmpty());
}

TEST_F(ListModel, MergingKeepsTheMovedRingtoneWhenAnEntryHasThatName) {
    start({});
    tones->addRingtone(record({"New"}).get());
    const Record moved = record({"CCCC.m4r"});
    tones->addRingtone(moved.get());

    tones->updateRingtoneListFromList(
        parsedCatalogue({{"CCCC.m4r", "New"}, {"DDDD.m4r", "CCCC.m4r"}}).get());

    EXPECT_THAT(added(), ElementsAre("New"));
    EXPECT_EQ(kept("CCCC.m4r"), moved);
}

TEST_F(ListModel, MergingDropsWhatTheCatalogueDoesNotNameLetterForLetter) {
    start(kTwo);
    tones->updateRingtoneListFromList(parsedCatalogue({{"AAAA.m4r", "bells"}}).get());
    EXPECT_THAT(unchanged(), ElementsAre("bells"));
}

TEST_F(ListModel, MergingACatalogueWithoutRingtonesKeepsNone) {
    start(kTwo);
    tones->updateRingtoneListFromList(dictionary().get());
    EXPECT_THAT(unchanged(), IsEmpty());
    EXPECT_THAT(removed(), IsEmpty());
    tones->updateRingtoneListFromList(nullptr);
    EXPECT_THAT(unchanged(), IsEmpty());
}

TEST_F(ListModel, MergingPassesOverEntriesThatAreNone) {
    start({});
    const auto entries = dictionary();
    CFDictionarySetValue(entries.get(), CFSTR("AAAA.m4r"), CFSTR("no dictionary"));
    CFDictionarySetValue(entries.get(), CFSTR("BBBB.m4r"), dictionary().get());
    const auto catalogue = dictionary();
    CFDictionarySetValue(catalogue.get(), KRTRingtoneKeyName, entries.get());
    tones->updateRingtoneListFromList(catalogue.get());
    EXPECT_THAT(unchanged(), IsEmpty());
}

// ---------------------------------------------------------------------------- a list that cannot
// be read

TEST_F(ListModel, AFailedLoadLeavesNoListAndItsErrorInTheRecord) {
    startUnreadable();
    EXPECT_EQ(list(CFSTR("unchanged")), nullptr);
    EXPECT_EQ(CFDictionaryGetCount(lists.get()), 2);
    EXPECT_EQ(CFArrayGetCount(tones->currentRingtonesManaged().get()), 0);
    EXPECT_EQ(tones->ringtoneForName(CFSTR("Bells")), nullptr);
    EXPECT_EQ(tones->ringtoneForFileKey(CFSTR("Bells")), nullptr);
}

TEST_F(ListModel, EverythingCopesWithAListThatCannotBeRead) {
    startUnreadable();
    tones->addRingtone(record({"New"}).get());
    tones->removeRingtone(record({"Other"}).get());
    tones->updateRingtoneListFromList(parsedCatalogue({{"AAAA.m4r", "Bells"}}).get());
    EXPECT_THAT(added(), ElementsAre("New"));
    EXPECT_EQ(list(CFSTR("unchanged")), nullptr) << "nothing is stored in a list that is not there";
    tones->compareList(listOf({record({"Wanted"})}).get());
    EXPECT_THAT(added(), ElementsAre("Wanted"));
    tones->removeAllRingtones();
    EXPECT_THAT(removed(), IsEmpty());
    EXPECT_THAT(added(), IsEmpty());
}

// ---------------------------------------------------------------------------- "ringtonesUpdated"

TEST_F(ListModel, SettingTheFlagNotifiesAlsoWithoutAChange) {
    start({});
    tones->setRingtonesUpdated(false);
    EXPECT_EQ(takeNotices(), "will(false) did(false) ");
    tones->setRingtonesUpdated(true);
    EXPECT_EQ(takeNotices(), "will(false) did(true) ");
    tones->setRingtonesUpdated(true);
    EXPECT_EQ(takeNotices(), "will(true) did(true) ");
}

TEST_F(ListModel, ARemovedObserverIsToldNothing) {
    start({});
    int calls = 0;
    const auto observer = tones->addRingtonesUpdatedObserver([&] { ++calls; }, [&] { ++calls; });
    EXPECT_NE(observer, 0U);
    tones->removeRingtonesUpdatedObserver(observer);
    tones->removeRingtonesUpdatedObserver(observer + 1000);
    tones->setRingtonesUpdated(true);
    EXPECT_EQ(calls, 0);
}

TEST_F(ListModel, ObserversMayComeAndGoDuringANotice) {
    start({});
    uint64_t second = 0;
    std::string told;
    const auto first = tones->addRingtonesUpdatedObserver(
        [&] {
            told += "first ";
            tones->removeRingtonesUpdatedObserver(second);
            tones->addRingtonesUpdatedObserver([&] { told += "third "; }, nullptr);
        },
        nullptr);
    second =
        tones->addRingtonesUpdatedObserver([&] { told += "second "; }, [&] { told += "second "; });
    tones->setRingtonesUpdated(true);
    EXPECT_EQ(told, "first ");
    tones->removeRingtonesUpdatedObserver(first);
    tones->setRingtonesUpdated(true);
    EXPECT_EQ(told, "first third ");
}

// ---------------------------------------------------------------------------- lists handed out

TEST_F(ListModel, ChangeListsHoldTheListsThemselves) {
    start(kTwo);
    const auto changes = tones->generateChangeLists();
    EXPECT_EQ(CFDictionaryGetCount(changes.get()), 3);
    tones->addRingtone(record({"New"}).get());
    EXPECT_THAT(
        keys(static_cast<CFDictionaryRef>(CFDictionaryGetValue(changes.get(), CFSTR("added")))),
        ElementsAre("New"));
}

} // namespace
