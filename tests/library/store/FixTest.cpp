#include "tests/library/store/GenerationTest.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <random>

namespace {

/// The state of one fix, with a sequence of draws that begins anew.
class Fix : public ::testing::Test {
protected:
    Fix() {
        srandom(0);
        KRTErrorClear();
    }

    ~Fix() override { KRTErrorClear(); }

    int fix() {
        return KRTRingtoneManagerFixResultDictionary(catalogue.get(), baseNames.get(),
                                                     renames.get(), unchanged.get());
    }

    CFRef<CFMutableDictionaryRef> catalogue = emptyDictionary();
    CFRef<CFMutableArrayRef> baseNames = arrayOf({});
    CFRef<CFMutableDictionaryRef> renames = emptyDictionary();
    CFRef<CFMutableDictionaryRef> unchanged = emptyDictionary();
};

TEST_F(Fix, AnAcceptedCatalogueIsLeftAsItIs) {
    catalogue = catalogueOf({{"AAAA.m4r", companionOf("A")}, {"BBBB.m4r", companionOf("B")}});
    baseNames = arrayOf({"AAAA", "BBBB"});
    EXPECT_EQ(fix(), 1);
    EXPECT_THAT(keysOf(catalogue.get()), ElementsAre("AAAA.m4r", "BBBB.m4r"));
    EXPECT_THAT(textsOf(baseNames.get()), ElementsAre("AAAA", "BBBB"));
    EXPECT_EQ(CFDictionaryGetCount(renames.get()), 0);
    EXPECT_EQ(textOf(adopt(KRTRingtoneManagerGenerateHash()).get()), "BQJH");
}

TEST_F(Fix, ALongM4RNameMovesToAFreshOneAtTheEnd) {
    catalogue = catalogueOf({{"LongName.m4r", companionOf("A")}, {"BBBB.m4r", companionOf("B")}});
    baseNames = arrayOf({"LongName", "BBBB"});
    EXPECT_EQ(fix(), 1);
    EXPECT_THAT(tableOf(catalogue.get()),
                ElementsAre(Pair("BBBB.m4r", textsOf(companionOf("B").get())),
                            Pair("BQJH.m4r", textsOf(companionOf("A").get()))));
    EXPECT_THAT(textsOf(baseNames.get()), ElementsAre("BBBB", "BQJH"));
}

TEST_F(Fix, ARingtoneMetBeforeItsCompanionMovesWithIt) {
    const std::string base = baseThatMeets(/*mp3First=*/true);
    catalogue = catalogueOf({{base + ".mp3", companionOf("A").with("LocalPath", "/a")},
                             {base + ".m4r", companionOf("A")},
                             {"ZZZZ.m4r", companionOf("Z")}});
    baseNames = arrayOf({base, "ZZZZ"});
    ASSERT_TRUE(adopt(KRTRingtoneManagerIsValidFor111(catalogue.get())));
    EXPECT_EQ(fix(), 1);
    const std::vector<std::string> keys = keysOf(catalogue.get());
    ASSERT_EQ(keys.size(), 3u);
    EXPECT_EQ(keys[0], "ZZZZ.m4r");
    const std::string newBase = keys[1].substr(0, 4);
    EXPECT_THAT(kFirstNames, Contains(newBase));
    EXPECT_THAT(keys, ElementsAre("ZZZZ.m4r", newBase + ".mp3", newBase + ".m4r"));
    EXPECT_EQ(textOf(valueOf(dictionaryAt(catalogue, newBase + ".mp3"), "LocalPath")), "/a");
    EXPECT_EQ(textsOf(dictionaryAt(catalogue, newBase + ".m4r")), textsOf(companionOf("A").get()));
    EXPECT_FALSE(adopt(KRTRingtoneManagerIsValidFor111(catalogue.get())));
    EXPECT_THAT(textsOf(baseNames.get()), ElementsAre("ZZZZ", newBase));
}

TEST_F(Fix, GoesOnMovingUntilTheLayoutIsAccepted) {
    // The first names of the sequence whose mp3 file is met before the companion are passed
    // through.
    std::string expected;
    for (const std::string& name : kFirstNames) {
        if (expected.empty() && !isMetFirst(name, "mp3")) {
            expected = name;
        }
    }
    ASSERT_FALSE(expected.empty());
    const std::string base = baseThatMeets(/*mp3First=*/true);
    catalogue = catalogueOf({{base + ".mp3", companionOf("A")}, {base + ".m4r", companionOf("A")}});
    baseNames = arrayOf({base});
    EXPECT_EQ(fix(), 1);
    EXPECT_THAT(keysOf(catalogue.get()), ElementsAre(expected + ".mp3", expected + ".m4r"));
    EXPECT_THAT(textsOf(baseNames.get()), ElementsAre(expected));
}

TEST_F(Fix, TheOldNameMayComeBackAtOnce) {
    // The old name is what is drawn first, and is free by then; so the first move leads nowhere.
    const std::string extension = extensionMetFirst("BQJH");
    catalogue =
        catalogueOf({{"BQJH." + extension, companionOf("A")}, {"BQJH.m4r", companionOf("A")}});
    baseNames = arrayOf({"BQJH"});
    size_t draws = 0;
    while (isMetFirst(kFirstNames.at(draws++), extension)) {
    }
    EXPECT_GT(draws, 1u);
    ASSERT_EQ(fix(), 1);
    const std::string newBase = kFirstNames.at(draws - 1);
    EXPECT_THAT(keysOf(catalogue.get()), ElementsAre(newBase + "." + extension, newBase + ".m4r"));
    EXPECT_EQ(textOf(adopt(KRTRingtoneManagerGenerateHash()).get()), kFirstNames.at(draws));
}

TEST_F(Fix, NamesInUseAreNotDrawn) {
    catalogue = catalogueOf({{"LongName.m4r", companionOf("A")}});
    baseNames = arrayOf({"LongName", "BQJH", "FHKM"});
    EXPECT_EQ(fix(), 1);
    EXPECT_THAT(keysOf(catalogue.get()), ElementsAre("PBON.m4r"));
}

TEST_F(Fix, OnlyTheFirstOccurrenceOfTheOldBaseNameIsRemoved) {
    catalogue = catalogueOf({{"LongName.m4r", companionOf("A")}});
    baseNames = arrayOf({"X", "LongName", "Y", "LongName"});
    EXPECT_EQ(fix(), 1);
    EXPECT_THAT(textsOf(baseNames.get()), ElementsAre("X", "Y", "LongName", "BQJH"));
}

TEST_F(Fix, ABaseNameThatIsNotInUseIsNoObstacle) {
    catalogue = catalogueOf({{"LongName.m4r", companionOf("A")}});
    EXPECT_EQ(fix(), 1);
    EXPECT_THAT(textsOf(baseNames.get()), ElementsAre("BQJH"));
}

TEST_F(Fix, AnM4RThatMovesLeavesOtherExtensionsOfItsBaseNameBehind) {
    catalogue =
        catalogueOf({{"LongName.mp3", companionOf("A")}, {"LongName.m4r", companionOf("A")}});
    EXPECT_EQ(fix(), 1);
    EXPECT_THAT(keysOf(catalogue.get()), ElementsAre("LongName.mp3", "BQJH.m4r"));
}

TEST_F(Fix, AListedNameWithoutAnExtensionMovesToABareBaseName) {
    catalogue = catalogueOf({{"LONGNAMEm4r", companionOf("A")}});
    unchanged = listOf({companionOf("A")});
    EXPECT_EQ(fix(), 1);
    EXPECT_THAT(keysOf(catalogue.get()), ElementsAre("BQJH"));
    EXPECT_THAT(tableOf(renames.get()),
                ElementsAre(Pair("guid-A", Texts{{"new", "BQJH"}, {"fileType", ""}})));
}

// ---------------------------------------------------------------------------- rename records

TEST_F(Fix, AMovedRingtoneThatIsOnThePhoneGetsARenameRecord) {
    catalogue = catalogueOf({{"LongName.m4r", companionOf("A")}});
    unchanged = listOf({companionOf("A")});
    EXPECT_EQ(fix(), 1);
    EXPECT_THAT(tableOf(renames.get()),
                ElementsAre(Pair("guid-A", Texts{{"new", "BQJH"}, {"fileType", "m4r"}})));
}

TEST_F(Fix, AMovedNewRingtoneGetsNone) {
    catalogue = catalogueOf({{"LongName.m4r", companionOf("A")}});
    unchanged = listOf({companionOf("B")});
    EXPECT_EQ(fix(), 1);
    EXPECT_EQ(CFDictionaryGetCount(renames.get()), 0);
}

TEST_F(Fix, TheRenameRecordHasTheExtensionOfTheFileName) {
    // Two names of the GUID, found out of order: the aiff moves.
    std::string base;
    for (char c = 'A'; base.empty(); ++c) {
        const std::string candidate = {c, 'A', 'A'};
        if (adopt(KRTRingtoneManagerIsValidFor111(
                catalogueOf({{candidate + ".aiff", companionOf("x")},
                             {candidate + ".m4r", companionOf("x")}})
                    .get()))) {
            base = candidate;
        }
    }
    catalogue = catalogueOf({{base + ".aiff", companionOf("A").with("FileType", "iff")},
                             {base + ".m4r", companionOf("A")}});
    unchanged = listOf({companionOf("A")});
    EXPECT_EQ(fix(), 1);
    const Table records = tableOf(renames.get());
    ASSERT_THAT(keysOf(renames.get()), ElementsAre("guid-A"));
    EXPECT_EQ(records[0].second.at("fileType"), "aiff");
    // Long by now: the four letters, the point and the extension have 9 characters. So the aiff
    // file is no longer looked at.
    EXPECT_THAT(keysOf(catalogue.get()), ElementsAre("BQJH.aiff", "BQJH.m4r"));
}

TEST_F(Fix, ALaterMoveReplacesTheRenameRecord) {
    // Moves at least twice, as the first name that is drawn is the old one.
    const std::string extension = extensionMetFirst("BQJH");
    catalogue =
        catalogueOf({{"BQJH." + extension, companionOf("A")}, {"BQJH.m4r", companionOf("A")}});
    baseNames = arrayOf({"BQJH"});
    unchanged = listOf({companionOf("A")});
    EXPECT_EQ(fix(), 1);
    const std::string newBase = keysOf(catalogue.get()).at(0).substr(0, 4);
    EXPECT_NE(newBase, "BQJH");
    EXPECT_THAT(tableOf(renames.get()),
                ElementsAre(Pair("guid-A", Texts{{"new", newBase}, {"fileType", extension}})));
}

TEST_F(Fix, AMovedRingtoneWithoutAGUIDGetsNoRecord) {
    catalogue = catalogueOf({{"LongName.m4r", companionOf("A").without("GUID")}});
    unchanged = listOf({companionOf("A")});
    EXPECT_EQ(fix(), 1);
    EXPECT_THAT(keysOf(catalogue.get()), ElementsAre("BQJH.m4r"));
    EXPECT_EQ(CFDictionaryGetCount(renames.get()), 0);
}

TEST_F(Fix, AMovedEntryWithoutANameGetsNoRecord) {
    catalogue = catalogueOf({{"LongName.m4r", companionOf("A").without("Name")}});
    unchanged = listOf({companionOf("A")});
    EXPECT_EQ(fix(), 1);
    EXPECT_EQ(CFDictionaryGetCount(renames.get()), 0);
}

// ---------------------------------------------------------------------------- giving up

TEST_F(Fix, ListedNamesThatAreNoKeysAreSkippedWithoutADraw) {
    // Whichever of the two is met first, the other is listed with its extension: no such name.
    catalogue = catalogueOf({{"AAAA.mp3", companionOf("A")}, {"BBBB.wav", companionOf("A")}});
    baseNames = arrayOf({"AAAA", "BBBB"});
    const auto listed = adopt(KRTRingtoneManagerIsValidFor111(catalogue.get()));
    ASSERT_THAT(textsOf(listed.get()), AnyOf(ElementsAre("BBBB.mp3"), ElementsAre("AAAA.wav")));
    EXPECT_EQ(fix(), 0);
    EXPECT_THAT(keysOf(catalogue.get()), ElementsAre("AAAA.mp3", "BBBB.wav"));
    EXPECT_THAT(textsOf(baseNames.get()), ElementsAre("AAAA", "BBBB"));
    EXPECT_EQ(textOf(adopt(KRTRingtoneManagerGenerateHash()).get()), "BQJH");
}

TEST_F(Fix, GivesUpWithCode0) {
    catalogue = catalogueOf({{"AAAA.mp3", companionOf("A")}, {"BBBB.wav", companionOf("A")}});
    EXPECT_EQ(fix(), 0);
    EXPECT_EQ(recordedCode(), 0);
    EXPECT_STREQ(KRTErrorGetFile(), "KRTRingtoneManagerInternal");
}

TEST_F(Fix, MakesExactly10000Attempts) {
    // Of two mp3 files with one GUID the later one moves in each attempt, and never helps.
    catalogue = catalogueOf({{"AAAA.mp3", companionOf("A")}, {"BBBB.mp3", companionOf("A")}});
    baseNames = arrayOf({"AAAA", "BBBB"});
    EXPECT_EQ(fix(), 0);
    const long nextDraw = random();

    // The same moves without the fix.
    srandom(0);
    auto model = catalogueOf({{"AAAA.mp3", companionOf("A")}, {"BBBB.mp3", companionOf("A")}});
    std::vector<std::string> names = {"AAAA", "BBBB"};
    for (int attempt = 0; attempt < 10000; ++attempt) {
        const auto listed = textsOf(adopt(KRTRingtoneManagerIsValidFor111(model.get())).get());
        ASSERT_EQ(listed.size(), 1u);
        std::erase(names, listed[0].substr(0, 4));
        std::string drawn;
        do {
            drawn = textOf(adopt(KRTRingtoneManagerGenerateHash()).get());
        } while (drawn == names[0]);
        names.push_back(drawn);
        CFDictionaryRemoveValue(model.get(), string(listed[0]).get());
        CFDictionarySetValue(model.get(), string(drawn + ".mp3").get(), companionOf("A").get());
    }
    EXPECT_THAT(textsOf(baseNames.get()), ElementsAreArray(names));
    EXPECT_THAT(keysOf(catalogue.get()), ElementsAre(names[0] + ".mp3", names[1] + ".mp3"));
    EXPECT_EQ(random(), nextDraw);
}

// ---------------------------------------------------------------------------- against plain
// attempts

/// What a fix works on, as values.
struct FixState {
    CFRef<CFMutableDictionaryRef> catalogue = emptyDictionary();
    std::vector<std::string> baseNames;
    CFRef<CFMutableDictionaryRef> renames = emptyDictionary();
    CFRef<CFMutableDictionaryRef> unchanged = emptyDictionary();
};

std::string joined(const std::string& base, const std::string& extension) {
    return extension.empty() ? base : base + "." + extension;
}

/// One move by the rules, without anything that makes it quick.
void movePlainly(FixState& state, const std::string& fileName) {
    const auto entry =
        krl::cf::retain(CFDictionaryGetValue(state.catalogue.get(), string(fileName).get()));
    if (!entry) {
        return;
    }
    CFDictionaryRemoveValue(state.catalogue.get(), string(fileName).get());
    const size_t point = fileName.rfind('.');
    const std::string base = fileName.substr(0, point);
    const std::string extension = point == std::string::npos ? "" : fileName.substr(point + 1);
    CFRef<CFTypeRef> companion;
    if (extension != "m4r") {
        const auto companionName = string(base + ".m4r");
        companion =
            krl::cf::retain(CFDictionaryGetValue(state.catalogue.get(), companionName.get()));
        CFDictionaryRemoveValue(state.catalogue.get(), companionName.get());
    }
    auto& names = state.baseNames;
    const auto old = std::find(names.begin(), names.end(), base);
    if (old != names.end()) {
        names.erase(old);
    }
    std::string drawn;
    do {
        drawn = textOf(adopt(KRTRingtoneManagerGenerateHash()).get());
    } while (std::find(names.begin(), names.end(), drawn) != names.end());
    CFDictionarySetValue(state.catalogue.get(), string(joined(drawn, extension)).get(),
                         entry.get());
    names.push_back(drawn);
    if (companion) {
        CFDictionarySetValue(state.catalogue.get(), string(drawn + ".m4r").get(), companion.get());
    }
    const auto tone = static_cast<CFDictionaryRef>(entry.get());
    if (CFDictionaryContainsKey(state.unchanged.get(), valueOf(tone, "Name"))) {
        CFDictionarySetValue(state.renames.get(), valueOf(tone, "GUID"),
                             Tone().with("new", drawn).with("fileType", extension).get());
    }
}

int fixPlainly(FixState& state) {
    for (int attempt = 0; attempt < 10000; ++attempt) {
        const auto listed = adopt(KRTRingtoneManagerIsValidFor111(state.catalogue.get()));
        if (!listed) {
            return 1;
        }
        for (const std::string& fileName : textsOf(listed.get())) {
            movePlainly(state, fileName);
        }
    }
    return 0;
}

class RandomFix {
public:
    explicit RandomFix(unsigned seed) : random_(seed) {}

