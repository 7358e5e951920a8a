#include "tags/Facts.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>

using namespace krl::tags;

namespace {

AudioFacts ofSample(const std::string& name, const std::string& as) {
    return factsOf(as, open((KRL_SAMPLES "/" + name).c_str(), O_RDONLY | O_CLOEXEC));
}

std::string littleEndian(uint32_t value, size_t bytes) {
    std::string result;
    for (size_t i = 0; i < bytes; ++i) {
        result += static_cast<char>(value >> (8 * i) & 0xFFU);
    }
    return result;
}

/// A wave file of one second of silence.
std::string wave(uint32_t format, uint32_t channels, uint32_t rate, uint32_t bits) {
    const uint32_t frame = channels * bits / 8;
    const std::string head = "fmt " + littleEndian(16, 4) + littleEndian(format, 2) +
                             littleEndian(channels, 2) + littleEndian(rate, 4) +
                             littleEndian(rate * frame, 4) + littleEndian(frame, 2) +
                             littleEndian(bits, 2);
    const std::string data =
        "data" + littleEndian(rate * frame, 4) + std::string(size_t{rate} * frame, '\0');
    return "RIFF" + littleEndian(static_cast<uint32_t>(4 + head.size() + data.size()), 4) + "WAVE" +
           head + data;
}

AudioFacts ofBytes(const std::string& bytes) {
    const int file = memfd_create("song", MFD_CLOEXEC);
    EXPECT_EQ(write(file, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    return factsOf("song", file);
}

std::string bytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

} // namespace

TEST(FactsOf, AnMpeg4FileSayProfileTitleAndLength) {
    const AudioFacts facts = ofSample("sunrise.m4r", "sunrise.m4r");
    EXPECT_EQ(facts.container, "MPEG-4");
    EXPECT_EQ(facts.codec, "AAC-LC");
    EXPECT_EQ(facts.channels, 1);
    EXPECT_EQ(facts.sampleRate, 8000);
    EXPECT_NEAR(static_cast<double>(facts.lengthMs), 2400, 150);
    EXPECT_EQ(facts.title, "Sunrise 🌅");
    EXPECT_FALSE(facts.encrypted);
}

TEST(FactsOf, TheContentDecidesWhateverTheNameSays) {
    for (const char* name : {"bells.mp3", "bells.m4r", "bells", "bells.wav"}) {
        EXPECT_EQ(ofSample("bells.mp3", name).codec, "MP3") << name;
    }
    EXPECT_EQ(ofSample("horn.aiff", "horn.mp3").container, "AIFF");
    EXPECT_EQ(ofSample("tick.wav", "tick.m4r").container, "WAVE");
    EXPECT_EQ(ofSample("tick.wav", "tick.wav").title, "Tick Tock");
}

TEST(FactsOf, WaveFilesSayBitsAndKind) {
    EXPECT_EQ(ofBytes(wave(1, 2, 44100, 16)).codec, "PCM");
    EXPECT_EQ(ofBytes(wave(1, 2, 44100, 24)).bits, 24);
    const AudioFacts wide = ofBytes(wave(3, 8, 192000, 32));
    EXPECT_EQ(wide.codec, "floating-point PCM");
    EXPECT_EQ(wide.channels, 8);
    EXPECT_EQ(wide.sampleRate, 192000);
}

TEST(FactsOf, ARateOfZeroIsNoSound) {
    EXPECT_FALSE(ofBytes(wave(1, 2, 0, 16)).hasSound());
}

TEST(FactsOf, TextIsNoAudioFileWhateverItsName) {
    EXPECT_EQ(factsOf("song.mp3", open(__FILE__, O_RDONLY | O_CLOEXEC)), AudioFacts{});
    EXPECT_EQ(factsOf("song.m4r", open(__FILE__, O_RDONLY | O_CLOEXEC)), AudioFacts{});
}

TEST(FactsOf, AnMpeg4FileOfAnotherSampleEntryIsEncrypted) {
    std::string bytes = bytesOf(KRL_SAMPLES "/sunrise.m4r");
    bytes.replace(bytes.rfind("mp4a"), 4, "drms");
    EXPECT_TRUE(ofBytes(bytes).encrypted);
}
