#include "engine/files/ContentDigests.h"

#include "tests/support/TemporaryFolder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

using namespace krl::engine;
namespace fs = std::filesystem;

namespace {

class ContentDigestsTest : public testing::Test {
protected:
    fs::path make(const std::string& name, const std::string& content) const {
        std::ofstream(folder_ / name, std::ios::binary) << content;
        return folder_ / name;
    }

    /// By a new one, as in another run, by default when nobody has touched the file for long.
    Digest digestOf(const fs::path& path,
                    std::chrono::seconds later = std::chrono::hours{1}) const {
        const auto now = [later] { return ContentDigests::Clock::now() + later; };
        return ContentDigests(place_, now).of(RegularFile(path, ""));
    }

    /// What is remembered of the only file there is, replaced by that of another content.
    void rememberWrongly(const std::string& wrong, const std::string& right) const {
        std::ifstream file(place_, std::ios::binary);
        std::string sum;
        std::getline(file, sum);
        std::string rest{std::istreambuf_iterator<char>(file), {}};
        const std::string hex = krl::engine::digestOf(right).hex();
        ASSERT_NE(rest.find(hex), std::string::npos) << rest;
        rest.replace(rest.find(hex), hex.size(), krl::engine::digestOf(wrong).hex());
        std::ofstream(place_, std::ios::binary) << krl::engine::digestOf(rest).hex() << '\n'
                                                << rest;
    }

    const virtualphone::testing::TemporaryFolder temporary_;
    const fs::path& folder_ = temporary_.path();
    const fs::path place_ = folder_ / "kept" / "digests";
};

} // namespace

TEST_F(ContentDigestsTest, IsThatOfTheContent) {
    const fs::path path = make("a", std::string(200'000, 'x'));
    EXPECT_EQ(digestOf(path), krl::engine::digestOf(std::string(200'000, 'x')));
    EXPECT_EQ(digestOf(make("a", "other")), krl::engine::digestOf("other"));
}

TEST_F(ContentDigestsTest, AFileThatWasNotTouchedIsNotReadAgain) {
    const fs::path path = make("a", "first");
    EXPECT_EQ(digestOf(path), krl::engine::digestOf("first"));
    // That it is not read shows in what is believed of it.
    rememberWrongly("believed", "first");
    EXPECT_EQ(digestOf(path), krl::engine::digestOf("believed"));
}

TEST_F(ContentDigestsTest, AFileOfTheSameSizeAndTimeWithOtherContentIsNoticed) {
    const fs::path path = make("a", "first");
    struct stat before = {};
    ASSERT_EQ(stat(path.c_str(), &before), 0);
    EXPECT_EQ(digestOf(path), krl::engine::digestOf("first"));
    make("a", "other");
    const timespec times[] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    EXPECT_EQ(digestOf(path), krl::engine::digestOf("other"));
}

TEST_F(ContentDigestsTest, AFileThatWasWrittenAMomentAgoIsNotRemembered) {
    const fs::path path = make("a", "first");
    digestOf(path, -std::chrono::hours{1});
    EXPECT_FALSE(fs::exists(place_)) << "by a clock that is behind too";
    digestOf(path);
    EXPECT_TRUE(fs::exists(place_));
}

TEST_F(ContentDigestsTest, AFileThatIsWrittenWhileItIsReadIsNotRemembered) {
    const fs::path path = make("a", "first");
    ContentDigests(place_, [&] {
        make("a", "and more");
        return std::chrono::system_clock::now() + std::chrono::hours{1};
    }).of(RegularFile(path, ""));
    EXPECT_FALSE(fs::exists(place_));
}

TEST_F(ContentDigestsTest, ADamagedPlaceIsAnEmptyOne) {
    const fs::path path = make("a", "first");
    digestOf(path);
    const auto size = fs::file_size(place_);
    for (const uintmax_t kept : {uintmax_t{0}, uintmax_t{10}, size - 1}) {
        fs::resize_file(place_, kept);
        EXPECT_EQ(digestOf(path), krl::engine::digestOf("first")) << kept;
        EXPECT_EQ(fs::file_size(place_), size) << "written anew";
    }
}

TEST_F(ContentDigestsTest, APlaceThatCannotBeWrittenIsNoFailure) {
    make("kept", "a file where the folder should be");
    const fs::path path = make("a", "first");
    EXPECT_EQ(digestOf(path), krl::engine::digestOf("first"));
    EXPECT_EQ(ContentDigests("").of(RegularFile(path, "")), krl::engine::digestOf("first"));
}
