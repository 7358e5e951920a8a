// The waveforms of songs, held against what ffmpeg decodes.
#include "audio/preparing/PeaksReader.h"

#include "audio/program/PeakMeter.h"
#include "engine/errors/Failure.h"
#include "tests/support/Ffmpeg.h"
#include "tests/support/HostileFiles.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

using namespace krl::audio;
using krl::engine::Failure;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
namespace fs = std::filesystem;

namespace {

constexpr double kFullScale = 32767;
constexpr size_t kFrames = 441; // of one peak

/// Louder and softer, below and above zero by turns, with a stroke now and then.
constexpr char kSong[] =
    "(0.1+0.6*t/12)*sin(2*PI*220*t)+0.1*gt(mod(t,4),2)+if(lt(mod(t,3),0.02),0.2,0)";

class WaveformsOf : public testing::Test {
protected:
    fs::path path(const std::string& name) const { return folder_.path() / name; }

    fs::path song(const std::string& name, std::vector<std::string> options = {}) const {
        krl::test::makeSong(path(name), kSong, 12.345, std::move(options));
        return path(name);
    }

    fs::path make(const std::string& name, const std::string& bytes) const {
        std::ofstream(path(name), std::ios::binary) << bytes;
        return path(name);
    }

    std::string whyNot(const fs::path& file) {
        try {
            reader_.read(file);
        } catch (const Failure& failure) {
            return failure.what();
        }
        return {};
    }

    virtualphone::testing::TemporaryFolder folder_;
    PeaksReader reader_;
};

/// Worked out apart: by ffmpeg and the standard library.
std::vector<Peak> expectedOf(const fs::path& song) {
    const std::vector<float> samples = krl::test::heard(song);
    std::vector<Peak> peaks;
    for (size_t from = 0; from < samples.size(); from += kFrames) {
        const size_t count = std::min(kFrames, samples.size() - from);
        const auto [low, high] =
            std::minmax_element(samples.begin() + static_cast<ptrdiff_t>(from),
                                samples.begin() + static_cast<ptrdiff_t>(from + count));
        peaks.push_back({static_cast<int16_t>(std::lround(*low * kFullScale)),
                         static_cast<int16_t>(std::lround(*high * kFullScale))});
    }
    return peaks;
}

/// How far apart they are at most, of full scale.
double distance(const std::vector<Peak>& one, const std::vector<Peak>& other) {
    double most = 0;
    for (size_t i = 0; i < std::min(one.size(), other.size()); ++i) {
        most = std::max({most, std::abs(one[i].low - other[i].low) / kFullScale,
                         std::abs(one[i].high - other[i].high) / kFullScale});
    }
    return most;
}

/// Frames of one value.
std::vector<float> constant(float value, size_t frames) {
    return std::vector<float>(frames * kChannels, value);
}

} // namespace

TEST_F(WaveformsOf, AWaveFileAreThoseOfItsSamples) {
    const fs::path wav = song("song.wav");
    const auto peaks = reader_.read(wav);
    EXPECT_NEAR(peaks->seconds, 12.345, 0.0001);
    EXPECT_NEAR(peaks->secondsPerPeak, 0.01, 1e-9);
    const std::vector<Peak> expected = expectedOf(wav);
    ASSERT_EQ(peaks->peaks.size(), expected.size());
    EXPECT_EQ(peaks->peaks.size(), 1235U) << "the last one is of less";
    // A step of 16 bits: they are scaled by 32768 in the file.
    EXPECT_LE(distance(peaks->peaks, expected), 1.5 / kFullScale);
    EXPECT_GT(peaks->peaks[1200].high, 0.6 * kFullScale);
    EXPECT_LT(peaks->peaks[1200].low, -0.4 * kFullScale);
}

TEST_F(WaveformsOf, TheSameSongInOtherFilesAreTheSame) {
    const std::vector<Peak> expected = expectedOf(song("song.wav"));
    const auto flac = reader_.read(song("song.flac"));
    ASSERT_EQ(flac->peaks.size(), expected.size());
    EXPECT_LE(distance(flac->peaks, expected), 1.5 / kFullScale) << "nothing is lost";
    // MP3 loses what is above 20 kHz, so the song's strokes have rounded edges that overshoot; and
    // what remains is off by less than quantisation at 320 kbit/s adds.
    const auto mp3 = reader_.read(song("song.mp3", {"-b:a", "320k"}));
    EXPECT_NEAR(mp3->seconds, 12.345, 0.06);
    EXPECT_LE(distance(mp3->peaks, expected), 0.05);
}

TEST_F(WaveformsOf, StereoAreThoseOfBothChannelsMixed) {
    krl::test::ffmpeg({"-f", "lavfi", "-i", "aevalsrc='0.5|-0.5+0.2*gt(t,1)':s=44100:d=2",
                       path("song.wav").string()});
    const auto peaks = reader_.read(path("song.wav"));
    ASSERT_THAT(peaks->peaks, SizeIs(200));
    EXPECT_NEAR(peaks->peaks[50].high, 0, 2);
    EXPECT_NEAR(peaks->peaks[150].low, 0.1 * kFullScale, 2);
    EXPECT_NEAR(peaks->peaks[150].high, 0.1 * kFullScale, 2);
}

