// What a submit tells while it runs, and what the answers do.
#include "tests/library/store/StoreTest.h"

namespace {

class SubmitReports : public StoreTest {
protected:
    SubmitReports() { reportTo(reports); }

    /// Answers false to the reports for which this is true.
    void refuse(std::function<bool(size_t, const std::string&)> isRefused) {
        reports.answer = [isRefused](size_t index, const std::string& line) {
            return !isRefused(index, line);
        };
    }

    void refuseLine(const std::string& refused) {
        refuse([refused](size_t, const std::string& line) { return line == refused; });
    }

    Reports reports;
};

TEST_F(SubmitReports, OfASubmitOfNothing) {
    EXPECT_EQ(sync({}), 1);
    EXPECT_THAT(reports.lines, ElementsAre("0 0 0 0", "4 0 0 0", "3 0 0 0", "3 0 0 0"));
}

TEST_F(SubmitReports, OfRenamesUploadsAndRemovals) {
    setFirmware("1.1.1");
    const Tone moved = putTone("moved", "Long name.m4r").with("LocalPath", "/m");
    EXPECT_EQ(sync({toneWithSource("first", "m4r"), toneWithSource("second", "m4r")},
                   {putTone("old", "OLDA.m4r"), putTone("older", "OLDB.m4r")}, {moved}),
              1);
    EXPECT_THAT(reports.lines,
                ElementsAre("0 0 0 0",                       // before the renames
                            "0 0 0 0", "0 0 0 0", "0 0 0 0", // after each entry
                            "4 0 0 0",                       //
                            "5 1 2 0 first", "5 0 2 1",      //
                            "5 1 2 1 second", "5 0 2 2",     //
                            "3 0 0 0", "3 1 2 0", "3 1 2 1", "3 0 0 0"));
}

TEST_F(SubmitReports, TheRenamePassTellsAfterEachCatalogueEntryCompanionsIncluded) {
    setFirmware("1.1.1");
    EXPECT_EQ(sync({}, {}, {putTone("A", baseThatMeets(/*mp3First=*/false) + ".mp3")}), 1);
    EXPECT_THAT(reports.lines,
                ElementsAre("0 0 0 0", "0 0 0 0", "0 0 0 0", "4 0 0 0", "3 0 0 0", "3 0 0 0"));
}

TEST_F(SubmitReports, MaxIsTheCountOfTheAddedListNotOfTheUploads) {
    const Tone onPhone = putTone("kept", "KKKK.m4r").with("LocalPath", "/k");
    EXPECT_EQ(sync({newTone("no source", "mp3"), toneWithSource("kept", "m4r"),
                    toneWithSource("uploaded", "m4r")},
                   {}, {onPhone}),
              1);
    EXPECT_THAT(reports.lines, Contains("5 1 3 0 uploaded"));
    EXPECT_THAT(reports.lines, Contains("5 0 3 1"));
    EXPECT_EQ(std::count_if(reports.lines.begin(), reports.lines.end(),
                            [](const std::string& line) { return line[0] == '5'; }),
              2);
}

TEST_F(SubmitReports, TheMessageIsTheCompleteNameInUTF8) {
    // Far more bytes than characters.
    const std::string name = "\xE7\x9D\x80\xE4\xBF\xA1\xE9\x9F\xB3 \xF0\x9F\x8E\xB5 \xC3\xA9";
    EXPECT_EQ(sync({toneWithSource(name, "m4r")}), 1);
    EXPECT_THAT(reports.lines, Contains("5 1 1 0 " + name));
}

TEST_F(SubmitReports, ANameThatIsNoTextHasNoMessage) {
    Tone tone = toneWithSource("A", "m4r");
    tone.withObject("Name", number(5).get());
    auto added = emptyDictionary();
    CFDictionarySetValue(added.get(), CFSTR("A"), tone.get());
    openPhone();
    EXPECT_EQ(
        KRTRingtoneManagerSubmitChanges(manager, added.get(), listOf({}).get(), listOf({}).get()),
        1);
    EXPECT_THAT(reports.lines, Contains("5 1 1 0"));
}

TEST_F(SubmitReports, EachRemovalIsToldWhetherOrNotItHasAFile) {
    EXPECT_EQ(sync({}, {newTone("A", "m4r"), putTone("B", "BBBB.m4r")}), 1);
    EXPECT_THAT(reports.lines,
                ElementsAre("0 0 0 0", "4 0 0 0", "3 0 0 0", "3 1 2 0", "3 1 2 1", "3 0 0 0"));
}

TEST_F(SubmitReports, StandBetweenTheStepsTheyTellOf) {
    // Each line of the phone's log and of the reports in one row.
    setFirmware("1.1.1");
    const Tone moved = putTone("moved", "Long name.m4r").with("LocalPath", "/m");
    const Tone removed = putTone("old", "OLDA.m4r");
    const Tone added = toneWithSource("new", "m4r");
    std::vector<std::string> row;
    reports.answer = [&](size_t, const std::string& line) {
        row.push_back(line);
        return true;
    };
    fake.onCall([&](const std::string& line) {
        for (const char* name : {"AFCDirectoryCreate", "AFCRenamePath", "AFCFileRefOpen",
                                 "AFCRemovePath", "AFCDirectoryOpen"}) {
            if (line.starts_with(name)) {
                row.push_back(name);
            }
        }
    });
    EXPECT_EQ(sync({added}, {removed}, {moved}), 1);
    EXPECT_THAT(row, ElementsAre("AFCDirectoryCreate", "0 0 0 0",                  //
                                 "0 0 0 0", "AFCRenamePath", "0 0 0 0", "4 0 0 0", //
                                 "5 1 1 0 new", "AFCFileRefOpen", "5 0 1 1",       //
                                 "3 0 0 0", "3 1 1 0", "AFCRemovePath", "3 0 0 0", //
                                 "AFCFileRefOpen", "AFCDirectoryOpen"));
}

TEST_F(SubmitReports, WithoutAResponderNothingIsToldAndNothingCancels) {
    refuse([](size_t, const std::string&) { return true; });
    KRTRingtoneManagerSetStatusResponder(manager, nullptr, &reports);
    EXPECT_EQ(sync({toneWithSource("A", "m4r")}), 1);
    EXPECT_THAT(reports.lines, IsEmpty());
    EXPECT_THAT(keysOf(load().get()), ElementsAre("A"));
}

// ---------------------------------------------------------------------------- cancelling

TEST_F(SubmitReports, AFalseAnswerBeforeAnUploadStopsBeforeThatFileIsWritten) {
    putCatalogue({});
    const std::string oldCatalogue = fake.phone().contents(kCatalogue);
    refuseLine("5 1 2 1 second");
    EXPECT_EQ(sync({toneWithSource("first", "m4r"), toneWithSource("second", "m4r")}), 1);
    EXPECT_EQ(fake.phone().contents(kCatalogue), oldCatalogue);
    EXPECT_THAT(filesOnPhone(), ElementsAre("BQJH.m4r"));
    EXPECT_EQ(reports.lines.back(), "5 1 2 1 second");
}

TEST_F(SubmitReports, AFalseAnswerAfterAnUploadKeepsItsFileAndGoesNoFurther) {
    putTone("stray", "SSSS.m4r");
    const Tone removed = putTone("old", "OLDA.m4r");
    refuseLine("5 0 2 1");
    EXPECT_EQ(sync({toneWithSource("first", "m4r"), toneWithSource("second", "m4r")}, {removed}),
              1);
    EXPECT_FALSE(fake.phone().hasFile(kCatalogue));
    EXPECT_THAT(filesOnPhone(), UnorderedElementsAre("SSSS.m4r", "OLDA.m4r", "BQJH.m4r"));
    EXPECT_EQ(reports.lines.back(), "5 0 2 1");
}

TEST_F(SubmitReports, AfterTheLastUploadCancellingStillLeavesTheOldCatalogue) {
    refuseLine("5 0 1 1");
    EXPECT_EQ(sync({toneWithSource("A", "m4r")}), 1);
    EXPECT_FALSE(fake.phone().hasFile(kCatalogue));
}

TEST_F(SubmitReports, AFalseAnswerBeforeTheUploadsCancelsWhenThereIsNone) {
    putTone("stray", "SSSS.m4r");
    refuseLine("4 0 0 0");
    EXPECT_EQ(sync({}), 1);
    EXPECT_FALSE(fake.phone().hasFile(kCatalogue));
    EXPECT_THAT(filesOnPhone(), ElementsAre("SSSS.m4r"));
    EXPECT_THAT(reports.lines, ElementsAre("0 0 0 0", "4 0 0 0"));
}

TEST_F(SubmitReports, AFalseAnswerBeforeTheUploadsIsForgottenWhenAnUploadFollows) {
    refuseLine("4 0 0 0");
    EXPECT_EQ(sync({toneWithSource("A", "m4r")}), 1);
    EXPECT_THAT(keysOf(load().get()), ElementsAre("A"));
}

TEST_F(SubmitReports, FalseAnswersToTheRenamePassAreForgotten) {
    setFirmware("1.1.1");
    const Tone moved = putTone("moved", "Long name.m4r").with("LocalPath", "/m");
    refuseLine("0 0 0 0");
    EXPECT_EQ(sync({}, {}, {moved}), 1);
    EXPECT_THAT(keysOf(load().get()), ElementsAre("moved"));
    EXPECT_THAT(filesOnPhone(), ElementsAre("BQJH.m4r"));
}

TEST_F(SubmitReports, FalseAnswersToTheRemovalPassAreIgnored) {
    refuse([](size_t, const std::string& line) { return line[0] == '3'; });
    const Tone removed = putTone("old", "OLDA.m4r");
    putTone("stray", "SSSS.m4r");
    EXPECT_EQ(sync({}, {removed}), 1);
    EXPECT_THAT(filesOnPhone(), IsEmpty());
    EXPECT_THAT(writtenCatalogue(), IsEmpty());
}

TEST_F(SubmitReports, PlaceholdersAreWrittenWhileTheAnswerIsFalse) {
    setFirmware("1.1.1");
    const std::string base = baseThatMeets(/*mp3First=*/false);
    const Tone tone = putTone("A", base + ".mp3").with("LocalPath", "/a");
    refuseLine("4 0 0 0");
    EXPECT_EQ(sync({}, {}, {tone}), 1);
    EXPECT_THAT(filesOnPhone(), UnorderedElementsAre(base + ".mp3", base + ".m4r"));
    EXPECT_FALSE(fake.phone().hasFile(kCatalogue));
}

TEST_F(SubmitReports, RenamesStayAfterACancel) {
    setFirmware("1.1.1");
    const Tone moved = putTone("moved", "Long name.m4r", "music").with("LocalPath", "/m");
    refuseLine("5 1 1 0 new");
    EXPECT_EQ(sync({toneWithSource("new", "m4r")}, {}, {moved}), 1);
    EXPECT_THAT(filesOnPhone(), ElementsAre("FHKM.m4r"));
    EXPECT_EQ(contentsOnPhone("FHKM.m4r"), "music");
}

TEST_F(SubmitReports, CancellingRecordsNoError) {
    refuseLine("5 1 1 0 A");
    EXPECT_EQ(sync({toneWithSource("A", "m4r")}), 1);
    EXPECT_EQ(recordedCode(), std::nullopt);
}

TEST_F(SubmitReports, CancellingClosesNothing) {
    // Opened so often that no operation reconnects. The submit opens once and starts the service
    // once; the creation of the folder takes one open.
    openPhone(10);
    refuseLine("4 0 0 0");
    EXPECT_EQ(submit({}), 1);
    EXPECT_EQ(counts(), (Counts{10, 2}));
}

TEST_F(SubmitReports, FinishingEndsTheServiceAndClosesOnce) {
    openPhone(10);
    EXPECT_EQ(submit({}), 1);
    // Eleven opens; less one each for creating the folder, writing the catalogue, listing, ending
    // the service, and the close.
    EXPECT_EQ(counts(), (Counts{6, 1}));
}

// Every report of one submit refused in turn, once and from there on.

struct Outcome {
    int result;
    bool isCancelled;
    std::vector<std::string> lines;
};

/// A submit of one move, two uploads (one with a companion) and a removal.
Outcome submitRefusing(const std::function<bool(size_t)>& isRefused) {
    Store store("1.1.1");
    const Tone moved = store.putTone("moved", "Long name.m4r").with("LocalPath", "/m");
    const Tone removed = store.putTone("old", "OLDA.m4r");
    const std::vector<Tone> added = {store.toneWithSource("first", "m4r"),
                                     store.toneWithSource("second", "mp3")};
    store.putCatalogueBytes("old catalogue");
    Reports reports;
    reports.answer = [&](size_t index, const std::string&) { return !isRefused(index); };
    store.reportTo(reports);
    const int result = store.sync(added, {removed}, {moved});
    return {result, store.fake.phone().contents(kCatalogue) == "old catalogue", reports.lines};
}

TEST(SubmitRefusals, CancelExactlyAfterAnUploadReport) {
    const Outcome whole = submitRefusing([](size_t) { return false; });
    ASSERT_EQ(whole.result, 1);
    ASSERT_FALSE(whole.isCancelled);
    ASSERT_THAT(whole.lines, Contains("5 0 2 2"));
    for (size_t refused = 0; refused < whole.lines.size(); ++refused) {
        SCOPED_TRACE("report " + std::to_string(refused) + ": " + whole.lines[refused]);
        const bool isUpload = whole.lines[refused][0] == '5';
        const Outcome outcome = submitRefusing([=](size_t index) { return index == refused; });
        EXPECT_EQ(outcome.result, 1);
        EXPECT_EQ(outcome.isCancelled, isUpload);
        // After a cancel that report was the last one.
        EXPECT_EQ(outcome.lines.size(), isUpload ? refused + 1 : whole.lines.size());
    }
}

TEST(SubmitRefusals, FromOneReportOnCancelAtTheNextUploadReport) {
    const Outcome whole = submitRefusing([](size_t) { return false; });
    for (size_t first = 0; first < whole.lines.size(); ++first) {
        SCOPED_TRACE("from report " + std::to_string(first) + ": " + whole.lines[first]);
        const auto next =
            std::find_if(whole.lines.begin() + static_cast<ptrdiff_t>(first), whole.lines.end(),
                         [](const std::string& line) { return line[0] == '5'; });
        const Outcome outcome = submitRefusing([=](size_t index) { return index >= first; });
        EXPECT_EQ(outcome.result, 1);
        EXPECT_EQ(outcome.isCancelled, next != whole.lines.end());
        const auto told = static_cast<ptrdiff_t>(outcome.lines.size());
        EXPECT_EQ(told, next != whole.lines.end() ? next - whole.lines.begin() + 1
                                                  : static_cast<ptrdiff_t>(whole.lines.size()));
    }
}

} // namespace
