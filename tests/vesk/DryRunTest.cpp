// What a dry run says of a sync, and that it leaves no trace on the phone. That the deed is the same
// is PlanIsDeedTest's.
#include "tests/vesk/VeskTest.h"

#include <gmock/gmock.h>

using testing::StartsWith;

namespace vesk::testing {
namespace {

using Json = nlohmann::json;

/// Whether a request changes the phone, or holds something on it.
bool leavesATrace(const virtualphone::LogEntry& entry) {
    constexpr uint64_t kReadOnly = 1;
    constexpr uint64_t kReadOrCreate = 2;
    if (entry.service == "notification_proxy") {
        return entry.request == "PostNotification";
    }
    if (entry.service != "afc") {
        return false;
    }
    const bool reads =
        entry.request == "Read" || entry.request == "Close" || entry.request == "FileInfo" ||
        entry.request == "ReadDirectory" || entry.request == "DeviceInfo" ||
        (entry.request == "Open" && (entry.mode == kReadOnly || entry.mode == kReadOrCreate));
    return !reads;
}

class DryRun : public VeskTest {
protected:
    void plugIn(const std::string& firmware) {
        options.firmware = firmware;
        VeskTest::plugIn();
    }

    /// The document of a dry run, which may have no trace on the phone.
    Json plan(std::vector<std::string> arguments) {
        arguments.insert(arguments.end(), {"--dry-run", "--json"});
        const auto before = everything();
        log().clear();
        const VeskResult result = vesk(arguments);
        EXPECT_THAT(result, ExitsWith(ExitCode::Success)) << result.err;
        EXPECT_THAT(log().entries(leavesATrace), IsEmpty());
        EXPECT_EQ(everything(), before);
        return result.json();
    }

    /// Its operations, a line each: kind, file, new file, ringtone, bytes.
    std::vector<std::string> operations(const std::vector<std::string>& arguments) {
        std::vector<std::string> lines;
        const Json planned = plan(arguments);
        for (const Json& operation : planned.at("operations")) {
            std::string line = operation.at("operation");
            for (const char* key : {"file", "newFile", "ringtone"}) {
                line += operation.contains(key) ? " " + operation.at(key).get<std::string>() : "";
            }
            const bool hasBytes = operation.at("operation") != "write-catalogue";
            lines.push_back(line +
                            (hasBytes ? " " + std::to_string(operation.value("bytes", 0)) : ""));
        }
        return lines;
    }

    uint64_t spaceNeeded(const std::vector<std::string>& arguments) {
        return plan(arguments).at("spaceNeeded");
    }

