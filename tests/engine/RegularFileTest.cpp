#include "engine/files/RegularFile.h"

#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <fstream>

using testing::HasSubstr;
using namespace krl::engine;

namespace {

std::string whyUnreadable(const std::filesystem::path& path) {
    try {
        const RegularFile file(path, "advice");
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.advice(), "advice");
        return failure.what();
    }
    return "readable";
}

class RegularFiles : public testing::Test {
protected:
    std::filesystem::path path(const std::string& name, const std::string& bytes = {}) const {
        std::filesystem::path result = folder_.path() / name;
        std::ofstream(result) << bytes;
        return result;
    }

    virtualphone::testing::TemporaryFolder folder_;
};

} // namespace

TEST_F(RegularFiles, WhatIsNoRegularFileIsNotWaitedFor) {
    const std::filesystem::path pipe = folder_.path() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_THAT(whyUnreadable(pipe), HasSubstr("a pipe, a device or a socket"));
    EXPECT_THAT(whyUnreadable("/dev/zero"), HasSubstr("a pipe, a device or a socket"));
    EXPECT_THAT(whyUnreadable(folder_.path()), HasSubstr("a folder"));
    EXPECT_THAT(whyUnreadable("/nowhere/at/all"), HasSubstr("No such file"));
}

TEST_F(RegularFiles, AreReadUpToALimitAndNotBeyond) {
    const RegularFile five(path("five", "sound"), "");
    EXPECT_EQ(five.size(), 5U);
    EXPECT_EQ(five.bytes(5), "sound");
    const RegularFile tooLarge(path("large", "sound"), "");
    EXPECT_THROW(tooLarge.bytes(4), Failure);
}

TEST_F(RegularFiles, AFileThatHidesItsSizeIsRead) {
    EXPECT_THAT(RegularFile("/proc/self/status", "").bytes(1U << 20U), HasSubstr("Pid:"));
}

TEST_F(RegularFiles, AreKnownByTheDigestOfAllTheyHold) {
    const RegularFile file(path("five", "sound"), "");
    EXPECT_EQ(file.digest(), digestOf("sound"));
    EXPECT_EQ(file.bytes(5), "sound") << "it can be read all the same";
}
