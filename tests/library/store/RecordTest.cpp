#include "tests/library/store/StoreTest.h"

#include <cstdlib>

namespace {

TEST(RingtoneKeys, AreTheWordsOfCatalogueAndLists) {
    EXPECT_EQ(textOf(KRTRingtoneName), "Name");
    EXPECT_EQ(textOf(KRTFileKey), "GUID");
    EXPECT_EQ(textOf(KRTFileName), "FileName");
    EXPECT_EQ(textOf(KRTFileSize), "FileSize");
    EXPECT_EQ(textOf(KRTLocalPath), "LocalPath");
    EXPECT_EQ(textOf(KRTRemotePath), "RemotePath");
    EXPECT_EQ(textOf(KRTTrackPersistantID), "TrackID");
    EXPECT_EQ(textOf(KRTPlaylist), "Playlist");
}

TEST(RingtoneKeys, FolderAndCatalogueDifferByOneLetterInName) {
    EXPECT_EQ(textOf(KRTRingtonesPath), "/iTunes_Control/Ringtones");
    EXPECT_EQ(textOf(KRTRingtonePath), "/iTunes_Control/iTunes/Ringtones.plist");
    EXPECT_EQ(textOf(KRTRingtoneKeyName), "Ringtones");
}

class StoreRecord : public StoreTest {};

TEST_F(StoreRecord, IsMadeForAPhoneWithoutAResponder) {
    KRTRingtoneManagerRef record = KRTRingtoneManagerForPhone(phone);
    EXPECT_EQ(record->phone, phone);
    EXPECT_EQ(record->statusFunction, nullptr);
    EXPECT_EQ(record->statusContext, nullptr);
    KRTRingtoneManagerRelease(manager);
    KRTRingtoneManagerRelease(record);
}

TEST_F(StoreRecord, MakingOneDoesNotStoreItInThePhone) {
    KRTRingtoneManagerRef further = KRTRingtoneManagerForPhone(phone);
    EXPECT_NE(further, manager);
    EXPECT_EQ(phone->ringtoneManager, manager);
    KRTRingtoneManagerRelease(manager);
    KRTRingtoneManagerRelease(further);
}

TEST_F(StoreRecord, ReleaseClearsThePhonesReferenceEvenWhenItIsADifferentRecord) {
    KRTRingtoneManagerRef further = KRTRingtoneManagerForPhone(phone);
    KRTRingtoneManagerRelease(further);
    EXPECT_EQ(phone->ringtoneManager, nullptr);
    KRTRingtoneManagerRelease(manager);
}

TEST_F(StoreRecord, ReleaseDoesNotReleaseThePhone) {
    const int references = fake.phone().references();
    KRTRingtoneManagerRelease(KRTRingtoneManagerForPhone(phone));
    EXPECT_EQ(fake.phone().references(), references);
    EXPECT_THAT(fake.calls(), IsEmpty());
    KRTRingtoneManagerRelease(manager);
}

TEST_F(StoreRecord, TheAccessorMakesItOnceAndKeepsItInThePhone) {
    KRTPhoneRef other = KRTPhoneWithDevice(fake.phone().device());
    KRTRingtoneManagerRef made = KRTPhoneGetRingtoneManager(other);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->phone, other);
    EXPECT_EQ(other->ringtoneManager, made);
    EXPECT_EQ(KRTPhoneGetRingtoneManager(other), made);
    KRTPhoneRelease(other);
}

TEST_F(StoreRecord, ThePhoneLetsGoOfItWithTheStoresOwnRelease) {
    EXPECT_EQ(phone->lifetime.storeRelease, &KRTRingtoneManagerRelease);
}

TEST_F(StoreRecord, TheAccessorMakesANewRecordAfterARelease) {
    KRTRingtoneManagerRelease(manager);
    manager = KRTPhoneGetRingtoneManager(phone);
    ASSERT_NE(manager, nullptr);
    EXPECT_EQ(KRTPhoneGetRingtoneManager(phone), manager);
}

TEST_F(StoreRecord, ResponderAndContextStayUntilReplaced) {
    Reports reports;
    KRTRingtoneManagerSetStatusResponder(manager, Reports::receive, &reports);
    EXPECT_EQ(manager->statusFunction, &Reports::receive);
    EXPECT_EQ(manager->statusContext, &reports);
    ASSERT_EQ(sync({}), 1);
    EXPECT_EQ(manager->statusContext, &reports);
    KRTRingtoneManagerSetStatusResponder(manager, nullptr, nullptr);
    EXPECT_EQ(manager->statusFunction, nullptr);
    EXPECT_EQ(manager->statusContext, nullptr);
}

// ---------------------------------------------------------------------------- lookup by GUID

