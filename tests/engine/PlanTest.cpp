#include "engine/plan/Plan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>

using testing::ElementsAre;
using testing::IsEmpty;
using namespace vesk;

namespace vesk {

void PrintTo(const Operation& operation, std::ostream* out) {
    *out << operationName(operation.kind) << ' ' << operation.file << " -> " << operation.newFile
         << " \"" << operation.name << "\" from " << operation.source << ", " << operation.bytes;
}

void PrintTo(const HiddenRingtone& ringtone, std::ostream* out) {
    *out << ringtone.name << " in " << ringtone.file;
}

} // namespace vesk

namespace {

using Kind = Operation::Kind;

PhoneRingtone onPhone(const std::string& name, const std::string& base,
                      const std::string& extension, uint64_t size) {
    return {.name = name,
            .guid = "GUID-" + name,
            .type = extension.substr(extension.size() - 3),
            .file = base + "." + extension,
            .companion = base + ".m4r",
            .size = size};
}

CatalogueEntry entry(const std::string& file, const std::string& name, size_t keys = 3,
                     bool localPath = true) {
    CatalogueEntry result;
    result.file = file;
    result.name = name;
    result.guid = "GUID-" + name;
    result.keyCount = keys;
    result.hasLocalPath = localPath;
    return result;
}

CatalogueEntry placeholder(const std::string& file, const std::string& name) {
    return entry(file, name, 2, false);
}

NewRingtone fromComputer(const std::string& name, uint64_t size) {
    return {name, "/music/" + name, size};
}

Operation writeCatalogue(uint64_t bytes = 0) {
    return {.kind = Kind::WriteCatalogue, .bytes = bytes};
}

Operation upload(const std::string& file, const std::string& name, uint64_t bytes) {
    return {.kind = Kind::Upload,
            .file = file,
            .name = name,
            .source = "/music/" + name,
            .bytes = bytes};
}

} // namespace

TEST(Plan, UploadsInTheCataloguesOrderThenWritesTheCatalogue) {
    PlanInput input;
    input.added = {fromComputer("A", 10), fromComputer("B", 20)};
    input.newCatalogue = {entry("BQJH.m4r", "B"), entry("FHKM.m4r", "A")};
    input.newCatalogueBytes = 300;
    const Plan plan = makePlan(input);
    EXPECT_THAT(plan.operations, ElementsAre(upload("BQJH.m4r", "B", 20),
                                             upload("FHKM.m4r", "A", 10), writeCatalogue(300)));
    EXPECT_EQ(plan.uploadBytes, 30U);
    EXPECT_TRUE(plan.changesAnything);
    EXPECT_THAT(plan.lost, IsEmpty());
}

TEST(Plan, CreatesAMissingFolderFirst) {
    PlanInput input;
    input.folderExists = false;
    EXPECT_THAT(makePlan(input).operations,
                ElementsAre(Operation{.kind = Kind::CreateFolder}, writeCatalogue()));
}

TEST(Plan, WritesPlaceholdersAndTakesThemForNoRingtones) {
    PlanInput input;
    input.olderLayout = true;
    input.added = {fromComputer("A", 10)};
    input.newCatalogue = {entry("BQJH.mp3", "A"), placeholder("BQJH.m4r", "A")};
    const Plan plan = makePlan(input);
    EXPECT_THAT(plan.operations,
                ElementsAre(upload("BQJH.mp3", "A", 10),
                            Operation{.kind = Kind::Placeholder, .file = "BQJH.m4r", .name = "A"},
                            writeCatalogue()));
    EXPECT_THAT(plan.lost, IsEmpty());
}

TEST(Plan, RenamesOnceAlthoughThePlaceholderHasTheSameGuid) {
    PlanInput input;
    input.olderLayout = true;
    input.unchanged = {onPhone("A", "KDAQ", "mp3", 10)};
    input.folder = {{"KDAQ.mp3", 10}, {"KDAQ.m4r", 0}};
    input.oldCatalogue = {entry("KDAQ.mp3", "A"), placeholder("KDAQ.m4r", "A")};
    input.newCatalogue = {placeholder("BQJH.m4r", "A"), entry("BQJH.mp3", "A")};
    input.moves = {{"GUID-A", "BQJH.mp3"}};
    const Plan plan = makePlan(input);
    EXPECT_THAT(plan.operations,
                ElementsAre(Operation{.kind = Kind::Rename,
                                      .file = "KDAQ.mp3",
                                      .newFile = "BQJH.mp3",
                                      .name = "A",
                                      .bytes = 10},
                            Operation{.kind = Kind::Placeholder, .file = "BQJH.m4r", .name = "A"},
                            writeCatalogue(),
                            Operation{.kind = Kind::DeleteStray, .file = "KDAQ.m4r", .name = "A"}));
    EXPECT_THAT(plan.lost, IsEmpty());
    EXPECT_THAT(plan.hidden, IsEmpty());
    EXPECT_THAT(plan.strays, IsEmpty());
}