TEST_F(WaveformsOf, TheSameContentAreReadOnce) {
    const fs::path wav = song("song.wav");
    fs::copy_file(wav, path("copy.wav"));
    EXPECT_EQ(reader_.read(wav), reader_.read(path("copy.wav")));
}

TEST_F(WaveformsOf, WhatIsMadeToDoHarmIsAnError) {
    std::string noise(100'000, '\0');
    for (size_t i = 0; i < noise.size(); ++i) {
        noise[i] = static_cast<char>((i * i * 7 + i / 3) % 251);
    }
    EXPECT_THAT(whyNot(make("noise.bin", noise)), HasSubstr("noise.bin"));
    EXPECT_THAT(whyNot(make("nested.m4a", krl::test::nestedAtoms(80'000))),
                HasSubstr("nested.m4a"));
    EXPECT_THAT(whyNot(make("list.txt", "ffconcat version 1.0\nfile /etc/passwd\n")),
                HasSubstr("list.txt"));
    EXPECT_THAT(whyNot(make("empty.mp3", "")), HasSubstr("empty.mp3"));
    EXPECT_THAT(whyNot(path("none.mp3")), HasSubstr("No such file"));
}

TEST_F(WaveformsOf, ASongThatEndsTheProgramAreAnError) {
    const fs::path program = make("program", "#!/bin/sh\nkill -SEGV $$\n");
    fs::permissions(program, fs::perms::owner_all);
    EXPECT_THROW(PeaksReader(program).read(song("song.wav")), Failure);
    EXPECT_THROW(PeaksReader(fs::path()).read(song("song.wav")), Failure);
}

TEST(PeakMeters, MakeTwoPeaksOneWhenThereWouldBeTooMany) {
    PeakMeter meter(4);
    for (const float value : {0.1F, -0.2F, 0.3F, 0.4F, 0.5F, 0.6F}) {
        meter.hear(constant(value, kFrames));
    }
    const Peaks peaks = meter.peaks();
    EXPECT_THAT(peaks.peaks, ElementsAre(Peak{-6553, 3277}, Peak{9830, 13107}, Peak{16384, 19660}));
    EXPECT_NEAR(peaks.secondsPerPeak, 0.02, 1e-9);
    EXPECT_NEAR(peaks.seconds, 0.06, 1e-9);
    meter.hear(constant(0, 1000 * kFrames));
    EXPECT_LE(meter.peaks().peaks.size(), 4U);
    EXPECT_NEAR(meter.peaks().seconds, 10.06, 1e-6);
}

TEST(PeakMeters, BoundWhatIsNoSample) {
    PeakMeter meter;
    std::vector<float> samples = constant(7, 10);
    samples[4] = std::numeric_limits<float>::quiet_NaN();
    samples[6] = -std::numeric_limits<float>::infinity();
    meter.hear(samples);
    EXPECT_THAT(meter.peaks().peaks, ElementsAre(Peak{0, 32767}));
}

TEST(PeaksAsBytes, ComeBackAsTheyWere) {
    const std::vector<Peak> peaks{{-1, 2}, {-32767, 32767}, {0, 0}};
    const auto back = peaksIn(bytesOf(peaks), {.seconds = 2.5, .secondsPerPeak = 1});
    ASSERT_TRUE(back);
    EXPECT_EQ(back->peaks, peaks);
    EXPECT_EQ(back->seconds, 2.5);
    const PeaksAnswer answer{1.5, 0.01, "it is \"damaged\"", "Take another."};
    const auto said = decodedPeaksAnswer(encoded(answer));
    ASSERT_TRUE(said);
    EXPECT_EQ(said->seconds, 1.5);
    EXPECT_EQ(said->secondsPerPeak, 0.01);
    EXPECT_EQ(said->problem, answer.problem);
    EXPECT_EQ(said->advice, answer.advice);
}

TEST(PeaksAsBytes, AreNotReadFromAnythingElse) {
    const std::string three = bytesOf(std::vector<Peak>(3));
    const PeaksAnswer said{.seconds = 2.5, .secondsPerPeak = 1};
    EXPECT_TRUE(peaksIn(three, said));
    EXPECT_FALSE(peaksIn("", said));
    EXPECT_FALSE(peaksIn(three.substr(1), said));
    EXPECT_FALSE(peaksIn(std::string((kMostPeaks + 1) * sizeof(Peak), '\0'), said));
    constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
    for (const PeaksAnswer& other :
         {PeaksAnswer{3.1, 1}, PeaksAnswer{2, 1}, PeaksAnswer{2.5, 0}, PeaksAnswer{-1, -1},
          PeaksAnswer{kNone, 1}, PeaksAnswer{2.5, kNone}, PeaksAnswer{1e308, 1e308}}) {
        EXPECT_FALSE(peaksIn(three, other));
    }
    for (const char* text : {"", "{", "[1]", "{\"seconds\": 1}"}) {
        EXPECT_FALSE(decodedPeaksAnswer(text)) << text;
    }
}
