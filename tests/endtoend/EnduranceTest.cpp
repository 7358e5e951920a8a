// What must not grow, however often it is done.
#include "tests/endtoend/SyncFixture.h"

#include <cstdio>
#include <iterator>

namespace krl::test {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSanitized = true;
constexpr int kTimes = 100;
#else
constexpr bool kIsSanitized = false;
constexpr int kTimes = 1000;
#endif

long descriptorsInUse() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
}

class Endurance : public SyncTest {};

} // namespace

TEST(EnduranceOfSyncs, AThousandLeaveNeitherMemoryNorDescriptorsBehind) {
    if (kIsSanitized) {
        GTEST_SKIP() << "a sanitizer has a heap of its own";
    }
    const virtualphone::testing::TemporaryFolder folder;
    const auto file = folder.path() / "tone.m4r";
    std::ofstream(file, std::ios::binary) << std::string(100'000, 'x');
    // Each time is two syncs.
    const std::string command = std::string(VIRTUALPHONE) + " --root '" +
                                (folder.path() / "phone").string() + "' -- " ENDURANCE_PROBE " '" +
                                file.string() + "' " + std::to_string(kTimes / 2);
    FILE* output = popen(command.c_str(), "r");
    ASSERT_NE(output, nullptr);
    long blocksEarly = 0;
    long blocksLate = 0;
    long descriptorsEarly = 0;
    long descriptorsLate = 0;
    const int fields = std::fscanf(output, "%ld %ld %ld %ld", &blocksEarly, &descriptorsEarly,
                                   &blocksLate, &descriptorsLate);
    ASSERT_EQ(pclose(output), 0) << command;
    ASSERT_EQ(fields, 4);
    EXPECT_EQ(descriptorsLate, descriptorsEarly);
    // Caches may fill; one block a sync would be hundreds.
    EXPECT_LE(blocksLate, blocksEarly + 20);
    EXPECT_GT(blocksEarly, 0);
}

TEST_F(Endurance, AThousandArrivalsAndRemovalsLeaveNoDescriptorBehind) {
    long early = 0;
    uint32_t plugged = id();
    for (int i = 1; i <= kTimes; ++i) {
        bus().unplug(plugged);
        ASSERT_TRUE(runUntil([this] { return !hasPhone(); })) << "no removal";
        plugged = bus().plug(phonePointer());
        ASSERT_TRUE(runUntil([this] { return hasPhone(); })) << "no arrival";
        if (i == kTimes / 10) {
            early = descriptorsInUse();
        }
    }
    // The phone's ends of connections close when they close; one an arrival would be hundreds.
    EXPECT_LE(descriptorsInUse(), early + 20);
    EXPECT_TRUE(loadedNames().empty()) << "the last one works as the first";
}

} // namespace krl::test
