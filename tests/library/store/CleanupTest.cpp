#include "tests/library/store/StoreTest.h"

namespace {

class Cleanup : public StoreTest {
protected:
    void cleanUp(const std::vector<std::string>& kept) {
        KRTRingtoneManagerCleanupPhoneDirectories(manager, arrayOf(kept).get());
    }

    void putFiles(const std::vector<std::string>& names) {
        for (const std::string& name : names) {
            fake.phone().file(kFolder + "/" + name);
        }
    }
};

TEST_F(Cleanup, DeletesWhatIsNotKeptInTheOrderOfTheListing) {
    putFiles({"CCCC.m4r", "KEPT.m4r", "AAAA.m4r", "B.txt"});
    cleanUp({"KEPT.m4r", "not there"});
    EXPECT_THAT(fake.callsOf("AFCRemovePath"), ElementsAre("AFCRemovePath " + kFolder + "/CCCC.m4r",
                                                           "AFCRemovePath " + kFolder + "/AAAA.m4r",
                                                           "AFCRemovePath " + kFolder + "/B.txt"));
    EXPECT_THAT(filesOnPhone(), ElementsAre("KEPT.m4r"));
}

TEST_F(Cleanup, AnEmptyKeptListDeletesEveryFile) {
    putFiles({"AAAA.m4r", "BBBB.m4r"});
    cleanUp({});
    EXPECT_THAT(filesOnPhone(), IsEmpty());
}

TEST_F(Cleanup, AFileWhoseNameDiffersOnlyInLetterCaseIsDeleted) {
    putFiles({"AAAA.m4r", "aaaa.m4r", "AAAA.M4R"});
    cleanUp({"AAAA.m4r"});
    EXPECT_THAT(filesOnPhone(), ElementsAre("AAAA.m4r"));
}

TEST_F(Cleanup, AFileWhoseNameIsDecomposedIsNotTheComposedOne) {
    const std::string composed = "\xC3\xA9.m4r";
    const std::string decomposed = "e\xCC\x81.m4r";
    putFiles({composed, decomposed});
    cleanUp({composed});
    EXPECT_THAT(filesOnPhone(), ElementsAre(composed));
}

TEST_F(Cleanup, AFolderThatDoesNotExistLeavesItWithoutEffect) {
    cleanUp({});
    EXPECT_EQ(fake.countOf("AFCRemovePath"), 0);
    EXPECT_EQ(recordedCode(), kAFCObjectNotFound);
}

TEST_F(Cleanup, AFailedListingDeletesNothing) {
    putFiles({"AAAA.m4r"});
    fake.fail("AFCDirectoryOpen", kStatus);
    cleanUp({});
    EXPECT_EQ(fake.countOf("AFCRemovePath"), 0);
    EXPECT_THAT(filesOnPhone(), ElementsAre("AAAA.m4r"));
    EXPECT_EQ(recordedCode(), kStatus);
    EXPECT_STREQ(KRTErrorGetFile(), "KRTPhoneInternal");
}

TEST_F(Cleanup, AListingThatBreaksOffIsTakenAsFarAsItCame) {
    putFiles({"AAAA.m4r", "BBBB.m4r"});
    // ".", "..", the first file, then no more.
    fake.failNth("AFCDirectoryRead", 4, kStatus);
    cleanUp({});
    EXPECT_THAT(filesOnPhone(), ElementsAre("BBBB.m4r"));
}

TEST_F(Cleanup, AFailedRemovalDoesNotStopTheOthers) {
    putFiles({"AAAA.m4r", "BBBB.m4r", "CCCC.m4r"});
    fake.failNth("AFCRemovePath", 2, kStatus);
    cleanUp({});
    EXPECT_THAT(filesOnPhone(), ElementsAre("BBBB.m4r"));
    EXPECT_EQ(recordedCode(), kStatus);
}

TEST_F(Cleanup, SubFoldersAreTriedLikeFiles) {
    fake.phone().directory(kFolder + "/empty").file(kFolder + "/full/inside.m4r");
    cleanUp({});
    EXPECT_THAT(filesOnPhone(), ElementsAre("full"));
    EXPECT_TRUE(fake.phone().hasFile(kFolder + "/full/inside.m4r"));
}

TEST_F(Cleanup, ReportsNothingAndReadsNoCatalogue) {
    putFiles({"AAAA.m4r"});
    putCatalogue({{"AAAA.m4r", companionOf("A").with("x", "y")}});
    Reports reports;
    reportTo(reports);
    cleanUp({});
    EXPECT_THAT(reports.lines, IsEmpty());
    EXPECT_EQ(fake.countOf("AFCFileRefOpen"), 0);
    EXPECT_THAT(filesOnPhone(), IsEmpty());
}

TEST_F(Cleanup, NamesMayHoldAnyCharacters) {
    const std::string odd = "a\nb %s%@ \x1B[31m.m4r";
    putFiles({odd, "100%.m4r"});
    cleanUp({"100%.m4r"});
    EXPECT_THAT(filesOnPhone(), ElementsAre("100%.m4r"));
}

TEST_F(Cleanup, AFileWhoseNameIsNoTextIsLeftAlone) {
    putFiles({"\xFF\xFE.m4r", "AAAA.m4r"});
    cleanUp({});
    EXPECT_THAT(filesOnPhone(), ElementsAre("\xFF\xFE.m4r"));
}

} // namespace