TEST(Plan, RemovesARingtoneAndOnOlderLayoutsItsPlaceholder) {
    PlanInput input;
    input.removed = {onPhone("A", "KDAQ", "mp3", 10)};
    input.folder = {{"KDAQ.mp3", 10}, {"KDAQ.m4r", 0}};
    input.oldCatalogue = {entry("KDAQ.mp3", "A"), placeholder("KDAQ.m4r", "A")};
    const Operation file{.kind = Kind::Remove, .file = "KDAQ.mp3", .name = "A", .bytes = 10};
    input.olderLayout = true;
    EXPECT_THAT(makePlan(input).operations,
                ElementsAre(file, Operation{.kind = Kind::Remove, .file = "KDAQ.m4r", .name = "A"},
                            writeCatalogue()));
    input.olderLayout = false;
    EXPECT_THAT(makePlan(input).operations,
                ElementsAre(file, writeCatalogue(),
                            Operation{.kind = Kind::DeleteStray, .file = "KDAQ.m4r", .name = "A"}));
}

TEST(Plan, SparesARemovedFileWhoseNameANewOneHas) {
    PlanInput input;
    input.added = {fromComputer("B", 15)};
    input.removed = {onPhone("A", "BQJH", "m4r", 10)};
    input.folder = {{"BQJH.m4r", 10}};
    input.newCatalogue = {entry("BQJH.m4r", "B")};
    EXPECT_THAT(makePlan(input).operations,
                ElementsAre(upload("BQJH.m4r", "B", 15), writeCatalogue()));
}

TEST(Plan, DeletesWhatNoCatalogueListsAndNamesIt) {
    PlanInput input;
    input.folder = {{"notes.txt", 5}};
    const Plan plan = makePlan(input);
    EXPECT_THAT(plan.operations,
                ElementsAre(writeCatalogue(),
                            Operation{.kind = Kind::DeleteStray, .file = "notes.txt", .bytes = 5}));
    EXPECT_THAT(plan.strays, ElementsAre("notes.txt"));
    EXPECT_THAT(plan.hidden, IsEmpty());
}

TEST(PlanSpace, UploadsAreWrittenBeforeRemovals) {
    PlanInput input;
    input.added = {fromComputer("B", 100)};
    input.removed = {onPhone("A", "KDAQ", "m4r", 500)};
    input.folder = {{"KDAQ.m4r", 500}};
    input.newCatalogue = {entry("BQJH.m4r", "B")};
    EXPECT_EQ(makePlan(input).spaceNeeded, 100U);
}

TEST(PlanSpace, AnOverwrittenFileGivesItsSpaceFirst) {
    PlanInput input;
    input.added = {fromComputer("B", 600)};
    input.removed = {onPhone("A", "BQJH", "m4r", 500)};
    input.folder = {{"BQJH.m4r", 500}};
    input.newCatalogue = {entry("BQJH.m4r", "B")};
    EXPECT_EQ(makePlan(input).spaceNeeded, 100U);
}

TEST(PlanSpace, TheCatalogueCountsWithWhatTheOldOneTook) {
    PlanInput input;
    input.oldCatalogueBytes = 400;
    input.newCatalogueBytes = 1000;
    EXPECT_EQ(makePlan(input).spaceNeeded, 600U);
    input.newCatalogueBytes = 100;
    EXPECT_EQ(makePlan(input).spaceNeeded, 0U);
}

TEST(PlanChanges, NothingWhenAllIsThereInTheSameForm) {
    PlanInput input;
    input.olderLayout = true;
    input.unchanged = {onPhone("A", "KDAQ", "mp3", 10)};
    input.folder = {{"KDAQ.mp3", 10}, {"KDAQ.m4r", 0}};
    input.oldCatalogue = {entry("KDAQ.mp3", "A"), placeholder("KDAQ.m4r", "A")};
    input.newCatalogue = input.oldCatalogue;
    input.sameCatalogue = true;
    EXPECT_FALSE(makePlan(input).changesAnything);

    PlanInput otherCatalogue = input;
    otherCatalogue.sameCatalogue = false;
    EXPECT_TRUE(makePlan(otherCatalogue).changesAnything);

    PlanInput missingPlaceholder = input;
    missingPlaceholder.folder.pop_back();
    EXPECT_TRUE(makePlan(missingPlaceholder).changesAnything);

    PlanInput stray = input;
    stray.folder.push_back({"stray", 1});
    EXPECT_TRUE(makePlan(stray).changesAnything);
}

