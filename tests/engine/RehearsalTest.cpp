#include "engine/plan/Rehearsal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using namespace krl::engine;

namespace {

using Kind = Operation::Kind;

std::string inFolder(const std::string& file) {
    return std::string(kRingtonesFolder) + "/" + file;
}

PhoneState phoneWith(std::vector<FolderFile> folder, std::optional<std::string> catalogue = {}) {
    PhoneState state;
    state.folderExists = true;
    state.folder = std::move(folder);
    state.catalogueFile = std::move(catalogue);
    return state;
}

class RehearsalTest : public ::testing::Test {
protected:
    void begin(const PhoneState& state) { rehearsal.emplace(state); }

    /// Opens a file to be written, writes so many bytes and closes it.
    void write(const std::string& path, uint32_t bytes) {
        afc_file_ref file = 0;
        ASSERT_EQ(rehearsal->openFile(nullptr, path.c_str(), kAFCOpenWrite, &file), 0);
        const std::string text(bytes, 'x');
        EXPECT_EQ(rehearsal->writeFile(nullptr, file, text.data(), bytes), 0);
        EXPECT_EQ(rehearsal->closeFile(nullptr, file), 0);
    }

    int32_t remove(const std::string& path) { return rehearsal->removePath(nullptr, path.c_str()); }

    int32_t rename(const std::string& from, const std::string& to) {
        return rehearsal->renamePath(nullptr, from.c_str(), to.c_str());
    }

    uint64_t space() const { return rehearsal->picture().mostSpace(); }

    std::optional<Rehearsal> rehearsal;
};

} // namespace

TEST_F(RehearsalTest, NewFilesTakeTheirSpaceBeforeOldOnesGiveIt) {
    begin(phoneWith({{"KDAQ.m4r", 500}}));
    write(inFolder("BQJH.m4r"), 100);
    EXPECT_EQ(remove(inFolder("KDAQ.m4r")), 0);
    EXPECT_EQ(space(), 100U);
}

TEST_F(RehearsalTest, AnOverwrittenFileGivesItsSpaceFirst) {
    begin(phoneWith({{"BQJH.m4r", 500}}));
    write(inFolder("BQJH.m4r"), 600);
    EXPECT_EQ(space(), 100U);
    EXPECT_EQ(rehearsal->picture().find("BQJH.m4r")->size, 600U);
}

TEST_F(RehearsalTest, TheCatalogueGivesTheSpaceOfTheOldOne) {
    begin(phoneWith({}, std::string(400, 'c')));
    write(kCataloguePath, 1000);
    EXPECT_EQ(space(), 600U);
    begin(phoneWith({}, std::string(400, 'c')));
    write(kCataloguePath, 100);
    EXPECT_EQ(space(), 0U);
}

TEST_F(RehearsalTest, ARenamedFileKeepsWhereItComesFromAndReplacesWhatIsThere) {
    begin(phoneWith({{"A.m4r", 500}, {"B.m4r", 70}}));
    EXPECT_EQ(rename(inFolder("A.m4r"), inFolder("B.m4r")), 0);
    EXPECT_EQ(rehearsal->picture().find("A.m4r"), nullptr);
    EXPECT_EQ(rehearsal->picture().find("B.m4r")->origin, PhonePicture::onPhone("A.m4r"));
    EXPECT_EQ(rehearsal->picture().find("B.m4r")->size, 500U);
    EXPECT_EQ(space(), 0U);
    EXPECT_THAT(rehearsal->picture().names(), ElementsAre("B.m4r"));
}

TEST_F(RehearsalTest, AnswersAsAPhoneDoesForWhatIsNotThere) {
    begin(phoneWith({}));
    EXPECT_EQ(remove(inFolder("A.m4r")), kAFCObjectNotFound);
    EXPECT_EQ(remove(kCataloguePath), kAFCObjectNotFound);
    EXPECT_EQ(rename(inFolder("A.m4r"), inFolder("B.m4r")), kAFCObjectNotFound);
    EXPECT_EQ(rehearsal->createDirectory(nullptr, kRingtonesFolder), kAFCObjectExists);
    EXPECT_TRUE(rehearsal->notes().empty()) << "nothing would be changed";
}

TEST_F(RehearsalTest, NothingElseOnThePhoneIsTouched) {
    begin(phoneWith({{"A.m4r", 5}}));
    afc_file_ref file = 0;
    for (const std::string path :
         {"/DCIM/IMG_0001.JPG", "/iTunes_Control/iTunes/iTunesDB",
          "/iTunes_Control/Ringtones/sub/x.m4r", "/iTunes_Control/Ringtones/"}) {
        EXPECT_EQ(remove(path), kAFCPermissionDenied) << path;
        EXPECT_EQ(rename(inFolder("A.m4r"), path), kAFCPermissionDenied) << path;
        EXPECT_EQ(rename(path, inFolder("A.m4r")), kAFCPermissionDenied) << path;
        EXPECT_EQ(rehearsal->openFile(nullptr, path.c_str(), kAFCOpenWrite, &file),
                  kAFCPermissionDenied)
            << path;
    }
    EXPECT_TRUE(rehearsal->notes().empty());
}

TEST_F(RehearsalTest, WhatIsRemovedAfterTheCatalogueWasWrittenIsTidyingUp) {
    begin(phoneWith({{"A.m4r", 5}, {"B.m4r", 7}}));
    EXPECT_EQ(remove(inFolder("A.m4r")), 0);
    write(kCataloguePath, 10);
    EXPECT_EQ(remove(inFolder("B.m4r")), 0);
    EXPECT_THAT(rehearsal->notes(),
                ElementsAre(Operation{.kind = Kind::Remove, .file = "A.m4r", .bytes = 5},
                            Operation{.kind = Kind::WriteCatalogue, .bytes = 10},
                            Operation{.kind = Kind::DeleteStray, .file = "B.m4r", .bytes = 7}));
}

TEST_F(RehearsalTest, AFileThatNoUploadWasAnnouncedForIsAPlaceholder) {
    begin(phoneWith({}));
    rehearsal->uploadBegins("Marimba");
    write(inFolder("KDAQ.mp3"), 3);
    write(inFolder("KDAQ.m4r"), 0);
    EXPECT_THAT(
        rehearsal->notes(),
        ElementsAre(
            Operation{.kind = Kind::Upload, .file = "KDAQ.mp3", .name = "Marimba", .bytes = 3},
            Operation{.kind = Kind::Placeholder, .file = "KDAQ.m4r"}));
    EXPECT_EQ(rehearsal->picture().find("KDAQ.mp3")->origin, Rehearsal::fromComputer("Marimba"));
}

TEST_F(RehearsalTest, TheCatalogueIsReadBackAsItWasWritten) {
    begin(phoneWith({}));
    write(kCataloguePath, 10);
    afc_file_ref file = 0;
    ASSERT_EQ(rehearsal->openFile(nullptr, kCataloguePath, kAFCOpenRead, &file), 0);
    char piece[7];
    std::string read;
    for (uint32_t length = sizeof piece; length > 0;) {
        length = sizeof piece;
        ASSERT_EQ(rehearsal->readFile(nullptr, file, piece, &length), 0);
        read.append(piece, length);
    }
    EXPECT_EQ(read, std::string(10, 'x'));
    EXPECT_EQ(rehearsal->closeFile(nullptr, file), 0);
}
