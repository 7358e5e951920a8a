#include "engine/files/LocalFile.h"

#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using namespace krl::engine;
namespace fs = std::filesystem;

namespace {

const fs::path kSamples = KRL_SAMPLES;

class LocalFileTest : public testing::Test {
protected:
    fs::path make(const std::string& name, const std::string& content = "sound") {
        std::ofstream(folder_ / name) << content;
        return folder_ / name;
    }

    static std::optional<FailureKind> failureOf(const fs::path& file) {
        try {
            LocalFiles().ringtone(file);
        } catch (const Failure& failure) {
            return failure.kind();
        }
        return std::nullopt;
    }

    const virtualphone::testing::TemporaryFolder temporary_;
    const fs::path& folder_ = temporary_.path();
};

} // namespace

TEST(Samples, HaveTheTitlesOfTheirTagsOrElseTheirFileNames) {
    EXPECT_EQ(LocalFiles().ringtone(kSamples / "sunrise.m4r").name, "Sunrise 🌅");
    EXPECT_EQ(LocalFiles().ringtone(kSamples / "harp.m4a").name, "Harp");
    EXPECT_EQ(LocalFiles().ringtone(kSamples / "bells.mp3").name, "Glöckchen");
    EXPECT_EQ(LocalFiles().ringtone(kSamples / "two-tone.mp3").name, "two-tone");
    EXPECT_EQ(LocalFiles().ringtone(kSamples / "tick.wav").name, "Tick Tock");
    EXPECT_EQ(LocalFiles().ringtone(kSamples / "horn.aiff").name, "Horn");
}

TEST(Samples, AreSmall) {
    for (const fs::directory_entry& sample : fs::directory_iterator(kSamples)) {
        EXPECT_LT(sample.file_size(), 10U * 1024) << sample.path();
    }
}

TEST_F(LocalFileTest, TypeIsTheExtensionInLowerCase) {
    const LocalRingtone ringtone = LocalFiles().ringtone(make("Loud.M4R"));
    EXPECT_EQ(ringtone.type, "m4r");
    EXPECT_EQ(ringtone.name, "Loud");
    EXPECT_EQ(ringtone.size, 5U);
}

TEST_F(LocalFileTest, PathIsAbsolute) {
    make("a.mp3");
    const fs::path before = fs::current_path();
    fs::current_path(folder_);
    const LocalRingtone ringtone = LocalFiles().ringtone("./a.mp3");
    fs::current_path(before);
    EXPECT_EQ(ringtone.path, (folder_ / "a.mp3").lexically_normal().string());
}

TEST_F(LocalFileTest, GivenNameWins) {
    EXPECT_EQ(LocalFiles().ringtone(kSamples / "bells.mp3", "Mine").name, "Mine");
}

TEST_F(LocalFileTest, NamesAreComposed) {
    EXPECT_EQ(LocalFiles().ringtone(make("Cafe\u0301.mp3")).name, "Caf\u00E9");
    EXPECT_EQ(LocalFiles().ringtone(make("a.mp3"), "Cafe\u0301").name, "Caf\u00E9");
    EXPECT_EQ(nameAfter(" Cafe\u0301\n", "x.mp3"), "Caf\u00E9");
}

TEST_F(LocalFileTest, EachUnusableFileHasItsOwnFailure) {
    EXPECT_EQ(failureOf(folder_ / "missing.mp3"), FailureKind::UnreadableFile);
    EXPECT_EQ(failureOf(folder_), FailureKind::UnreadableFile);
    EXPECT_EQ(failureOf(make("notes.txt")), FailureKind::UnsupportedType);
    EXPECT_EQ(failureOf(make("mp3")), FailureKind::UnsupportedType);
    EXPECT_EQ(failureOf(make("silent.mp3", "")), FailureKind::EmptyFile);
    EXPECT_EQ(failureOf(make("bad\nname.mp3")), FailureKind::BadName);
    EXPECT_EQ(failureOf(make("bad\xffname.mp3")), FailureKind::BadName);
    const fs::path huge = make("huge.wav");
    fs::resize_file(huge, uintmax_t{1} << 31U);
    EXPECT_EQ(failureOf(huge), FailureKind::FileTooLarge);
    fs::resize_file(huge, (uintmax_t{1} << 31U) - 1);
    EXPECT_EQ(failureOf(huge), std::nullopt);
}

TEST_F(LocalFileTest, NamesThatTheCatalogueCannotHoldAreRefused) {
    for (const std::string name : {"", "a\x01", "a\nb", "a\u0085", "\ufeffa", "\xff"}) {
        EXPECT_THROW(requireUsableName(name), Failure) << name;
    }
    for (const std::string name : {" ", "a<b>&\"c\"", "🎵", "e\u0301"}) {
        EXPECT_NO_THROW(requireUsableName(name)) << name;
    }
}

TEST_F(LocalFileTest, TitlesAreTidied) {
    // An ID3v2.3 tag with one text frame, then nothing.
    const std::string title = std::string("\x03") + " A\x01\x1b[2J \n B\u202e ";
    const auto byte = [](size_t n) { return std::string(1, static_cast<char>(n)); };
    const std::string frame =
        std::string("TIT2\0\0\0", 7) + byte(title.size()) + std::string("\0\0", 2) + title;
    const std::string tag = std::string("ID3\4\0\0\0\0\0", 9) + byte(frame.size()) + frame;
    EXPECT_EQ(LocalFiles().ringtone(make("tagged.mp3", tag + std::string(64, '\0'))).name,
              "A [2J B");
}