TEST(PlanLoss, ALongNameWhosePlaceholderMovesAloneIsLost) {
    // The file takes the placeholder's new name, the catalogue keeps the old one.
    PlanInput input;
    input.olderLayout = true;
    input.unchanged = {onPhone("A", "Long name", "mp3", 10)};
    input.folder = {{"Long name.mp3", 10}};
    input.oldCatalogue = {entry("Long name.mp3", "A")};
    input.newCatalogue = {entry("Long name.mp3", "A"), placeholder("BQJH.m4r", "A")};
    input.moves = {{"GUID-A", "BQJH.m4r"}};
    EXPECT_THAT(makePlan(input).lost, ElementsAre("A"));
}

TEST(PlanLoss, ALongNameThatStaysIsNotLost) {
    PlanInput input;
    input.olderLayout = true;
    input.unchanged = {onPhone("A", "ABCD", "aiff", 10)};
    input.folder = {{"ABCD.aiff", 10}};
    input.oldCatalogue = {entry("ABCD.aiff", "A")};
    input.newCatalogue = {entry("ABCD.aiff", "A"), placeholder("ABCD.m4r", "A")};
    EXPECT_THAT(makePlan(input).lost, IsEmpty());
}

TEST(PlanLoss, ARingtoneUnderAPlaceholdersNameIsLost) {
    PlanInput input;
    input.olderLayout = true;
    input.unchanged = {onPhone("M", "KDAQ", "m4r", 10), onPhone("A", "KDAQ", "mp3", 20)};
    input.folder = {{"KDAQ.m4r", 10}, {"KDAQ.mp3", 20}};
    input.oldCatalogue = {entry("KDAQ.m4r", "M"), entry("KDAQ.mp3", "A")};
    input.newCatalogue = {placeholder("KDAQ.m4r", "A"), entry("KDAQ.mp3", "A")};
    const Plan plan = makePlan(input);
    EXPECT_THAT(plan.lost, ElementsAre("M"));
}

TEST(PlanLoss, AnEntryOfTwoKeysWithSoundIsHidden) {
    PlanInput input;
    input.folder = {{"KDAQ.m4r", 10}};
    input.oldCatalogue = {placeholder("KDAQ.m4r", "A")};
    const Plan plan = makePlan(input);
    EXPECT_THAT(plan.hidden, ElementsAre(HiddenRingtone{"A", "KDAQ.m4r"}));
    EXPECT_THAT(plan.strays, IsEmpty());
}

TEST(PlanLoss, AnEmptyPlaceholderIsNotHidden) {
    PlanInput input;
    input.folder = {{"KDAQ.m4r", 0}};
    input.oldCatalogue = {placeholder("KDAQ.m4r", "A")};
    EXPECT_THAT(makePlan(input).hidden, IsEmpty());
}

TEST(PlanLoss, OneOfTwoRingtonesOfOneNameIsHidden) {
    PlanInput input;
    input.unchanged = {onPhone("A", "KDAR", "m4r", 20)};
    input.folder = {{"KDAQ.m4r", 10}, {"KDAR.m4r", 20}};
    input.oldCatalogue = {entry("KDAQ.m4r", "A"), entry("KDAR.m4r", "A")};
    input.newCatalogue = {entry("KDAR.m4r", "A")};
    const Plan plan = makePlan(input);
    EXPECT_THAT(plan.hidden, ElementsAre(HiddenRingtone{"A", "KDAQ.m4r"}));
    EXPECT_THAT(plan.lost, IsEmpty());
}

TEST(PlanLoss, ARemovedRingtoneIsNeitherLostNorHidden) {
    PlanInput input;
    input.removed = {onPhone("A", "KDAQ", "m4r", 10)};
    input.folder = {{"KDAQ.m4r", 10}};
    input.oldCatalogue = {entry("KDAQ.m4r", "A")};
    const Plan plan = makePlan(input);
    EXPECT_THAT(plan.lost, IsEmpty());
    EXPECT_THAT(plan.hidden, IsEmpty());
}
