// What a sync takes of memory, measured in a process of its own.

#include "tests/support/VirtualPhoneFixture.h"

#include <cstdio>
#include <cstdlib>

namespace {

using virtualphone::testing::TemporaryFolder;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = false;
#endif

TEST(Memory, ASyncOfAHundredFilesOfOneMebibyteStaysBelowTwenty) {
    if (kIsSanitized) {
        GTEST_SKIP() << "a sanitizer's own memory is counted too";
    }
    const TemporaryFolder folder;
    const auto file = folder.path() / "tone.m4r";
    std::ofstream(file, std::ios::binary) << std::string(1024 * 1024, 'x');
    const std::string command = std::string(VIRTUALPHONE) + " --root '" +
                                (folder.path() / "phone").string() + "' -- " MEMORY_PROBE " '" +
                                file.string() + "' 100";
    FILE* output = popen(command.c_str(), "r");
    ASSERT_NE(output, nullptr);
    long kib = -1;
    const int fields = std::fscanf(output, "%ld", &kib);
    ASSERT_EQ(pclose(output), 0) << command;
    ASSERT_EQ(fields, 1);
    EXPECT_LT(kib, 20 * 1024);
    EXPECT_GT(kib, 0);
}

} // namespace
