#include "confined/Confinement.h"

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

using testing::ExitedWithCode;
using testing::KilledBySignal;
using virtualphone::testing::TemporaryFolder;

namespace {

constexpr krl::confined::Allowance kAllowance{.memoryBytes = 256U << 20U, .descriptors = 4};

class Confinement : public testing::Test {
protected:
    void SetUp() override {
#ifdef KRL_UNCONFINED
        GTEST_SKIP() << "a sanitizer needs what is taken away here";
#endif
    }

    std::string path(const char* name) const {
        return (folder_.path() / name).string();
    }

private:
    TemporaryFolder folder_;
};

/// Ends a process that has found out something, by the one way that stays open.
[[noreturn]] void leave(bool asWished) {
    _exit(asWished ? 0 : 1);
}

void computeFor(std::chrono::milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) {
    }
}

} // namespace

TEST_F(Confinement, NoFileIsMade) {
    EXPECT_EXIT(
        {
            krl::confined::confine(kAllowance);
            leave(open(path("new").c_str(), O_CREAT | O_WRONLY, 0600) < 0);
        },
        ExitedWithCode(0), "");
    EXPECT_FALSE(std::filesystem::exists(path("new")));
}

TEST_F(Confinement, NothingIsWrittenToAFileThatIsOpen) {
    const int file = open(path("open").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    EXPECT_EXIT(
        {
            krl::confined::confine(kAllowance);
            leave(write(file, "x", 1) < 0);
        },
        ExitedWithCode(0), "");
    close(file);
    EXPECT_EQ(std::filesystem::file_size(path("open")), 0U);
}

TEST_F(Confinement, WhereWritingIsAllowedItHasAnEnd) {
    const int file = open(path("open").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    EXPECT_EXIT(
        {
            krl::confined::Allowance allowance = kAllowance;
            allowance.writtenBytes = 2;
            krl::confined::confine(allowance);
            leave(write(file, "abc", 3) == 2);
        },
        ExitedWithCode(0), "");
    close(file);
    EXPECT_EQ(std::filesystem::file_size(path("open")), 2U);
}

TEST_F(Confinement, NoOtherFileIsOpenedAndNothingIsReachedOverTheNetwork) {
    close(open(path("there").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    EXPECT_EXIT(
        {
            krl::confined::confine(kAllowance);
            leave(open(path("there").c_str(), O_RDONLY | O_CLOEXEC) < 0 &&
                  socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0) < 0 &&
                  socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0) < 0);
        },
        ExitedWithCode(0), "");
}

TEST_F(Confinement, NothingIsRemoved) {
    close(open(path("old").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    EXPECT_EXIT(
        {
            krl::confined::confine(kAllowance);
            leave(unlink(path("old").c_str()) < 0);
        },
        ExitedWithCode(0), "");
    EXPECT_TRUE(std::filesystem::exists(path("old")));
}

TEST_F(Confinement, MemoryHasAnEnd) {
    EXPECT_EXIT(
        {
            krl::confined::confine(kAllowance);
            void* little = std::malloc(32U << 20U);
            void* much = std::malloc(300U << 20U);
            leave(little != nullptr && much == nullptr);
        },
        ExitedWithCode(0), "");
}

TEST_F(Confinement, NoProcessIsStarted) {
    EXPECT_EXIT(
        {
            krl::confined::confine(kAllowance);
            leave(fork() < 0);
        },
        ExitedWithCode(0), "");
}

TEST_F(Confinement, ComputingHasAnEnd) {
    EXPECT_EXIT(
        {
            krl::confined::allowComputing(std::chrono::milliseconds{20});
            computeFor(std::chrono::hours{1});
        },
        KilledBySignal(SIGPROF), "");
}

TEST_F(Confinement, TheTimeBeginsAnewWithEachFile) {
    EXPECT_EXIT(
        {
            krl::confined::confine(kAllowance);
            krl::confined::allowComputing(std::chrono::milliseconds{20});
            krl::confined::allowComputing(std::chrono::hours{1});
            computeFor(std::chrono::milliseconds{200});
            leave(true);
        },
        ExitedWithCode(0), "");
}
