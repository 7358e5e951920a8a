#include "engine/files/TagReader.h"
#include "engine/files/LocalFile.h"
#include "engine/files/RegularFile.h"

#include "tests/support/HostileFiles.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Optional;
using namespace krl::engine;
namespace fs = std::filesystem;

namespace {

const fs::path kSamples = KRL_SAMPLES;

std::optional<std::string> titleOf(TagReader& reader, const fs::path& path) {
    const RegularFile file(path, "");
    return reader.titleOf(path, file.descriptor());
}

class TagReading : public testing::Test {
protected:
    fs::path make(const std::string& name, const std::string& bytes) const {
        std::ofstream(folder_.path() / name, std::ios::binary) << bytes;
        return folder_.path() / name;
    }

    /// A program in place of vesk-tags, which notes its starts and then does this.
    fs::path program(const std::string& does) const {
        const fs::path path =
            make("program", "#!/bin/sh\necho started >> '" + (folder_.path() / "starts").string() +
                                "'\n" + does + "\n");
        fs::permissions(path, fs::perms::owner_all);
        return path;
    }

    size_t starts() const {
        std::ifstream notes(folder_.path() / "starts");
        return static_cast<size_t>(std::count(std::istreambuf_iterator<char>(notes),
                                              std::istreambuf_iterator<char>(), '\n'));
    }

    virtualphone::testing::TemporaryFolder folder_;
};

} // namespace

TEST_F(TagReading, OneProcessReadsManyFiles) {
    TagReader reader(program("exec " + tagProgram().string()));
    EXPECT_EQ(starts(), 0U);
    for (int i = 0; i < 300; ++i) {
        EXPECT_THAT(titleOf(reader, kSamples / "bells.mp3"), Optional(std::string("Glöckchen")));
        EXPECT_THAT(titleOf(reader, kSamples / "two-tone.mp3"), Optional(std::string()));
    }
    EXPECT_EQ(starts(), 1U);
}

TEST_F(TagReading, AFileThatEndsTheProcessHasNoReadableTagsAndTheNextOneHas) {
    TagReader reader(program("exec " + tagProgram().string()));
    const fs::path hostile = make("nested.m4a", krl::test::nestedAtoms(80'000));
    EXPECT_EQ(titleOf(reader, hostile), std::nullopt);
    EXPECT_THAT(titleOf(reader, kSamples / "bells.mp3"), Optional(std::string("Glöckchen")));
    EXPECT_EQ(titleOf(reader, hostile), std::nullopt);
    EXPECT_EQ(starts(), 2U);
}

TEST_F(TagReading, AProgramThatEndsAtOnceIsAsNoReadableTags) {
    TagReader reader(program("exit 0"));
    EXPECT_EQ(titleOf(reader, kSamples / "bells.mp3"), std::nullopt);
}

TEST_F(TagReading, AMissingProgramIsSaid) {
    for (const char* program : {"", "/nowhere/vesk-tags"}) {
        TagReader reader(program);
        try {
            titleOf(reader, kSamples / "bells.mp3");
            FAIL() << "read by \"" << program << '"';
        } catch (const Failure& failure) {
            EXPECT_THAT(failure.what(), HasSubstr("vesk-tags"));
        }
    }
}

TEST_F(TagReading, ASignalThatIsIgnoredHereIsNotIgnoredThere) {
    // What ends a process that computes for too long must end it, whatever this one does about it.
    const auto before = std::signal(SIGPROF, SIG_IGN);
    TagReader reader(program("kill -PROF $$; exec " + tagProgram().string()));
    EXPECT_EQ(titleOf(reader, kSamples / "bells.mp3"), std::nullopt);
    std::signal(SIGPROF, before);
}

TEST_F(TagReading, ATitleThatIsTooLongIsNone) {
    const auto frame = [](size_t length) {
        const auto byte = [](size_t n) { return std::string(1, static_cast<char>(n & 0x7FU)); };
        const auto size = [&](size_t n) {
            return byte(n >> 21U) + byte(n >> 14U) + byte(n >> 7U) + byte(n);
        };
        const std::string text = std::string("\x03").append(length, 'a');
        const std::string whole = "TIT2" + size(text.size()) + std::string(2, '\0') + text;
        return std::string("ID3\4\0\0", 6) + size(whole.size()) + whole + std::string(64, '\0');
    };
    TagReader reader;
    EXPECT_THAT(titleOf(reader, make("longest.mp3", frame(4096))),
                Optional(std::string(4096, 'a')));
    EXPECT_THAT(titleOf(reader, make("longer.mp3", frame(4097))), Optional(std::string()));
}

TEST_F(TagReading, FilesWithoutReadableTagsAreNamedAfterTheirFilesAndKnown) {
    const fs::path hostile = make("Nested.m4a", krl::test::nestedAtoms(80'000));
    LocalFiles files;
    EXPECT_EQ(files.ringtone(kSamples / "two-tone.mp3").name, "two-tone");
    EXPECT_THAT(files.unreadableTags(), IsEmpty());
    EXPECT_EQ(files.ringtone(hostile, "Given").name, "Given");
    EXPECT_THAT(files.unreadableTags(), IsEmpty());
    EXPECT_EQ(files.ringtone(hostile).name, "Nested");
    EXPECT_THAT(files.unreadableTags(), ElementsAre(hostile.string()));
}
