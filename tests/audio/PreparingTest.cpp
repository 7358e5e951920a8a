// Songs of many kinds become ringtones; what became of them is decoded by ffmpeg and compared.
#include "audio/preparing/Preparer.h"

#include "tests/support/Ffmpeg.h"
#include "tests/support/HostileFiles.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>

using namespace krl::audio;
using krl::engine::Failure;
using krl::engine::FailureKind;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
namespace fs = std::filesystem;

namespace {

const Preparer& preparer() {
    static const Preparer preparer{RingtoneCache(fs::path())};
    return preparer;
}

class Preparing : public testing::Test {
protected:
    fs::path path(const std::string& name) const { return folder_.path() / name; }

    fs::path make(const std::string& name, const std::string& bytes) const {
        std::ofstream(path(name), std::ios::binary) << bytes;
        return path(name);
    }

    /// A soft note with a click at this time.
    fs::path click(const std::string& name, double at, double seconds,
                   std::vector<std::string> options = {}) const {
        const std::string from = std::to_string(at);
        const std::string to = std::to_string(at + 0.005);
        krl::test::makeSong(path(name),
                            "0.05*sin(2*PI*330*t)+if(between(t," + from + "," + to +
                                "),0.8*sin(2*PI*3000*t),0)",
                            seconds, std::move(options));
        return path(name);
    }

    /// The ringtone of a song as a file.
    fs::path prepared(const fs::path& song, const Wish& wish = {}) {
        result_ = preparer().prepare(song, wish).ringtone.value();
        return make(song.filename().string() + ".m4r", result_.bytes);
    }

    void expectFailure(const fs::path& song, const Wish& wish, const std::string& part) {
        try {
            preparer().prepare(song, wish);
            ADD_FAILURE() << "a ringtone was made of " << song;
        } catch (const Failure& failure) {
            EXPECT_THAT(failure.what(), AllOf(HasSubstr(song.string()), HasSubstr(part)));
            EXPECT_NE(failure.advice(), "");
        }
    }

    virtualphone::testing::TemporaryFolder folder_;
    Ringtone result_;
};

double secondsTo(const std::vector<float>& samples, float level) {
    const auto there = std::find_if(samples.begin(), samples.end(),
                                    [&](float sample) { return std::abs(sample) > level; });
    return static_cast<double>(there - samples.begin()) / 44100;
}

float peakOf(const std::vector<float>& samples) {
    float peak = 0;
    for (const float sample : samples) {
        peak = std::max(peak, std::abs(sample));
    }
    return peak;
}

double secondsToClick(const fs::path& file) {
    const std::vector<float> samples = krl::test::heard(file);
    return secondsTo(samples, peakOf(samples) / 2);
}

struct Format {
    const char* name;
    std::vector<std::string> options;
};

void PrintTo(const Format& format, std::ostream* out) {
    *out << format.name;
}

class Formats : public Preparing, public testing::WithParamInterface<Format> {};

} // namespace

TEST_P(Formats, BecomeRingtonesThatBeginWhereTheyShould) {
    // Beyond the part that is decoded without seeking.
    const fs::path song = click(GetParam().name, 27, 40, GetParam().options);
    Wish wish;
    wish.startSeconds = 25.5;
    wish.lengthSeconds = 5;
    const fs::path ringtone = prepared(song, wish);
    // Some formats begin with silence of their own, which their readers do not leave out.
    const double inSong = secondsToClick(song);
    EXPECT_NEAR(inSong, 27, 0.06);
    EXPECT_NEAR(secondsToClick(ringtone), inSong - 25.5, 0.03);
    EXPECT_NEAR(krl::test::loudnessOf(ringtone), -14, 1);
    EXPECT_LE(peakOf(krl::test::heard(ringtone)), 1);
    EXPECT_NEAR(result_.prepared.loudness, -14, 1);
    EXPECT_DOUBLE_EQ(result_.prepared.startSeconds, 25.5);
    EXPECT_DOUBLE_EQ(result_.prepared.lengthSeconds, 5);
}

INSTANTIATE_TEST_SUITE_P(
    AllKinds, Formats,
    testing::Values(Format{"flac.flac", {}}, Format{"wav.wav", {}},
                    Format{"wav24.wav", {"-c:a", "pcm_s24le", "-ar", "96000"}},
                    Format{"aiff.aiff", {}}, Format{"mp3.mp3", {"-b:a", "192k"}},
                    Format{"mp3vbr.mp3", {"-q:a", "2"}}, Format{"aac.m4a", {"-b:a", "128k"}},
                    Format{"alac.m4a", {"-c:a", "alac"}}, Format{"adts.aac", {}},
                    Format{"vorbis.ogg", {"-c:a", "libvorbis"}},
                    Format{"opus.opus", {"-c:a", "libopus"}}, Format{"wma.wma", {}},
                    Format{"matroska.mka", {"-c:a", "flac"}}),
    [](const auto& format) {
        std::string name = format.param.name;
        std::replace(name.begin(), name.end(), '.', '_');
        return name;
    });

