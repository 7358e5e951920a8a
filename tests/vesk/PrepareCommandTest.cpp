// Songs made ringtones, without a phone.
#include "tests/vesk/VeskTest.h"

#include "tests/support/Ffmpeg.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

using testing::SizeIs;
namespace fs = std::filesystem;

namespace vesk::testing {
namespace {

class Prepare : public VeskTest {
protected:
    /// A second of sound.
    std::string song(const std::string& name) const {
        const std::string path = local(name, "");
        krl::test::makeSong(path, "0.3*sin(2*PI*440*t)", 1);
        return path;
    }

    /// A folder for what is made.
    std::string output(const std::string& name = "") const {
        return (temporaryFolder() / "made" / name).string();
    }
};

std::string bytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

} // namespace

TEST_F(Prepare, ASongBecomesARingtoneThatPlays) {
    const VeskResult result = vesk({"prepare", song("song.flac"), "-o", output()});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.out, HasSubstr(output("song.m4r")));
    const VeskResult inspected = vesk({"inspect", "--json", output("song.m4r")});
    EXPECT_THAT(inspected, ExitsWith(ExitCode::Success));
    EXPECT_EQ(inspected.json().at("files").at(0).at("verdict"), "plays");
}

TEST_F(Prepare, ASongIsNotWrittenOverEvenWhenThatIsForced) {
    const std::string file = localFolder() + "/song.m4r";
    fs::rename(song("song.flac"), file);
    const std::string bytes = bytesOf(file);
    fs::create_hard_link(file, localFolder() + "/other.m4r");
    fs::create_symlink(file, localFolder() + "/link.m4r");
    for (const std::string& place :
         {localFolder() + "/", file, localFolder() + "/other.m4r", localFolder() + "/link.m4r"}) {
        const VeskResult result = vesk({"prepare", file, "-o", place, "--force"});
        EXPECT_THAT(result, ExitsWith(ExitCode::NameTaken)) << place;
        EXPECT_THAT(result.err, HasSubstr("over the song"));
        EXPECT_EQ(bytesOf(file), bytes);
    }
}

TEST_F(Prepare, TheSecondTimeItComesFromTheCacheAndIsThereAlready) {
    const std::string file = song("song.flac");
    const auto resultOf = [&](const std::string& place) {
        const VeskResult result = vesk({"prepare", "--json", file, "-o", place});
        EXPECT_THAT(result, ExitsWith(ExitCode::Success));
        return result.json().at("songs").at(0).at("result");
    };
    EXPECT_EQ(resultOf(output("a.m4r")), "prepared");
    EXPECT_EQ(resultOf(output("b.m4r")), "from-cache");
    EXPECT_EQ(resultOf(output("b.m4r")), "already-there");
    EXPECT_EQ(bytesOf(output("a.m4r")), bytesOf(output("b.m4r")));
}

TEST_F(Prepare, NothingIsWrittenOverUnlessForced) {
    const std::string file = song("song.flac");
    const std::string there = local("there.m4r", "something else");
    const VeskResult refused = vesk({"prepare", file, "-o", there});
    EXPECT_THAT(refused, ExitsWith(ExitCode::NameTaken));
    EXPECT_THAT(refused.err, AllOf(HasSubstr(there), HasSubstr("--force")));
    EXPECT_EQ(bytesOf(there), "something else");
    EXPECT_THAT(vesk({"prepare", file, "-o", there, "--force"}), ExitsWith(ExitCode::Success));
    EXPECT_THAT(bytesOf(there), HasSubstr("ftypM4A "));
}

TEST_F(Prepare, WhateverBecomesOfOneSongTheOthersAreMade) {
    const std::string text = local("text.mp3", "no song at all");
    const VeskResult result =
        vesk({"prepare", "--json", song("a.wav"), text, song("b.wav"), "-o", output()});
    EXPECT_THAT(result, ExitsWith(ExitCode::UnreadableFile));
    EXPECT_THAT(result.err, AllOf(HasSubstr(text), HasSubstr("not known as a file with sound"),
                                  HasSubstr("Take another file")));
    const auto songs = result.json().at("songs");
    ASSERT_THAT(songs, SizeIs(3));
    EXPECT_EQ(songs[0].at("output"), output("a.m4r"));
    EXPECT_EQ(songs[1].at("error").at("name"), "unreadable-file");
    EXPECT_EQ(songs[2].at("output"), output("b.m4r"));
}

TEST_F(Prepare, TwoSongsForOnePlaceAreRefused) {
    const VeskResult result =
        vesk({"prepare", song("song.wav"), song("song.flac"), "-o", output()});
    EXPECT_THAT(result, ExitsWith(ExitCode::SameNameTwice));
    EXPECT_THAT(result.err, HasSubstr("would both become"));
    EXPECT_FALSE(fs::exists(output()));
}

TEST_F(Prepare, WrongCommandLinesAreSaid) {
    const std::vector<std::pair<std::vector<std::string>, const char*>> rows{
        {{"--start", "1:99"}, "is no time"},
        {{"--start", "3", "--auto"}, "both say where to begin"},
        {{"--length", "41"}, "--force makes a longer one"},
        {{"--length", "0"}, "is no number of seconds from 0.1"},
        {{"--fade-out", "-1"}, "is no number of seconds"},
        {{"--dry-run"}, "--dry-run is for"},
    };
    for (const auto& [wrong, part] : rows) {
        std::vector<std::string> arguments{"prepare", "song.flac"};
        arguments.insert(arguments.end(), wrong.begin(), wrong.end());
        const VeskResult result = vesk(arguments);
        EXPECT_THAT(result, ExitsWith(ExitCode::Usage));
        EXPECT_THAT(result.err, HasSubstr(part));
    }
    EXPECT_THAT(vesk({"prepare", "a", "b", "-o", "c.m4r"}), ExitsWith(ExitCode::Usage));
}

TEST_F(Prepare, AStartFromTheEndIsAnOptionsValue) {
    const VeskResult result =
        vesk({"prepare", "--json", song("song.wav"), "--start", "-0.5", "-o", output()});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_EQ(result.json().at("songs").at(0).at("startSeconds"), 0.5);
}

TEST_F(Prepare, KindsThatOnlyADecoderKnowsAreInspectedByIt) {
    const VeskResult result = vesk({"inspect", "--json", song("song.aac")});
    EXPECT_THAT(result, ExitsWith(ExitCode::NotPlayed));
    EXPECT_EQ(result.json().at("files").at(0).at("verdict"), "wants-preparing");
    EXPECT_EQ(result.json().at("files").at(0).at("codec"), "AAC-LC");
}

} // namespace vesk::testing
