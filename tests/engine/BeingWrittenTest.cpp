#include "engine/files/BeingWritten.h"

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <fstream>

namespace krl::engine::testing {
namespace {

namespace fs = std::filesystem;

class FilesBeingWritten : public ::testing::Test {
protected:
    const virtualphone::testing::TemporaryFolder folder_;
    const fs::path file_ = folder_.path() / "song.mp3";
};

} // namespace

TEST_F(FilesBeingWritten, AreThoseThatSomebodyHasOpenForThat) {
    std::ofstream writing(file_);
    EXPECT_TRUE(isBeingWritten(file_));
    writing << "a part" << std::flush;
    EXPECT_TRUE(isBeingWritten(file_));
    writing.close();
    EXPECT_FALSE(isBeingWritten(file_));
    std::ofstream again(file_, std::ios::app);
    EXPECT_TRUE(isBeingWritten(file_));
}

TEST_F(FilesBeingWritten, AreNoneThatAreOnlyRead) {
    std::ofstream(file_) << "a song";
    const std::ifstream reading(file_);
    EXPECT_FALSE(isBeingWritten(file_));
}

TEST_F(FilesBeingWritten, LeaveWhoeverWritesNextAlone) {
    std::ofstream(file_) << "a song";
    EXPECT_FALSE(isBeingWritten(file_));
    std::ofstream(file_, std::ios::app) << " and more";
    EXPECT_EQ(fs::file_size(file_), 15U);
}

TEST_F(FilesBeingWritten, AreNoFoldersPipesAndNothing) {
    EXPECT_FALSE(isBeingWritten(folder_.path()));
    EXPECT_FALSE(isBeingWritten(file_));
    ASSERT_EQ(mkfifo(file_.c_str(), 0600), 0);
    EXPECT_FALSE(isBeingWritten(file_));
}

} // namespace krl::engine::testing