TEST_F(Preparing, ARingtoneIsWhatEarlyFirmwareReads) {
    krl::test::makeSong(path("song.flac"), "0.2*sin(2*PI*440*t)", 3,
                        {"-metadata", "title=Söng", "-metadata", "artist=Me & I"});
    const fs::path ringtone = prepared(path("song.flac"));
    EXPECT_THAT(krl::test::probed(ringtone),
                AllOf(HasSubstr("codec_name=aac\nc"), HasSubstr("profile=LC"),
                      HasSubstr("sample_rate=44100"), HasSubstr("channels=2"),
                      HasSubstr("nb_streams=1"), HasSubstr("TAG:major_brand=M4A "),
                      HasSubstr("TAG:title=Söng"), HasSubstr("TAG:artist=Me & I")));
    EXPECT_LT(result_.bytes.find("moov"), result_.bytes.find("mdat"));
    EXPECT_THAT(result_.bytes, Not(HasSubstr("elst")));
    EXPECT_EQ(preparer().prepare(path("song.flac"), {}).ringtone->bytes, result_.bytes)
        << "the same song gives the same bytes";
}

TEST_F(Preparing, AStartBeforeTheEndIsCountedFromThere) {
    const fs::path song = click("song.mp3", 27, 30);
    Wish wish;
    wish.startSeconds = -5;
    EXPECT_NEAR(secondsToClick(prepared(song, wish)), 2, 0.06);
    EXPECT_NEAR(result_.prepared.startSeconds, 25, 0.06);
    EXPECT_NEAR(result_.prepared.lengthSeconds, 5, 0.06);
}

TEST_F(Preparing, AStartBehindTheEndIsSaid) {
    const fs::path song = click("song.wav", 1, 3);
    Wish wish;
    wish.startSeconds = 4;
    expectFailure(song, wish, "no sound 4.0 seconds from its beginning");
    wish.startSeconds = 60;
    expectFailure(song, wish, "no sound 60.0 seconds from its beginning");
}

TEST_F(Preparing, LoudAndSoftSongsBecomeEquallyLoudAndNoneClips) {
    for (const char* level : {"0.01", "0.1", "0.99"}) {
        krl::test::makeSong(path("song.wav"),
                            std::string(level) + "*sin(2*PI*220*t)*sin(2*PI*0.5*t)", 10);
        const fs::path ringtone = prepared(path("song.wav"));
        EXPECT_NEAR(krl::test::loudnessOf(ringtone), -14, 0.5) << level;
        EXPECT_LE(peakOf(krl::test::heard(ringtone)), 1) << level;
        EXPECT_LE(result_.prepared.peak, -0.9) << level;
    }
}

TEST_F(Preparing, PeaksAreHeldDownForASoftSongWithLoudStrokes) {
    krl::test::makeSong(path("song.wav"),
                        "0.03*sin(2*PI*330*t)+0.9*sin(2*PI*1000*t)*exp(-200*mod(t,2))", 10);
    const fs::path ringtone = prepared(path("song.wav"));
    EXPECT_NEAR(krl::test::loudnessOf(ringtone), -14, 1);
    EXPECT_LE(peakOf(krl::test::heard(ringtone)), 1);
}

TEST_F(Preparing, WithoutLevellingItStaysAsLoudAsItWas) {
    krl::test::makeSong(path("song.wav"), "0.05*sin(2*PI*440*t)", 10);
    Wish wish;
    wish.level = false;
    wish.fadeOutSeconds = 0;
    EXPECT_NEAR(krl::test::loudnessOf(prepared(path("song.wav"), wish)),
                krl::test::loudnessOf(path("song.wav")), 0.3);
}

TEST_F(Preparing, WhatIsTooShortToMeasureIsBroughtToTheHighestPeak) {
    krl::test::makeSong(path("song.wav"), "0.1*sin(2*PI*440*t)", 0.3);
    Wish wish;
    wish.fadeOutSeconds = 0;
    const fs::path ringtone = prepared(path("song.wav"), wish);
    EXPECT_NEAR(peakOf(krl::test::heard(ringtone)), 0.89, 0.1);
}