    /// A few ringtones of all kinds: with and without companions, with names that are drawn first,
    /// with base names that two of them share, that are not known to be in use, or that are too long.
    FixState next(bool canBeMended) {
        FixState state;
        for (size_t left = 1 + upTo(9); left > 0; --left) {
            const std::string name = "tone " + std::to_string(left);
            const Tone tone = companionOf(name).with("Number", std::to_string(random_()));
            if (upTo(2) == 0) {
                CFDictionarySetValue(state.unchanged.get(), string(name).get(), tone.get());
            }
            add(state, tone, name, canBeMended);
        }
        return state;
    }

private:
    std::string base() {
        switch (upTo(8)) {
        case 0:
            return "Long name " + std::to_string(upTo(4));
        case 1:
        case 2:
            return kFirstNames.at(upTo(kFirstNames.size()));
        case 3:
            return std::string(1, static_cast<char>('A' + upTo(3)));
        default:
            return {letter(), letter(), letter(), letter()};
        }
    }

    size_t upTo(size_t limit) { return random_() % limit; }

    char letter() { return static_cast<char>('A' + upTo(18)); }

    void add(FixState& state, const Tone& tone, const std::string& name, bool canBeMended) {
        static const std::vector<std::string> extensions = {"mp3", "wav", "aif", "m4r", "aiff"};
        const std::string base = this->base();
        const std::string extension = extensions[upTo(extensions.size())];
        std::vector<std::string> fileNames = {joined(base, extension)};
        if (extension != "m4r" && upTo(4) != 0) {
            fileNames.push_back(base + ".m4r");
        }
        if (!canBeMended && upTo(3) == 0) {
            fileNames.push_back(this->base() + ".mp3");
        }
        std::shuffle(fileNames.begin(), fileNames.end(), random_);
        for (const std::string& fileName : fileNames) {
            CFDictionarySetValue(state.catalogue.get(), string(fileName).get(),
                                 fileName.ends_with(".m4r") ? companionOf(name).get() : tone.get());
        }
        for (size_t times = upTo(8); times > 0; times /= 3) {
            state.baseNames.push_back(base);
        }
    }

