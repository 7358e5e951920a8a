// Whole stories: what is on the phone after one sync and another.
#include "tests/library/store/StoreTest.h"

#include <random>

namespace {

class Sync : public StoreTest {
protected:
    /// A sync as an application does it: everything loaded stays but these.
    int syncLoaded(const std::vector<Tone>& added,
                   const std::vector<std::string>& removedNames = {}) {
        const auto unchanged = load();
        const auto removed = emptyDictionary();
        for (const std::string& name : removedNames) {
            CFDictionarySetValue(removed.get(), string(name).get(), valueOf(unchanged.get(), name));
            CFDictionaryRemoveValue(unchanged.get(), string(name).get());
        }
        openPhone();
        const int result = KRTRingtoneManagerSubmitChanges(manager, listOf(added).get(),
                                                           removed.get(), unchanged.get());
        KRTPhoneClose(phone);
        return result;
    }

    /// Name to contents of what loads.
    std::map<std::string, std::string> music() {
        std::map<std::string, std::string> contents;
        for (const auto& [name, tone] : loaded()) {
            contents[name] = fake.phone().contents(tone.at("RemotePath"));
        }
        return contents;
    }
};

class SyncOn : public Sync, public ::testing::WithParamInterface<const char*> {
protected:
    SyncOn() { setFirmware(GetParam()); }
};

TEST_P(SyncOn, WhatIsAddedLoadsBack) {
    EXPECT_EQ(syncLoaded({toneWithSource("A", "m4r", "a"), toneWithSource("B", "mp3", "b"),
                          toneWithSource("C", "wav", "c"), toneWithSource("D", "hrlx", "d")}),
              1);
    EXPECT_THAT(music(),
                ElementsAre(Pair("A", "a"), Pair("B", "b"), Pair("C", "c"), Pair("D", "d")));
}

TEST_P(SyncOn, ASecondSyncKeepsWhatTheFirstPutThere) {
    ASSERT_EQ(syncLoaded({toneWithSource("A", "m4r", "a"), toneWithSource("B", "mp3", "b")}), 1);
    ASSERT_EQ(syncLoaded({toneWithSource("C", "aiff", "c")}), 1);
    EXPECT_THAT(music(), ElementsAre(Pair("A", "a"), Pair("B", "b"), Pair("C", "c")));
}

TEST_P(SyncOn, SyncsWithoutChangesComeToRest) {
    ASSERT_EQ(syncLoaded({toneWithSource("A", "m4r", "a"), toneWithSource("B", "mp3", "b")}), 1);
    ASSERT_EQ(syncLoaded({}), 1);
    const std::string catalogue = fake.phone().contents(kCatalogue);
    const std::vector<std::string> files = filesOnPhone();
    ASSERT_EQ(syncLoaded({}), 1);
    EXPECT_EQ(fake.phone().contents(kCatalogue), catalogue);
    EXPECT_THAT(filesOnPhone(), UnorderedElementsAreArray(files));
}

TEST_P(SyncOn, RemovingLeavesNothingBehind) {
    ASSERT_EQ(syncLoaded({toneWithSource("A", "m4r", "a"), toneWithSource("B", "mp3", "b")}), 1);
    ASSERT_EQ(syncLoaded({}, {"A", "B"}), 1);
    EXPECT_THAT(filesOnPhone(), IsEmpty());
    EXPECT_THAT(loaded(), IsEmpty());
}

TEST_P(SyncOn, ARingtoneIsReplacedUnderItsName) {
    ASSERT_EQ(syncLoaded({toneWithSource("A", "mp3", "old"), toneWithSource("B", "m4r", "b")}), 1);
    ASSERT_EQ(syncLoaded({toneWithSource("A", "m4r", "new")}, {"A"}), 1);
    EXPECT_THAT(music(), ElementsAre(Pair("A", "new"), Pair("B", "b")));
}

TEST_P(SyncOn, ManyAddedOneByOneAllStay) {
    const std::vector<std::string> types = {"mp3", "m4r", "wav"};
    for (size_t i = 0; i < 30; ++i) {
        const std::string name = "tone " + std::to_string(i);
        ASSERT_EQ(syncLoaded({toneWithSource(name, types[i % types.size()], name)}), 1);
        const auto contents = music();
        ASSERT_EQ(contents.size(), i + 1);
        for (const auto& [loadedName, bytes] : contents) {
            ASSERT_EQ(bytes, loadedName);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Firmware, SyncOn,
                         ::testing::Values("1.0.0", "1.0.1", "1.0.2", "1.1.1", "1.1.2", "1.1.3",
                                           "2.0"));

TEST_F(Sync, APhoneThatWasUpdatedLosesItsCompanions) {
    setFirmware("1.1.1");
    ASSERT_EQ(syncLoaded({toneWithSource("A", "mp3", "a"), toneWithSource("B", "m4r", "b")}), 1);
    ASSERT_EQ(filesOnPhone().size(), 3u);
    setFirmware("1.1.3");
    ASSERT_EQ(syncLoaded({}), 1);
    EXPECT_THAT(filesOnPhone(),
                UnorderedElementsAre(MatchesRegex("[A-R]{4}.mp3"), MatchesRegex("[A-R]{4}.m4r")));
    EXPECT_EQ(writtenCatalogue().size(), 2u);
    EXPECT_THAT(music(), ElementsAre(Pair("A", "a"), Pair("B", "b")));
}

TEST_F(Sync, APhoneThatWasSetBackGetsCompanions) {
    setFirmware("1.1.3");
    ASSERT_EQ(syncLoaded({toneWithSource("A", "mp3", "a")}), 1);
    ASSERT_EQ(filesOnPhone().size(), 1u);
    setFirmware("1.1.1");
    ASSERT_EQ(syncLoaded({}), 1);
    EXPECT_EQ(filesOnPhone().size(), 2u);
    EXPECT_THAT(music(), ElementsAre(Pair("A", "a")));
}

TEST_F(Sync, AnAIFFStaysAnAIFFOnFirmware111) {
    // Its type comes back as "iff", which is no m4r either: the companion stays, and the file's own
    // extension too.
    setFirmware("1.1.1");
    ASSERT_EQ(syncLoaded({toneWithSource("A", "aiff", "a")}), 1);
    const std::vector<std::string> files = filesOnPhone();
    ASSERT_EQ(syncLoaded({}), 1);
    EXPECT_THAT(filesOnPhone(), UnorderedElementsAreArray(files));
    EXPECT_THAT(files, UnorderedElementsAre("BQJH.aiff", "BQJH.m4r"));
}

TEST_F(Sync, ANewRingtoneMayTakeTheNameOfOneThatGoes) {
    ASSERT_EQ(syncLoaded({toneWithSource("A", "m4r", "a")}), 1);
    ASSERT_EQ(syncLoaded({toneWithSource("B", "m4r", "b")}, {"A"}), 1);
    EXPECT_THAT(filesOnPhone(), ElementsAre("BQJH.m4r"));
    EXPECT_THAT(music(), ElementsAre(Pair("B", "b")));
}

TEST_F(Sync, AfterACancelTheNextSyncPutsThePhoneInOrder) {
    ASSERT_EQ(syncLoaded({toneWithSource("A", "m4r", "a")}), 1);
    Reports reports;
    reports.answer = [](size_t, const std::string& line) { return line != "5 0 2 1"; };
    reportTo(reports);
    ASSERT_EQ(syncLoaded({toneWithSource("B", "m4r", "b"), toneWithSource("C", "m4r", "c")}), 1);
    EXPECT_EQ(filesOnPhone().size(), 2u);
    EXPECT_THAT(music(), ElementsAre(Pair("A", "a"))) << "the old catalogue";
    while (counts().open > 0) {
        KRTPhoneClose(phone);
    }
    KRTRingtoneManagerSetStatusResponder(manager, nullptr, nullptr);
    ASSERT_EQ(syncLoaded({toneWithSource("B", "m4r", "b"), toneWithSource("C", "m4r", "c")}), 1);
    EXPECT_THAT(music(), ElementsAre(Pair("A", "a"), Pair("B", "b"), Pair("C", "c")));
}

TEST_F(Sync, AListThatDidNotLoadFailsTheSubmitWithTheErrorOfTheLoad) {
    putRoot(CFSTR("no catalogue"));
    const auto unchanged = load();
    ASSERT_FALSE(unchanged);
    openPhone();
    EXPECT_EQ(KRTRingtoneManagerSubmitChanges(manager, listOf({}).get(), listOf({}).get(),
                                              unchanged.get()),
              0);
    EXPECT_EQ(recordedCode(), 4);
}

// ---------------------------------------------------------------------------- the layout

/// Firmware 1.1.1: the order that its check has seen is the order that is written and that the next
/// load reads, so a catalogue once accepted stays as it is.
class SyncOn111 : public Sync {
protected:
    SyncOn111() { setFirmware("1.1.1"); }

    /// What the check finds in the way in the catalogue on the phone.
    std::vector<std::string> offending() {
        std::vector<std::pair<std::string, Tone>> entries;
        for (const auto& [fileName, entry] : writtenCatalogue()) {
            entries.emplace_back(fileName, Tone(entry));
        }
        return textsOf(adopt(KRTRingtoneManagerIsValidFor111(catalogueOf(entries).get())).get());
    }

    /// Adds "tone <first>" and so on, each with its name for its sound.
    void add(size_t first, const std::vector<std::string>& types) {
        std::vector<Tone> added;
        for (size_t i = 0; i < types.size(); ++i) {
            const std::string name = "tone " + std::to_string(first + i);
            added.push_back(toneWithSource(name, types[i], name));
        }
        ASSERT_EQ(syncLoaded(added), 1) << "code " << KRTErrorGetCode();
    }

    void expectAllAreThere(size_t first, size_t count) {
        EXPECT_THAT(offending(), IsEmpty());
        const auto contents = music();
        EXPECT_EQ(contents.size(), count);
        for (size_t i = first; i < first + count; ++i) {
            const std::string name = "tone " + std::to_string(i);
            EXPECT_THAT(contents, Contains(Pair(name, name)));
        }
    }

    void expectNothingMovesInASyncWithoutChanges() {
        const std::vector<std::string> files = filesOnPhone();
        ASSERT_EQ(syncLoaded({}), 1) << "code " << KRTErrorGetCode();
        EXPECT_THAT(fake.callsOf("AFCRenamePath"), IsEmpty());
        EXPECT_THAT(filesOnPhone(), UnorderedElementsAreArray(files));
    }
};

TEST_F(SyncOn111, FourteenMixedTonesStayThroughThreeSyncs) {
    add(10, {"wav", "m4r", "m4r", "wav", "aif", "mp3", "aif", "m4r", "mp3", "m4r", "mp3", "aif",
             "aif", "aif"});
    expectAllAreThere(10, 14);
    for (int i = 0; i < 2; ++i) {
        expectNothingMovesInASyncWithoutChanges();
        expectAllAreThere(10, 14);
    }
}

/// So many tones of types drawn at random, in so many batches.
class MixedTones : public SyncOn111,
                   public ::testing::WithParamInterface<std::tuple<size_t, size_t>> {};

TEST_P(MixedTones, AreAcceptedAndStay) {
    const auto [count, batches] = GetParam();
    const auto seed = static_cast<unsigned>(count * 10 + batches);
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const std::vector<std::string> types = {"m4r", "mp3", "wav", "aif"};
    size_t done = 0;
    for (size_t batch = 1; batch <= batches; ++batch) {
        std::vector<std::string> drawn(count * batch / batches - done);
        for (std::string& type : drawn) {
            type = types[random() % types.size()];
        }
        add(done, drawn);
        done += drawn.size();
        expectAllAreThere(0, done);
    }
    expectNothingMovesInASyncWithoutChanges();
    expectAllAreThere(0, count);
}

INSTANTIATE_TEST_SUITE_P(Sizes, MixedTones,
                         ::testing::Combine(::testing::Values(5, 12, 25, 40, 70, 110, 150, 200),
                                            ::testing::Values(1, 2, 3)));

} // namespace