TEST_F(Preparing, FadesRiseAndFall) {
    krl::test::makeSong(path("song.wav"), "0.3*sin(2*PI*440*t)", 10);
    Wish wish;
    wish.level = false;
    wish.fadeInSeconds = 2;
    wish.fadeOutSeconds = 4;
    const std::vector<float> samples = krl::test::heard(prepared(path("song.wav"), wish));
    const auto around = [&](double seconds) {
        const auto at = samples.begin() + static_cast<ptrdiff_t>((seconds + 0.0232) * 44100);
        return peakOf({at - 441, at + 441});
    };
    EXPECT_NEAR(around(1), 0.3 * std::sin(M_PI / 4), 0.02);
    EXPECT_NEAR(around(4), 0.3, 0.02);
    EXPECT_NEAR(around(8), 0.3 * std::sin(M_PI / 4), 0.02);
    EXPECT_LT(around(0.02), 0.05);
    EXPECT_LT(around(9.95), 0.05);
}

TEST_F(Preparing, AGoodBeginningIsAStrokeOfTheLoudPart) {
    // Soft for 20 seconds, then strokes every half second, the first of each four the strongest.
    krl::test::makeSong(path("song.wav"),
                        "if(lt(t,20)+gt(t,40),0.02*sin(2*PI*330*t),"
                        "(0.3+0.5*lt(mod(t,2),0.5))*sin(2*PI*500*t)*exp(-6*mod(t,0.5)))",
                        60);
    Wish wish;
    wish.automatic = true;
    wish.lengthSeconds = 10;
    prepared(path("song.wav"), wish);
    const double start = result_.prepared.startSeconds;
    EXPECT_GE(start, 19.9);
    EXPECT_LE(start, 30.1);
    EXPECT_NEAR(start, 2 * std::round(start / 2), 0.05) << "on the strongest stroke";
    EXPECT_DOUBLE_EQ(result_.prepared.lengthSeconds, 10);
}

TEST_F(Preparing, AGoodBeginningOfAShortSongIsItsOwn) {
    krl::test::makeSong(path("song.wav"), "0.3*sin(2*PI*440*t)", 3);
    Wish wish;
    wish.automatic = true;
    prepared(path("song.wav"), wish);
    EXPECT_EQ(result_.prepared.startSeconds, 0);
    EXPECT_NEAR(result_.prepared.lengthSeconds, 3, 0.001);
}

TEST_F(Preparing, SilenceIsSaid) {
    krl::test::makeSong(path("song.wav"), "0*t", 3);
    prepared(path("song.wav"));
    EXPECT_TRUE(result_.prepared.silent);
}

TEST_F(Preparing, ManyChannelsAndHighRatesBecomeStereo) {
    click("stereo.wav", 1, 3);
    krl::test::ffmpeg({"-i", path("stereo.wav").string(), "-af",
                       "pan=7.1|c0=c0|c1=c1|c2=c0|c3=c1|c4=c0|c5=c1|c6=c0|c7=c1", "-ar", "192000",
                       "-c:a", "pcm_f32le", path("wide.wav").string()});
    const fs::path ringtone = prepared(path("wide.wav"));
    EXPECT_THAT(krl::test::probed(ringtone), HasSubstr("channels=2"));
    EXPECT_NEAR(secondsToClick(ringtone), 1, 0.03);
}

TEST_F(Preparing, AVideoGivesItsSound) {
    click("sound.m4a", 1, 3);
    krl::test::ffmpeg({"-f", "lavfi", "-i", "testsrc=d=3", "-i", path("sound.m4a").string(), "-c:v",
                       "mpeg4", "-c:a", "copy", path("video.mp4").string()});
    EXPECT_NEAR(secondsToClick(prepared(path("video.mp4"))), 1, 0.03);
}

TEST_F(Preparing, WhatIsCutOffIsTakenSoFarAsItGoes) {
    const fs::path song = click("song.mp3", 1, 30, {"-b:a", "192k"});
    fs::resize_file(song, fs::file_size(song) / 2);
    EXPECT_NEAR(secondsToClick(prepared(song)), 1, 0.03);
    EXPECT_NEAR(result_.prepared.lengthSeconds, 15, 0.5);
}

