#include "engine/files/LocalFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using testing::ElementsAre;
using testing::HasSubstr;
using namespace vesk;
namespace fs = std::filesystem;

namespace {

const fs::path kSamples = KRL_SAMPLES;

class LocalFiles : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = testing::TempDir() + "vesk-local-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
    }

    void TearDown() override { fs::remove_all(folder_); }

    fs::path make(const std::string& name, const std::string& content = "sound") {
        std::ofstream(folder_ / name) << content;
        return folder_ / name;
    }

    static ExitCode failureOf(const fs::path& file) {
        try {
            localRingtone(file);
        } catch (const Failure& failure) {
            return failure.code();
        }
        return ExitCode::Success;
    }

    fs::path folder_;
};

} // namespace

TEST(Samples, HaveTheTitlesOfTheirTagsOrElseTheirFileNames) {
    EXPECT_EQ(localRingtone(kSamples / "sunrise.m4r").name, "Sunrise 🌅");
    EXPECT_EQ(localRingtone(kSamples / "harp.m4a").name, "Harp");
    EXPECT_EQ(localRingtone(kSamples / "bells.mp3").name, "Glöckchen");
    EXPECT_EQ(localRingtone(kSamples / "two-tone.mp3").name, "two-tone");
    EXPECT_EQ(localRingtone(kSamples / "tick.wav").name, "Tick Tock");
    EXPECT_EQ(localRingtone(kSamples / "horn.aiff").name, "Horn");
}

TEST(Samples, AreSmall) {
    for (const LocalRingtone& sample : localFolder(kSamples).ringtones) {
        EXPECT_LT(sample.size, 10U * 1024) << sample.path;
    }
}

TEST_F(LocalFiles, TypeIsTheExtensionInLowerCase) {
    const LocalRingtone ringtone = localRingtone(make("Loud.M4R"));
    EXPECT_EQ(ringtone.type, "m4r");
    EXPECT_EQ(ringtone.name, "Loud");
    EXPECT_EQ(ringtone.size, 5U);
}

TEST_F(LocalFiles, PathIsAbsolute) {
    make("a.mp3");
    const fs::path before = fs::current_path();
    fs::current_path(folder_);
    const LocalRingtone ringtone = localRingtone("./a.mp3");
    fs::current_path(before);
    EXPECT_EQ(ringtone.path, (folder_ / "a.mp3").lexically_normal().string());
}

TEST_F(LocalFiles, GivenNameWins) {
    EXPECT_EQ(localRingtone(kSamples / "bells.mp3", "Mine").name, "Mine");
}

TEST_F(LocalFiles, EachUnusableFileHasItsOwnFailure) {
    EXPECT_EQ(failureOf(folder_ / "missing.mp3"), ExitCode::UnreadableFile);
    EXPECT_EQ(failureOf(folder_), ExitCode::UnreadableFile);
    EXPECT_EQ(failureOf(make("notes.txt")), ExitCode::UnsupportedType);
    EXPECT_EQ(failureOf(make("mp3")), ExitCode::UnsupportedType);
    EXPECT_EQ(failureOf(make("silent.mp3", "")), ExitCode::EmptyFile);
    EXPECT_EQ(failureOf(make("bad\nname.mp3")), ExitCode::BadName);
    EXPECT_EQ(failureOf(make("bad\xffname.mp3")), ExitCode::BadName);
    const fs::path huge = make("huge.wav");
    fs::resize_file(huge, std::uintmax_t{1} << 31U);
    EXPECT_EQ(failureOf(huge), ExitCode::FileTooLarge);
    fs::resize_file(huge, (std::uintmax_t{1} << 31U) - 1);
    EXPECT_EQ(failureOf(huge), ExitCode::Success);
}

TEST_F(LocalFiles, NamesThatTheCatalogueCannotHoldAreRefused) {
    for (const std::string name : {"", "a\x01", "a\nb", "a\u0085", "\ufeffa", "\xff"}) {
        EXPECT_THROW(requireUsableName(name), Failure) << name;
    }
    for (const std::string name : {" ", "a<b>&\"c\"", "🎵", "e\u0301"}) {
        EXPECT_NO_THROW(requireUsableName(name)) << name;
    }
}

TEST_F(LocalFiles, TitlesAreTidied) {
    // An ID3v2.3 tag with one text frame, then nothing.
    const std::string title = std::string("\x03") + " A\x01\x1b[2J \n B\u202e ";
    const auto byte = [](size_t n) { return std::string(1, static_cast<char>(n)); };
    const std::string frame =
        std::string("TIT2\0\0\0", 7) + byte(title.size()) + std::string("\0\0", 2) + title;
    const std::string tag = std::string("ID3\4\0\0\0\0\0", 9) + byte(frame.size()) + frame;
    EXPECT_EQ(localRingtone(make("tagged.mp3", tag + std::string(64, '\0'))).name, "A [2J B");
}

TEST_F(LocalFiles, AFolderGivesItsRingtonesSortedAndSaysWhatItLeftOut) {
    make("b.mp3");
    make("a.m4r");
    make("notes.txt");
    make(".hidden.mp3");
    fs::create_directory(folder_ / "folder.mp3");
    const LocalFolder result = localFolder(folder_);
    ASSERT_EQ(result.ringtones.size(), 2U);
    EXPECT_EQ(result.ringtones[0].name, "a");
    EXPECT_EQ(result.ringtones[1].name, "b");
    EXPECT_THAT(result.skipped, ElementsAre(".hidden.mp3", "folder.mp3", "notes.txt"));
}

TEST_F(LocalFiles, TwoFilesOfOneNameAreRefusedAndNamed) {
    make("a.mp3");
    make("a.m4r");
    try {
        requireDistinctNames(localFolder(folder_).ringtones);
        FAIL() << "accepted";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), ExitCode::SameNameTwice);
        EXPECT_THAT(failure.details(), ElementsAre(HasSubstr("a.m4r"), HasSubstr("a.mp3")));
    }
}
