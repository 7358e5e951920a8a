#include "audio/judging/Judgement.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

using krl::audio::judge;
using krl::audio::Judgement;
using krl::audio::Verdict;
using krl::tags::AudioFacts;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/// A file that plays everywhere.
AudioFacts ringtone() {
    return {.container = "MPEG-4",
            .codec = "AAC-LC",
            .channels = 2,
            .sampleRate = 44100,
            .bits = 16,
            .kilobits = 128,
            .lengthMs = 30'000};
}

AudioFacts other(const char* container, const char* codec, int bits = 0) {
    AudioFacts facts = ringtone();
    facts.container = container;
    facts.codec = codec;
    facts.bits = bits;
    return facts;
}

struct Format {
    const char* rule;
    AudioFacts facts;
    const char* extension;
    Verdict verdict;
};

struct Bound {
    const char* rule;
    std::function<void(AudioFacts&)> change;
    const char* reason; ///< null: it plays
};

} // namespace

TEST(Judging, FormatAndEndingDecideTogether) {
    const Format rows[] = {
        {"m4r", ringtone(), "m4r", Verdict::Plays},
        {"m4a", ringtone(), "m4a", Verdict::PlaysOnOlderFirmware},
        {"m4p that is not encrypted", ringtone(), "m4p", Verdict::PlaysOnOlderFirmware},
        {"AAC by another name", ringtone(), "mp4", Verdict::WantsPreparing},
        {"AAC without a name", ringtone(), "", Verdict::WantsPreparing},
        {"MP3", other("MPEG audio", "MP3"), "mp3", Verdict::PlaysOnOlderFirmware},
        {"MP3 as m4r", other("MPEG audio", "MP3"), "m4r", Verdict::WantsPreparing},
        {"MP3 in MPEG-4", other("MPEG-4", "MP3"), "m4r", Verdict::WantsPreparing},
        {"layer 2", other("MPEG audio", "MPEG layer 2"), "mp3", Verdict::WantsPreparing},
        {"wave", other("WAVE", "PCM", 16), "wav", Verdict::PlaysOnOlderFirmware},
        {"wave, 8 bits", other("WAVE", "PCM", 8), "wav", Verdict::PlaysOnOlderFirmware},
        {"wave, 24 bits", other("WAVE", "PCM", 24), "wav", Verdict::WantsPreparing},
        {"wave, float", other("WAVE", "floating-point PCM", 32), "wav", Verdict::WantsPreparing},
        {"aiff", other("AIFF", "PCM", 16), "aiff", Verdict::PlaysOnOlderFirmware},
        {"aif", other("AIFF", "PCM", 16), "aif", Verdict::PlaysOnOlderFirmware},
        {"wave as aiff", other("WAVE", "PCM", 16), "aiff", Verdict::WantsPreparing},
        {"Apple Lossless", other("MPEG-4", "Apple Lossless", 16), "m4r", Verdict::WantsPreparing},
        {"HE-AAC", other("MPEG-4", "HE-AAC"), "m4r", Verdict::WantsPreparing},
        {"FLAC", other("FLAC", "FLAC", 16), "flac", Verdict::WantsPreparing},
        {"no known file", AudioFacts{}, "m4r", Verdict::CannotBeUsed},
    };
    for (const Format& row : rows) {
        const Judgement judgement = judge(row.facts, row.extension);
        EXPECT_EQ(judgement.verdict, row.verdict) << row.rule;
        EXPECT_EQ(judgement.reasons.empty(),
                  row.verdict == Verdict::Plays || row.verdict == Verdict::PlaysOnOlderFirmware)
            << row.rule;
    }
}

TEST(Judging, EveryBoundHasItsReason) {
    const Bound rows[] = {
        {"lowest rate", [](AudioFacts& facts) { facts.sampleRate = 8000; }, nullptr},
        {"below it", [](AudioFacts& facts) { facts.sampleRate = 7999; }, "7.999 kHz"},
        {"highest rate", [](AudioFacts& facts) { facts.sampleRate = 48000; }, nullptr},
        {"above it", [](AudioFacts& facts) { facts.sampleRate = 96000; }, "96 kHz"},
        {"one channel", [](AudioFacts& facts) { facts.channels = 1; }, nullptr},
        {"three channels", [](AudioFacts& facts) { facts.channels = 3; }, "3 channels"},
        {"highest bit rate", [](AudioFacts& facts) { facts.kilobits = 320; }, nullptr},
        {"above it", [](AudioFacts& facts) { facts.kilobits = 321; }, "321 kbit/s"},
        {"longest", [](AudioFacts& facts) { facts.lengthMs = 40'999; }, nullptr},
        {"just longer", [](AudioFacts& facts) { facts.lengthMs = 41'000; }, "0:41"},
        {"longer", [](AudioFacts& facts) { facts.lengthMs = 90'000; }, "1:30"},
        {"largest picture", [](AudioFacts& facts) { facts.pictureBytes = 2 << 20; }, nullptr},
        {"larger", [](AudioFacts& facts) { facts.pictureBytes = 50 << 20; },
         "a picture of 50.0 MiB"},
        {"encrypted", [](AudioFacts& facts) { facts.encrypted = true; }, "encrypted"},
    };
    for (const Bound& row : rows) {
        AudioFacts facts = ringtone();
        row.change(facts);
        const Judgement judgement = judge(facts, "m4r");
        if (row.reason == nullptr) {
            EXPECT_EQ(judgement.verdict, Verdict::Plays) << row.rule;
        } else {
            EXPECT_NE(judgement.verdict, Verdict::Plays) << row.rule;
            EXPECT_THAT(judgement.reasons, ElementsAre(HasSubstr(row.reason))) << row.rule;
        }
    }
}

TEST(Judging, AllReasonsAreGiven) {
    AudioFacts facts = other("WAVE", "PCM", 24);
    facts.channels = 8;
    facts.sampleRate = 192'000;
    facts.lengthMs = 4 * 3'600'000;
    EXPECT_THAT(judge(facts, "mp3").reasons,
                ElementsAre(HasSubstr("\".wav\""), HasSubstr("192 kHz"), HasSubstr("8 channels"),
                            HasSubstr("24 bits"), HasSubstr("4:00:00")));
}

TEST(Judging, AnEncryptedFileCannotBeUsedWhateverElseItIs) {
    AudioFacts facts;
    facts.encrypted = true;
    EXPECT_EQ(judge(facts, "m4p").verdict, Verdict::CannotBeUsed);
    EXPECT_THAT(judge(facts, "m4p").reasons, ElementsAre(HasSubstr("encrypted")));
}
