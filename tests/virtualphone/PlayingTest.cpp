// Which ringtones the phone would not play, of files that ffmpeg has made and of others.

#include "tests/support/Ffmpeg.h"
#include "tests/support/Process.h"
#include "tests/support/SomeBytes.h"
#include "tests/support/VirtualPhoneFixture.h"
#include "tests/virtualphone/WireClient.h"

#include <gmock/gmock.h>

#include <mutex>

namespace virtualphone {

// As a failed expectation shows it, and the program.
void PrintTo(const Unplayable& ringtone, std::ostream* out) {
    *out << '"' << ringtone.file << "\": " << ringtone.reason;
}

} // namespace virtualphone

namespace virtualphone::testing {
namespace {

using krl::test::makeSong;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr char kFolder[] = "/iTunes_Control/Ringtones/";
constexpr char kNote[] = "0.3*sin(2764*t)";

auto isUnplayable(const std::string& file, const std::string& reason) {
    return AllOf(Field("file", &Unplayable::file, file),
                 Field("reason", &Unplayable::reason, HasSubstr(reason)));
}

/// Frames of HE-AAC that say next to nothing: silence, and a payload of the upper band.
std::string heAacFrames(int count) {
    static constexpr char kFrame[] =
        "\xFF\xF1\x5C\x40\x01\xBF\xFC\x00\x00\x00\x06\x1D\x0E"; // with its ADTS head
    std::string frames;
    for (int i = 0; i < count; ++i) {
        frames.append(kFrame, sizeof kFrame - 1);
    }
    return frames;
}

class Playing : public VirtualPhoneTest {
protected:
    void SetUp() override {
        VirtualPhoneTest::SetUp();
        std::filesystem::create_directories(onDisk(kFolder));
    }

    std::filesystem::path ringtone(const std::string& name) const { return onDisk(kFolder) / name; }

    /// A song of this many seconds in the ringtone folder, of the type that its name or the options
    /// say.
    void song(const std::string& name, double seconds, const std::vector<std::string>& wanted) {
        makeSong(ringtone(name), kNote, seconds, wanted);
    }

    /// The same as an m4r.
    void m4r(const std::string& name, double seconds, std::vector<std::string> wanted) {
        wanted.insert(wanted.end(), {"-f", "ipod"});
        song(name, seconds, wanted);
    }
};

class PlayingOnLaterFirmware : public Playing {
protected:
    PlayingOnLaterFirmware() { options.firmware = "1.1.3"; }
};

/// A phone that judges what is stored on it.
class StrictPlaying : public Playing {
protected:
    StrictPlaying() {
        options.onUnplayable = [this](const Unplayable& ringtone) {
            const std::lock_guard lock(mutex_);
            told_.push_back(ringtone);
        };
    }

    void upload(AfcWire& afc, const std::string& path, const std::string& bytes) {
        const uint64_t file = afc.open(path, afc::kModeWrite);
        ASSERT_EQ(afc.write(file, bytes), afc::kSuccess);
        ASSERT_EQ(afc.close(file), afc::kSuccess);
    }

