#include "audio/songs/SongFolder.h"

#include "engine/errors/Failure.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using namespace krl::audio;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

namespace {

class SongFolderTest : public testing::Test {
protected:
    void make(const fs::path& name) const {
        fs::create_directories((folder_ / name).parent_path());
        std::ofstream(folder_ / name) << "sound";
    }

    /// Songs, from the folder on.
    std::vector<std::string> songs(SongTypes types, bool recursive) const {
        std::vector<std::string> result;
        for (const fs::path& song : songsIn(folder_, types, recursive).songs) {
            result.push_back(song.lexically_relative(folder_).string());
        }
        return result;
    }

    const virtualphone::testing::TemporaryFolder temporary_;
    const fs::path& folder_ = temporary_.path();
};

} // namespace

TEST_F(SongFolderTest, GivesItsSongsSortedAndSaysWhatItLeftOut) {
    make("b.mp3");
    make("a.m4r");
    make("c.FLAC");
    make("notes.txt");
    make("cover.jpg");
    make(".hidden.mp3");
    fs::create_directory(folder_ / "folder.mp3");
    EXPECT_THAT(songs(SongTypes::All, false), ElementsAre("a.m4r", "b.mp3", "c.FLAC"));
    EXPECT_THAT(songsIn(folder_, SongTypes::All).skipped,
                ElementsAre(".hidden.mp3", "cover.jpg", "folder.mp3", "notes.txt"));
    EXPECT_THAT(songs(SongTypes::RingtonesOnly, false), ElementsAre("a.m4r", "b.mp3"));
}

TEST_F(SongFolderTest, FoldersInItAreLookedIntoWhenThatIsAsked) {
    make("b.mp3");
    make("album/two.mp3");
    make("album/disc 1/one.ogg");
    make("album/cover.jpg");
    make(".trash/gone.mp3");
    fs::create_directory_symlink(folder_, folder_ / "album/around");
    EXPECT_THAT(songs(SongTypes::All, false), ElementsAre("b.mp3"));
    EXPECT_THAT(songs(SongTypes::All, true),
                ElementsAre("album/disc 1/one.ogg", "album/two.mp3", "b.mp3"));
    EXPECT_THAT(songsIn(folder_, SongTypes::All, true).skipped,
                ElementsAre(".trash", "album/around", "album/cover.jpg"));
}

TEST_F(SongFolderTest, AnEmptyOneHasNone) {
    EXPECT_THAT(songsIn(folder_, SongTypes::All, true).songs, IsEmpty());
}

TEST_F(SongFolderTest, WhatIsNoFolderIsAFailure) {
    make("a.mp3");
    EXPECT_THROW(songsIn(folder_ / "a.mp3", SongTypes::All), krl::engine::Failure);
    EXPECT_THROW(songsIn(folder_ / "missing", SongTypes::All), krl::engine::Failure);
}