    /// A ringtone that is an mp3 on an older layout, with its placeholder.
    void putMp3WithPlaceholder() {
        put(std::string(kFolder) + "/BQJH.mp3", "0123456789");
        put(std::string(kFolder) + "/BQJH.m4r", "");
        put(kCatalogue, catalogueText({{"BQJH.m4r", "A", "1", {}}, {"BQJH.mp3", "A", "1"}}));
    }
};

} // namespace

TEST_F(DryRun, UploadsInTheCataloguesOrderThenWritesTheCatalogue) {
    plugIn("1.1.2");
    const Json planned =
        plan({"add", local("A.m4r", std::string(10, 'a')), local("B.m4r", std::string(20, 'b'))});
    EXPECT_EQ(planned.at("uploadBytes"), 30);
    EXPECT_EQ(planned.at("result"), "dry-run");
    ASSERT_EQ(vesk({"sync", localFolder()}).exitCode, 0);
    std::vector<std::string> inPlan;
    for (const Json& operation : planned.at("operations")) {
        if (operation.at("operation") == "upload") {
            EXPECT_EQ(operation.at("source"),
                      localFolder() + "/" + operation.at("ringtone").get<std::string>() + ".m4r");
            inPlan.push_back(operation.at("file"));
        }
    }
    const std::string catalogue = contents(kCatalogue);
    ASSERT_EQ(inPlan.size(), 2U);
    EXPECT_LT(catalogue.find(inPlan[0]), catalogue.find(inPlan[1]));
    EXPECT_EQ(planned.at("operations").size(), 4U) << "the folder comes first";
    EXPECT_EQ(planned.at("operations").back().at("operation"), "write-catalogue");
    EXPECT_EQ(planned.at("operations").back().at("bytes"), catalogue.size());
}

TEST_F(DryRun, CreatesAMissingFolderFirst) {
    plugIn("1.1.2");
    EXPECT_THAT(operations({"add", local("A.m4r")}),
                ElementsAre("create-folder /iTunes_Control/Ringtones 0", "upload BQJH.m4r A 5",
                            "write-catalogue"));
}

TEST_F(DryRun, PlaceholdersComeWhereTheCatalogueHasThem) {
    plugIn("1.1.1");
    const std::string file = local("A.mp3");
    const auto planned = operations({"add", file});
    ASSERT_THAT(planned, UnorderedElementsAre("create-folder /iTunes_Control/Ringtones 0",
                                              "placeholder BQJH.m4r A 0", "upload BQJH.mp3 A 5",
                                              "write-catalogue"));
    ASSERT_EQ(vesk({"add", file}).exitCode, 0);
    const std::string catalogue = contents(kCatalogue);
    const bool placeholderFirst = catalogue.find("BQJH.m4r") < catalogue.find("BQJH.mp3");
    EXPECT_THAT(planned[1], StartsWith(placeholderFirst ? "placeholder" : "upload"));
}

TEST_F(DryRun, ARingtoneMovesOnceAlthoughItsPlaceholderHasTheSameGuid) {
    plugIn("1.1.1");
    // Firmware 1.1.1 comes upon this mp3 before its placeholder: the pair needs another name.
    put(std::string(kFolder) + "/PBON.mp3", "0123456789");
    put(std::string(kFolder) + "/PBON.m4r", "");
    put(kCatalogue, catalogueText({{"PBON.mp3", "A", "1"}, {"PBON.m4r", "A", "1", {}}}));
    EXPECT_THAT(operations({"add", local("B.m4r")}),
                ElementsAre("rename PBON.mp3 FHKM.mp3 A 10", "upload BQJH.m4r B 5",
                            "placeholder FHKM.m4r A 0", "write-catalogue", "delete PBON.m4r A 0"));
}

TEST_F(DryRun, ARemovedRingtoneGoesWithItsPlaceholder) {
    plugIn("1.1.1");
    putMp3WithPlaceholder();
    EXPECT_THAT(operations({"remove", "A"}),
                ElementsAre("remove BQJH.mp3 A 10", "remove BQJH.m4r A 0", "write-catalogue"));
}

TEST_F(DryRun, OnACurrentLayoutAnOldPlaceholderIsTidiedUpAtTheEnd) {
    plugIn("1.1.2");
    putMp3WithPlaceholder();
    EXPECT_THAT(operations({"remove", "A"}),
                ElementsAre("remove BQJH.mp3 A 10", "write-catalogue", "delete BQJH.m4r A 0"));
}

TEST_F(DryRun, ARemovedFileWhoseNameANewOneHasIsOverwritten) {
    plugIn("1.1.2");
    putRingtones({{"BQJH.m4r", "A", "1"}});
    local("B.m4r", "longer than it was before");
    EXPECT_THAT(operations({"sync", localFolder()}),
                ElementsAre("upload BQJH.m4r B 25", "write-catalogue"));
}

TEST_F(DryRun, WhatNoCatalogueListsIsDeletedAndNamed) {
    plugIn("1.1.2");
    putRingtones({{"KDAQ.m4r", "A", "1"}});
    put(std::string(kFolder) + "/notes.txt", "12345");
    const std::string file = local("B.m4r");
    EXPECT_THAT(operations({"add", file}), Contains("delete notes.txt 5"));
    EXPECT_THAT(vesk({"add", file, "--dry-run"}).err,
                AllOf(HasSubstr("1 file in the phone's ringtone folder"), HasSubstr("notes.txt")));
}

TEST_F(DryRun, UploadsNeedTheirSpaceBeforeRemovalsGiveTheirs) {
    plugIn("1.1.2");
    putRingtones({{"KDAQ.m4r", "A", "1"}});
    put(std::string(kFolder) + "/KDAQ.m4r", std::string(5000, 'a'));
    local("B.m4r", std::string(4000, 'b'));
    EXPECT_THAT(operations({"sync", localFolder()}),
                ElementsAre("upload BQJH.m4r B 4000", "remove KDAQ.m4r A 5000", "write-catalogue"));
    EXPECT_EQ(spaceNeeded({"sync", localFolder()}), 4000U);
}

TEST_F(DryRun, AnOverwrittenFileGivesItsSpaceFirst) {
    plugIn("1.1.2");
    putRingtones({{"BQJH.m4r", "A", "1"}});
    put(std::string(kFolder) + "/BQJH.m4r", std::string(5000, 'a'));
    local("B.m4r", std::string(9000, 'b'));
    const uint64_t needed = spaceNeeded({"sync", localFolder()});
    EXPECT_GE(needed, 4000U);
    EXPECT_LT(needed, 5000U) << "what the catalogue grows by comes on top";
}

TEST_F(DryRun, TheCatalogueCountsWithWhatTheOldOneTook) {
    plugIn("1.1.2");
    putRingtones({{"KDAQ.m4r", "A", "1"}, {"QJHE.m4r", "B", "2"}});
    EXPECT_EQ(spaceNeeded({"remove", "A"}), 0U);
    const auto before = contents(kCatalogue).size();
    const std::string file = local("C.m4r", "c");
    const uint64_t needed = spaceNeeded({"add", file});
    ASSERT_EQ(vesk({"add", file}).exitCode, 0);
    EXPECT_EQ(needed, 1 + contents(kCatalogue).size() - before);
}

TEST_F(DryRun, ThereIsNothingToDoOnlyWhenAllIsThereInTheSameForm) {
    plugIn("1.1.1");
    local("A.mp3");
    ASSERT_EQ(vesk({"sync", localFolder()}).exitCode, 0);
    const std::string catalogue = contents(kCatalogue);
    const auto result = [this] { return plan({"sync", localFolder()}).at("result"); };
    EXPECT_EQ(result(), "nothing-to-do");
    EXPECT_THAT(operations({"sync", localFolder()}), IsEmpty());

    put(kCatalogue, catalogue + "\n");
    EXPECT_EQ(result(), "dry-run") << "another catalogue";
    put(kCatalogue, catalogue);

    std::filesystem::remove(onDisk(std::string(kFolder) + "/BQJH.m4r"));
    EXPECT_EQ(result(), "dry-run") << "the placeholder is missing";
    put(std::string(kFolder) + "/BQJH.m4r", "");
    EXPECT_EQ(result(), "nothing-to-do");

    put(std::string(kFolder) + "/stray", "");
    EXPECT_EQ(result(), "dry-run") << "a file to be deleted";
}

} // namespace vesk::testing