    std::vector<Unplayable> told() {
        const std::lock_guard lock(mutex_);
        return told_;
    }

private:
    std::mutex mutex_;
    std::vector<Unplayable> told_;
};

} // namespace

TEST_F(Playing, APhoneWithoutAFolderHasNothingToPlay) {
    std::filesystem::remove_all(onDisk(kFolder));
    EXPECT_THAT(phone().wouldNotPlay(), IsEmpty());
}

TEST_F(Playing, WhatEarlyPhonesPlay) {
    m4r("a.m4r", 2, {"-c:a", "aac", "-b:a", "160k"});
    m4r("b.m4a", 2, {"-c:a", "aac", "-ar", "8000", "-ac", "1"});
    m4r("c.m4p", 2, {"-c:a", "aac", "-ar", "48000"});
    song("d.mp3", 2, {"-c:a", "libmp3lame", "-b:a", "320k"});
    song("e.wav", 2, {"-c:a", "pcm_s16le"});
    song("f.wav", 2, {"-c:a", "pcm_u8", "-ac", "1"});
    song("g.aif", 2, {"-c:a", "pcm_s16be"});
    song("h.aiff", 2, {"-c:a", "pcm_s16be"});
    m4r("LONG.M4R", 39.9, {"-c:a", "aac"});
    std::filesystem::create_directory(ringtone("folder"));
    EXPECT_THAT(phone().wouldNotPlay(), IsEmpty());
}

TEST_F(Playing, AnMp3WithItsCoverPlays) {
    song("sound.mp3", 2, {"-c:a", "libmp3lame"});
    krl::test::ffmpeg({"-i", ringtone("sound.mp3").string(), "-f", "lavfi", "-i",
                       "color=c=red:s=64x64:d=0.04", "-map", "0:a", "-map", "1:v", "-c:a", "copy",
                       "-c:v", "mjpeg", "-frames:v", "1", "-disposition:v", "attached_pic",
                       ringtone("cover.mp3").string()});
    EXPECT_THAT(krl::test::probed(ringtone("cover.mp3")), HasSubstr("nb_streams=2"));
    EXPECT_THAT(phone().wouldNotPlay(), IsEmpty());
}

TEST_F(Playing, OtherKindsOfSoundAreCalledByTheirNames) {
    m4r("a.m4r", 2, {"-c:a", "alac"});
    song("b.m4r", 2, {"-c:a", "flac", "-f", "ogg"});
    song("c.m4r", 2, {"-c:a", "flac", "-f", "flac"});
    song("d.m4a", 2, {"-c:a", "aac", "-f", "adts"});
    song("e.wav", 2, {"-c:a", "pcm_s24le"});
    song("f.wav", 2, {"-c:a", "pcm_alaw"});
    song("g.mp3", 2, {"-c:a", "mp2", "-f", "mp2"});
    EXPECT_THAT(phone().wouldNotPlay(),
                ElementsAre(isUnplayable("a.m4r", "ALAC in QuickTime"),
                            isUnplayable("b.m4r", "FLAC in Ogg"), isUnplayable("c.m4r", "FLAC in"),
                            isUnplayable("d.m4a", "AAC in"), isUnplayable("e.wav", "PCM signed 24"),
                            isUnplayable("f.wav", "PCM A-law in WAV"),
                            isUnplayable("g.mp3", "MP2 in")));
}

TEST_F(Playing, HeAacDoesNotPlay) {
    const std::string raw = (temporaryFolder() / "he.aac").string();
    std::ofstream(raw, std::ios::binary) << heAacFrames(100);
    krl::test::ffmpeg(
        {"-f", "aac", "-i", raw, "-c", "copy", "-f", "ipod", ringtone("he.m4r").string()});
    EXPECT_THAT(phone().wouldNotPlay(), ElementsAre(isUnplayable("he.m4r", "HE-AAC")));
}

TEST_F(Playing, WhatIsEncryptedDoesNotPlay) {
    const std::string key(32, '7');
    song("a.m4r", 2,
         {"-c:a", "aac", "-encryption_scheme", "cenc-aes-ctr", "-encryption_key", key,
          "-encryption_kid", key, "-f", "mp4"});
    // As shops sold it: the same atoms, with another name of what is in them.
    m4r("b.m4p", 2, {"-c:a", "aac"});
    std::string bytes = contents(std::string(kFolder) + "b.m4p");
    const size_t kind = bytes.rfind("mp4a");
    ASSERT_NE(kind, std::string::npos);
    put(std::string(kFolder) + "b.m4p", bytes.replace(kind, 4, "drms"));
    EXPECT_THAT(phone().wouldNotPlay(), ElementsAre(isUnplayable("a.m4r", "encrypted"),
                                                    isUnplayable("b.m4p", "encrypted")));
}

TEST_F(Playing, TooLongTooFastTooManyChannels) {
    m4r("a.m4r", 90, {"-c:a", "aac", "-b:a", "32k"});
    m4r("b.m4r", 41, {"-c:a", "aac", "-b:a", "32k"});
    song("c.wav", 1, {"-c:a", "pcm_s16le", "-ar", "96000"});
    song("d.wav", 1, {"-c:a", "pcm_s16le", "-ac", "6"});
    EXPECT_THAT(phone().wouldNotPlay(),
                ElementsAre(isUnplayable("a.m4r", "90"), isUnplayable("b.m4r", "41"),
                            isUnplayable("c.wav", "96 kHz"), isUnplayable("d.wav", "6 channels")));
}

TEST_F(Playing, AFilmDoesNotPlay) {
    krl::test::ffmpeg({"-f", "lavfi", "-i", "testsrc=d=1:s=64x64", "-f", "lavfi", "-i", "sine=d=1",
                       "-c:v", "mpeg4", "-c:a", "aac", "-f", "mp4", ringtone("a.m4r").string()});
    EXPECT_THAT(phone().wouldNotPlay(), ElementsAre(isUnplayable("a.m4r", "a film")));
}

TEST_F(Playing, NoiseTextAndNothingAreNoSound) {
    put(std::string(kFolder) + "a.m4r", krl::test::someBytes(300'000));
    put(std::string(kFolder) + "b.mp3", "These are words and no sound.\n");
    put(std::string(kFolder) + "c.m4r", "");
    put(std::string(kFolder) + "d.wav", "sound");
    m4r("e.m4r", 2, {"-c:a", "aac"});
    std::filesystem::resize_file(ringtone("e.m4r"), 5000);
    EXPECT_THAT(phone().wouldNotPlay(),
                ElementsAre(isUnplayable("a.m4r", "no sound"), isUnplayable("b.mp3", "no sound"),
                            isUnplayable("c.m4r", "no sound"), isUnplayable("d.wav", "no sound"),
                            isUnplayable("e.m4r", "no sound")));
}

TEST_F(Playing, TheNameMustBeThatOfTheType) {
    song("a.m4r", 2, {"-c:a", "libmp3lame", "-f", "mp3"});
    m4r("b.mp3", 2, {"-c:a", "aac"});
    m4r("c.txt", 2, {"-c:a", "aac"});
    m4r("d", 2, {"-c:a", "aac"});
    EXPECT_THAT(phone().wouldNotPlay(), ElementsAre(isUnplayable("a.m4r", "another type"),
                                                    isUnplayable("b.mp3", "another type"),
                                                    isUnplayable("c.txt", "by its name"),
                                                    isUnplayable("d", "by its name")));
}

TEST_F(Playing, AnEmptyM4rBesideARingtoneOfAnotherTypeIsItsPlaceholder) {
    song("a.mp3", 2, {"-c:a", "libmp3lame"});
    put(std::string(kFolder) + "a.m4r", "");
    put(std::string(kFolder) + "b.m4r", "");
    EXPECT_THAT(phone().wouldNotPlay(), ElementsAre(isUnplayable("b.m4r", "no sound")));
}

TEST_F(Playing, NoLinkLeadsOutOfThePhone) {
    const std::filesystem::path outside = temporaryFolder() / "outside.m4r";
    makeSong(outside, kNote, 1, {"-c:a", "aac", "-f", "ipod"});
    std::filesystem::create_symlink(outside, ringtone("a.m4r"));
    EXPECT_THAT(phone().wouldNotPlay(), ElementsAre(isUnplayable("a.m4r", "cannot be opened")));
}

TEST_F(PlayingOnLaterFirmware, OnlyM4rPlays) {
    m4r("a.m4r", 2, {"-c:a", "aac"});
    m4r("b.m4a", 2, {"-c:a", "aac"});
    EXPECT_THAT(phone().wouldNotPlay(), ElementsAre(isUnplayable("b.m4a", "1.1.3")));
}

TEST_F(StrictPlaying, WhatIsStoredIsJudgedBeforeItsAnswer) {
    AfcWire afc(bus(), id());
    upload(afc, std::string(kFolder) + "a.m4r", "words");
    EXPECT_THAT(told(), ElementsAre(isUnplayable("a.m4r", "no sound")));
    const std::string folder = std::string("/iTunes_Control/../") + kFolder;
    upload(afc, folder + "b.tmp", "words");
    EXPECT_EQ(told().size(), 1U) << "it may get another name";
    afc.ask(afc::kRename, pathArgument(folder + "b.tmp") + pathArgument(folder + "b.m4r"));
    EXPECT_THAT(told(), ElementsAre(isUnplayable("a.m4r", ""), isUnplayable("b.m4r", "no sound")));
}

TEST_F(StrictPlaying, SaysNothingOfWhatPlaysIsReadOrLiesElsewhere) {
    makeSong(temporaryFolder() / "song.m4a", kNote, 1);
    std::ifstream song(temporaryFolder() / "song.m4a", std::ios::binary);
    AfcWire afc(bus(), id());
    upload(afc, std::string(kFolder) + "a.m4r", {std::istreambuf_iterator<char>(song), {}});
    upload(afc, std::string(kFolder) + "b.m4r", "");
    upload(afc, "/iTunes_Control/iTunes/a.m4r", "words");
    put(std::string(kFolder) + "c.m4r", "words");
    afc.close(afc.open(std::string(kFolder) + "c.m4r", afc::kModeRead));
    EXPECT_THAT(told(), IsEmpty());
}

TEST(PlayingProgram, SaysWhatWouldNotPlayAndEndsWithThree) {
    const TemporaryFolder folder;
    const std::filesystem::path ringtones = folder.path() / "phone/iTunes_Control/Ringtones";
    std::filesystem::create_directories(ringtones);
    const std::vector<std::string> command{
        KRL_VIRTUALPHONE, "--root", (folder.path() / "phone").string(), "--strict-audio", "--"};
    const auto runWith = [&](const std::string& text) {
        std::vector<std::string> all = command;
        all.insert(all.end(), {"sh", "-c", text});
        return run(all);
    };
    makeSong(ringtones / "a.m4r", kNote, 1, {"-f", "ipod"});
    EXPECT_EQ(runWith("exit 0").status, 0);
    EXPECT_EQ(runWith("exit 7").status, 7);
    makeSong(ringtones / "b\n.m4r", kNote, 1, {"-c:a", "flac", "-f", "ogg"});
    const Outcome outcome = runWith("exit 0");
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.output, HasSubstr("would not play: \"b?.m4r\": FLAC in Ogg\n"));
    EXPECT_EQ(runWith("exit 7").status, 7) << "the command's own comes first";
}

TEST(PlayingProgram, SaysWhenThereIsNoFfprobe) {
    const TemporaryFolder folder;
    const std::string root = (folder.path() / "phone").string();
    const Outcome outcome = run({"env", "PATH=" + folder.path().string(), KRL_VIRTUALPHONE,
                                 "--root", root, "--strict-audio", "--", "/bin/true"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.output, AllOf(HasSubstr("ffprobe"), HasSubstr("package ffmpeg")));
}

} // namespace virtualphone::testing