TEST(FindTone, FindsNoneInAnEmptyList) {
    EXPECT_EQ(KRTRingtoneManagerFindToneForGUID(listOf({}).get(), CFSTR("guid-A")), nullptr);
}

TEST(FindTone, FindsNoneForAGUIDThatNoEntryHas) {
    const auto list = listOf({newTone("A", "m4r"), newTone("B", "m4r")});
    EXPECT_EQ(KRTRingtoneManagerFindToneForGUID(list.get(), CFSTR("guid-C")), nullptr);
}

TEST(FindTone, LendsTheEntryItself) {
    const auto list = listOf({newTone("A", "m4r"), newTone("B", "m4r")});
    const CFDictionaryRef found = KRTRingtoneManagerFindToneForGUID(list.get(), CFSTR("guid-B"));
    EXPECT_EQ(found, dictionaryAt(list, "B"));
    EXPECT_EQ(CFGetRetainCount(found), 1);
}

TEST(FindTone, TheFirstInTheListsOrderWins) {
    const auto list = listOf(
        {newTone("Z", "m4r").with("GUID", "same"), newTone("A", "m4r").with("GUID", "same")});
    EXPECT_EQ(KRTRingtoneManagerFindToneForGUID(list.get(), CFSTR("same")),
              dictionaryAt(list, "Z"));
}

TEST(FindTone, PassesOverWhatHasNoGUIDOrIsNoRingtone) {
    const auto list =
        listOf({newTone("A", "m4r").without("GUID"),
                newTone("B", "m4r").withObject("GUID", number(7).get()), newTone("C", "m4r")});
    CFDictionarySetValue(list.get(), CFSTR("A2"), CFSTR("no dictionary"));
    EXPECT_EQ(KRTRingtoneManagerFindToneForGUID(list.get(), CFSTR("guid-C")),
              dictionaryAt(list, "C"));
}

// ---------------------------------------------------------------------------- keys

TEST(AllKeys, OfAnEmptyDictionaryAreAnEmptyArray) {
    const auto keys = adopt(CFGetAllKeys(emptyDictionary().get()));
    ASSERT_TRUE(keys);
    EXPECT_EQ(CFArrayGetCount(keys.get()), 0);
}

TEST(AllKeys, ComeInTheDictionarysOrder) {
    const auto keys = adopt(CFGetAllKeys(
        listOf({newTone("C", "m4r"), newTone("A", "m4r"), newTone("B", "m4r")}).get()));
    EXPECT_THAT(textsOf(keys.get()), ElementsAre("C", "A", "B"));
}

TEST(AllKeys, AreCopiesInAMutableArray) {
    const auto dictionary = emptyDictionary();
    const auto key = adopt(CFStringCreateMutableCopy(nullptr, 0, CFSTR("before")));
    CFDictionarySetValue(dictionary.get(), key.get(), CFSTR("value"));
    const auto keys = adopt(CFGetAllKeys(dictionary.get()));
    CFStringAppend(key.get(), CFSTR(" and after"));
    EXPECT_THAT(textsOf(keys.get()), ElementsAre("before"));
    CFArrayAppendValue(keys.get(), CFSTR("one more"));
    EXPECT_EQ(CFArrayGetCount(keys.get()), 2);
}

// ---------------------------------------------------------------------------- base names

TEST(BaseNames, AreFourLettersFromAToR) {
    srandom(0);
    bool sawFirst = false;
    bool sawLast = false;
    for (int i = 0; i < 10000; ++i) {
        const std::string name = textOf(adopt(KRTRingtoneManagerGenerateHash()).get());
        ASSERT_EQ(name.size(), 4u);
        ASSERT_EQ(name.find_first_not_of("ABCDEFGHIJKLMNOPQR"), std::string::npos) << name;
        sawFirst = sawFirst || name.find('A') != std::string::npos;
        sawLast = sawLast || name.find('R') != std::string::npos;
    }
    EXPECT_TRUE(sawFirst);
    EXPECT_TRUE(sawLast);
}

TEST(BaseNames, TakeFourDrawsInTurnModulo18) {
    srandom(42);
    std::string expected;
    for (int i = 0; i < 4; ++i) {
        expected += static_cast<char>('A' + random() % 18);
    }
    const long nextDraw = random();
    srandom(42);
    EXPECT_EQ(textOf(adopt(KRTRingtoneManagerGenerateHash()).get()), expected);
    EXPECT_EQ(random(), nextDraw);
}

TEST(BaseNames, AfterSeedingWith0ComeInAFixedOrder) {
    srandom(0);
    for (const std::string& name : kFirstNames) {
        EXPECT_EQ(textOf(adopt(KRTRingtoneManagerGenerateHash()).get()), name);
    }
}

} // namespace
