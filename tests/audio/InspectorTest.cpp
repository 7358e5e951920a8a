#include "audio/judging/Inspector.h"

#include "engine/errors/Failure.h"
#include "engine/files/RegularFile.h"
#include "tests/support/HostileFiles.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <fstream>

using namespace krl::audio;
using krl::engine::Failure;
using krl::engine::FailureKind;
using testing::HasSubstr;
namespace fs = std::filesystem;

namespace {

const fs::path kSamples = KRL_SAMPLES;

class Inspecting : public testing::Test {
protected:
    fs::path make(const std::string& name, const std::string& bytes) const {
        std::ofstream(folder_.path() / name, std::ios::binary) << bytes;
        return folder_.path() / name;
    }

    void expectFailure(const fs::path& path, FailureKind kind, const std::string& part) {
        try {
            inspector_.inspect(path);
            ADD_FAILURE() << path << " was inspected";
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.kind(), kind) << path;
            EXPECT_THAT(failure.what(), HasSubstr(path.string()));
            EXPECT_THAT(failure.what(), HasSubstr(part));
            EXPECT_NE(failure.advice(), "");
        }
    }

    virtualphone::testing::TemporaryFolder folder_;
    Inspector inspector_;
};

} // namespace

TEST_F(Inspecting, SamplesAreWhatTheyAre) {
    const Inspection sunrise = inspector_.inspect(kSamples / "sunrise.m4r");
    EXPECT_EQ(sunrise.judgement.verdict, Verdict::Plays);
    EXPECT_EQ(sunrise.facts.title, "Sunrise 🌅");
    EXPECT_EQ(sunrise.size, fs::file_size(kSamples / "sunrise.m4r"));
    for (const char* name : {"harp.m4a", "bells.mp3", "two-tone.mp3", "tick.wav", "horn.aiff"}) {
        EXPECT_EQ(inspector_.inspect(kSamples / name).judgement.verdict,
                  Verdict::PlaysOnOlderFirmware)
            << name;
    }
}

TEST_F(Inspecting, WhatIsNoSongIsJudgedByItsContent) {
    std::string text;
    for (int i = 0; i < 10'000; ++i) {
        text += "All work and no play makes Jack a dull boy.\n";
    }
    for (const char* name : {"text.mp3", "text.m4r", "text.wav", "text"}) {
        EXPECT_EQ(inspector_.inspect(make(name, text)).judgement.verdict, Verdict::CannotBeUsed)
            << name;
    }
}

TEST_F(Inspecting, AFileThatEndsItsReaderIsAnErrorAndTheNextOneIsRead) {
    const fs::path hostile = make("nested.m4a", krl::test::nestedAtoms(80'000));
    for (int i = 0; i < 3; ++i) {
        expectFailure(hostile, FailureKind::UnreadableFile, "memory or time");
        EXPECT_EQ(inspector_.inspect(kSamples / "sunrise.m4r").judgement.verdict, Verdict::Plays);
    }
}

TEST_F(Inspecting, WhatIsNoRegularFileIsNotWaitedFor) {
    const fs::path pipe = folder_.path() / "pipe.mp3";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    fs::create_symlink("/dev/zero", folder_.path() / "endless.mp3");
    expectFailure(pipe, FailureKind::UnreadableFile, "pipe");
    expectFailure(folder_.path() / "endless.mp3", FailureKind::UnreadableFile, "device");
    expectFailure(folder_.path(), FailureKind::UnreadableFile, "folder");
    expectFailure(folder_.path() / "none.mp3", FailureKind::UnreadableFile, "No such file");
    expectFailure(make("empty.mp3", ""), FailureKind::EmptyFile, "empty");
}

TEST_F(Inspecting, AMissingReaderIsSaid) {
    const krl::engine::RegularFile file(kSamples / "bells.mp3", "");
    for (const char* program : {"", "/nowhere/vesk-tags"}) {
        FactsReader reader(program);
        try {
            reader.factsOf("bells.mp3", file.descriptor());
            ADD_FAILURE() << "read by \"" << program << '"';
        } catch (const Failure& failure) {
            EXPECT_THAT(failure.what(), HasSubstr("vesk-tags"));
        }
    }
}