    std::mt19937 random_;
};

class PlainFix : public Fix {
protected:
    /// Fixes once plainly and once with what is under test. Returns the result of both.
    int compareWithPlain(FixState plain) {
        catalogue = adopt(CFDictionaryCreateMutableCopy(nullptr, 0, plain.catalogue.get()));
        baseNames = arrayOf(plain.baseNames);
        renames = emptyDictionary();
        unchanged = plain.unchanged;
        srandom(0);
        const int expected = fixPlainly(plain);
        const long nextDraw = random();
        srandom(0);
        EXPECT_EQ(fix(), expected);
        EXPECT_EQ(random(), nextDraw);
        EXPECT_EQ(tableOf(catalogue.get()), tableOf(plain.catalogue.get()));
        EXPECT_EQ(textsOf(baseNames.get()), plain.baseNames);
        EXPECT_EQ(tableOf(renames.get()), tableOf(plain.renames.get()));
        return expected;
    }
};

TEST_F(PlainFix, GivesTheSameNamesTablesAndDrawsInThousandsOfCatalogues) {
    const unsigned seed = 4303;
    std::cout << "seed " << seed << "\n";
    RandomFix next(seed);
    int withMoves = 0;
    for (int i = 0; i < 3000 && !HasFailure(); ++i) {
        const FixState state = next.next(/*canBeMended=*/true);
        withMoves += bool(adopt(KRTRingtoneManagerIsValidFor111(state.catalogue.get())));
        EXPECT_EQ(compareWithPlain(state), 1) << "catalogue " << i;
    }
    EXPECT_GT(withMoves, 1000);
}

TEST_F(PlainFix, LeavesWhat10000AttemptsLeaveWhereNoneHelps) {
    const unsigned seed = 10000;
    std::cout << "seed " << seed << "\n";
    RandomFix next(seed);
    int hopeless = 0;
    for (int i = 0; hopeless < 5 && !HasFailure(); ++i) {
        hopeless += compareWithPlain(next.next(/*canBeMended=*/false)) == 0;
    }
}

TEST_F(PlainFix, TheOldNameIsFreeBeforeTheNewOneIsDrawn) {
    // The name that is drawn first is that of the ringtone which moves.
    for (char letter = 'A'; letter <= 'R'; ++letter) {
        const std::string other(4, letter);
        FixState state;
        state.catalogue =
            catalogueOf({{other + ".mp3", companionOf("A")}, {"BQJH.mp3", companionOf("A")}});
        state.baseNames = {other, "BQJH"};
        const auto listed = adopt(KRTRingtoneManagerIsValidFor111(state.catalogue.get()));
        if (textsOf(listed.get()) == std::vector<std::string>{"BQJH.mp3"}) {
            EXPECT_EQ(compareWithPlain(state), 0);
            return;
        }
    }
    FAIL() << "BQJH is always met first";
}

// ---------------------------------------------------------------------------- names listed twice

/// A catalogue of a single mp3 and an mp3 with its companion, all of one GUID, of which the check
/// lists the second mp3 twice: once for itself and once for its companion.
CFRef<CFMutableDictionaryRef> catalogueThatListsTwice(std::string& firstBase,
                                                      std::string& secondBase) {
    for (char one = 'A'; one <= 'R'; ++one) {
        for (char two = 'A'; two <= 'R'; ++two) {
            firstBase = {one, 'C', 'C', 'C'};
            secondBase = {two, 'D', 'D', 'D'};
            auto catalogue = catalogueOf({{firstBase + ".mp3", companionOf("A")},
                                          {secondBase + ".mp3", companionOf("A")},
                                          {secondBase + ".m4r", companionOf("A")}});
            const auto listed = adopt(KRTRingtoneManagerIsValidFor111(catalogue.get()));
            const std::string twice = secondBase + ".mp3";
            if (textsOf(listed.get()) == std::vector<std::string>{twice, twice}) {
                return catalogue;
            }
        }
    }
    throw std::logic_error("no name is listed twice");
}

TEST_F(Fix, ANameListedTwiceMovesOnce) {
    std::string first;
    std::string second;
    catalogue = catalogueThatListsTwice(first, second);
    baseNames = arrayOf({first, second});
    fix();
    // A second move without an entry would have left a base name behind that no file has.
    const std::vector<std::string> names = textsOf(baseNames.get());
    ASSERT_EQ(names.size(), 2u);
    EXPECT_THAT(keysOf(catalogue.get()),
                UnorderedElementsAre(names[0] + ".mp3", names[1] + ".mp3",
                                     AnyOf(names[0] + ".m4r", names[1] + ".m4r")));
}

// ---------------------------------------------------------------------------- as part of a
// generation

class FixOf111 : public Generation {
protected:
    FixOf111() { setFirmware("1.1.1"); }
};

TEST_F(FixOf111, ANewRingtoneThatMovesHasNoRenameRecord) {
    // So many that some must move: about every second one.
    std::vector<Tone> added;
    std::vector<std::string> drawnFirst;
    srandom(0);
    for (int i = 0; i < 20; ++i) {
        added.push_back(newTone("tone " + std::to_string(i), "mp3"));
        drawnFirst.push_back(textOf(adopt(KRTRingtoneManagerGenerateHash()).get()) + ".mp3");
    }
    const Generated generated = generate(added, {});
    const std::vector<std::string> keys = keysOf(generated.catalogue.get());
    EXPECT_EQ(keys.size(), 40u);
    EXPECT_FALSE(std::all_of(drawnFirst.begin(), drawnFirst.end(), [&](const std::string& name) {
        return std::find(keys.begin(), keys.end(), name) != keys.end();
    })) << "nothing has moved";
    EXPECT_EQ(CFDictionaryGetCount(generated.renames.get()), 0);
    EXPECT_FALSE(adopt(KRTRingtoneManagerIsValidFor111(generated.catalogue.get())));
}

TEST_F(FixOf111, AnUnchangedRingtoneThatMovesHasOne) {
    const std::string base = baseThatMeets(/*mp3First=*/true);
    const Generated generated = generate({}, {putTone("A", base + ".mp3")});
    const std::string newBase = keysOf(generated.catalogue.get()).at(0).substr(0, 4);
    EXPECT_THAT(tableOf(generated.renames.get()),
                ElementsAre(Pair("guid-A", Texts{{"new", newBase}, {"fileType", "mp3"}})));
}

TEST_F(FixOf111, DrawsGoOnInTheSequenceOfTheNewRingtones) {
    const Generated generated =
        generate({newTone("A", "m4r"), newTone("B", "m4r")}, {putTone("C", "Long name.m4r")});
    EXPECT_THAT(keysOf(generated.catalogue.get()), ElementsAre("BQJH.m4r", "FHKM.m4r", "PBON.m4r"));
}

TEST_F(FixOf111, TheCompanionOfALongMP3MovesAlone) {
    const Generated generated = generate({}, {putTone("A", "Long name.mp3")});
    EXPECT_THAT(keysOf(generated.catalogue.get()), ElementsAre("Long name.mp3", "BQJH.m4r"));
    EXPECT_THAT(tableOf(generated.renames.get()),
                ElementsAre(Pair("guid-A", Texts{{"new", "BQJH"}, {"fileType", "m4r"}})));
}

TEST_F(FixOf111, ACatalogueThatCannotBeFixedFailsTheGeneration) {
    // Two files of one GUID without companions, of two types other than m4r.
    const Tone mp3 = putTone("A", "AAAA.mp3").with("FileType", "m4r").with("GUID", "same");
    const Tone wav = putTone("B", "BBBB.wav").with("FileType", "m4r").with("GUID", "same");
    CFMutableDictionaryRef catalogue = nullptr;
    CFMutableDictionaryRef renames = nullptr;
    EXPECT_EQ(KRTRingtoneManagerGeneratePList(manager, nullptr, nullptr, listOf({mp3, wav}).get(),
                                              &catalogue, &renames),
              0);
    EXPECT_EQ(catalogue, nullptr);
    EXPECT_EQ(renames, nullptr);
    // The fix's own code, which came first.
    EXPECT_EQ(recordedCode(), 0);
}

TEST_F(FixOf111, SharedGUIDsDoNotKeepNewRingtonesFromAnAcceptedLayout) {
    const Generated generated = generate(
        {newTone("A", "mp3").with("GUID", "same"), newTone("B", "wav").with("GUID", "same")}, {});
    EXPECT_FALSE(adopt(KRTRingtoneManagerIsValidFor111(generated.catalogue.get())));
}

} // namespace