TEST_F(Preparing, WhatIsNoSongIsSaidWithItsNameAndWhatToDo) {
    std::string text;
    for (int i = 0; i < 5000; ++i) {
        text += "All work and no play makes Jack a dull boy.\n";
    }
    expectFailure(make("text.mp3", text), {}, "not known as a file with sound");
    expectFailure(make("list.m3u8", "#EXTM3U\n#EXTINF:1,\n/etc/passwd\n"), {}, "");
    expectFailure(make("concat.txt", "ffconcat version 1.0\nfile /etc/passwd\n"), {}, "");
    expectFailure(make("nested.m4a", krl::test::nestedAtoms(80'000)), {}, "");
    expectFailure(make("empty.mp3", ""), {}, "empty");
    expectFailure(path("none.mp3"), {}, "No such file");
    krl::test::ffmpeg(
        {"-f", "lavfi", "-i", "testsrc=d=1", "-c:v", "mpeg4", path("mute.mp4").string()});
    expectFailure(path("mute.mp4"), {}, "no sound");
}

TEST_F(Preparing, AnEncryptedSongIsNotTurnedIntoNoise) {
    krl::test::makeSong(path("song.m4a"), "0.3*sin(2*PI*440*t)", 3);
    std::ifstream file(path("song.m4a"), std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    bytes.replace(bytes.rfind("mp4a"), 4, "drms");
    const fs::path song = make("song.m4p", bytes);
    expectFailure(song, {}, "encrypted");
    // Nor when only who decodes it looks.
    const krl::engine::Failure failure = [&] {
        const int descriptor = open(song.c_str(), O_RDONLY | O_CLOEXEC);
        try {
            madeOf(song, descriptor, {});
        } catch (const Failure& thrown) {
            close(descriptor);
            return thrown;
        }
        close(descriptor);
        return Failure(FailureKind::Unexpected, "none");
    }();
    EXPECT_THAT(failure.what(), HasSubstr("encrypted"));
}

TEST_F(Preparing, AMissingProgramIsSaid) {
    krl::test::makeSong(path("song.wav"), "0.3*sin(2*PI*440*t)", 1);
    for (const char* program : {"", "/nowhere/vesk-prepare"}) {
        try {
            Preparer(RingtoneCache(fs::path()), program).prepare(path("song.wav"), {});
            ADD_FAILURE() << "made by \"" << program << '"';
        } catch (const Failure& failure) {
            EXPECT_THAT(failure.what(), HasSubstr("vesk-prepare"));
        }
    }
}

TEST_F(Preparing, AProgramThatEndsIsThatSongsErrorAlone) {
    krl::test::makeSong(path("a.wav"), "0.3*sin(2*PI*440*t)", 1);
    krl::test::makeSong(path("b.wav"), "0.3*sin(2*PI*550*t)", 1);
    const fs::path program =
        make("program", "#!/bin/sh\nif [ ! -e '" + path("once").string() + "' ]; then : > '" +
                            path("once").string() + "'; kill -SEGV $$; fi\nexec '" +
                            prepareProgram().string() + "'\n");
    fs::permissions(program, fs::perms::owner_all);
    const Preparer crashing(RingtoneCache(fs::path()), program);
    EXPECT_THROW(crashing.prepare(path("a.wav"), {}), Failure);
    EXPECT_TRUE(crashing.prepare(path("b.wav"), {}).ringtone);
}

TEST_F(Preparing, ASongThatIsChangedMeanwhileIsNotTaken) {
    krl::test::makeSong(path("song.wav"), "0.3*sin(2*PI*440*t)", 1);
    const fs::path program =
        make("program", "#!/bin/sh\necho more >> '" + path("song.wav").string() + "'\nexec '" +
                            prepareProgram().string() + "'\n");
    fs::permissions(program, fs::perms::owner_all);
    try {
        Preparer(RingtoneCache(fs::path()), program).prepare(path("song.wav"), {});
        ADD_FAILURE();
    } catch (const Failure& failure) {
        EXPECT_THAT(failure.what(), HasSubstr("changed while it was read"));
    }
}

TEST_F(Preparing, ManySongsAreToldInTheirOrderWhateverBecomesOfEach) {
    std::vector<fs::path> songs;
    for (int i = 0; i < 5; ++i) {
        songs.push_back(path("song" + std::to_string(i) + ".wav"));
        krl::test::makeSong(songs.back(), "0.3*sin(2*PI*440*t)", 1 + 2 * (i % 2));
    }
    songs.insert(songs.begin() + 2, make("text.mp3", "no song"));
    std::vector<fs::path> told;
    preparer().prepareAll(songs, {}, [&](const SongOutcome& outcome) {
        told.push_back(outcome.song);
        EXPECT_EQ(outcome.ringtone.has_value(), outcome.song.extension() == ".wav");
        EXPECT_NE(outcome.ringtone.has_value(), outcome.failure.has_value());
    });
    EXPECT_EQ(told, songs);
}
