#include "confined/ConfinedProcess.h"

#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <future>
#include <stop_token>
#include <system_error>

using namespace krl::confined;
using testing::Eq;
using testing::Optional;
using testing::SizeIs;
using virtualphone::testing::TemporaryFolder;
namespace fs = std::filesystem;

namespace {

constexpr std::chrono::minutes kLong{10};

class Packets : public testing::Test {
protected:
    Packets() {
        std::array<int, 2> sockets{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets.data()), 0);
        here_ = OpenFile(sockets[0]);
        there_ = OpenFile(sockets[1]);
    }

    OpenFile here_;
    OpenFile there_;
};

class Processes : public testing::Test {
protected:
    fs::path program(const std::string& does) const {
        const fs::path path = folder_.path() / "program";
        std::ofstream(path) << "#!/bin/sh\n" + does + "\n";
        fs::permissions(path, fs::perms::owner_all);
        return path;
    }

    TemporaryFolder folder_;
};

} // namespace

TEST_F(Packets, AnEmptyTextIsNotTheEnd) {
    ASSERT_TRUE(sendPacket(here_.get(), ""));
    const auto packet = receivePacket(there_.get(), 10);
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->text, "");
    here_ = OpenFile();
    EXPECT_FALSE(receivePacket(there_.get(), 10));
}

TEST_F(Packets, FilesComeBesideTheText) {
    const OpenFile file(open(KRL_SOME_FILE, O_RDONLY | O_CLOEXEC));
    const std::array<int, 2> files{file.get(), file.get()};
    ASSERT_TRUE(sendPacket(here_.get(), "two", files));
    const auto packet = receivePacket(there_.get(), 10);
    ASSERT_TRUE(packet);
    ASSERT_THAT(packet->files, SizeIs(2));
    char first = 0;
    EXPECT_EQ(read(packet->files[1].get(), &first, 1), 1);
    EXPECT_NE(packet->files[0].get(), file.get());
}

TEST_F(Packets, ALongerTextIsCutOff) {
    ASSERT_TRUE(sendPacket(here_.get(), "abcdef"));
    const auto packet = receivePacket(there_.get(), 3);
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->text, "abc");
}

TEST_F(Packets, NobodyThereIsNotSent) {
    there_ = OpenFile();
    EXPECT_FALSE(sendPacket(here_.get(), "anyone?"));
}

TEST_F(Packets, OnlyASocketOfPacketsIsOne) {
    EXPECT_TRUE(isPacketSocket(here_.get()));
    const OpenFile file(open(KRL_SOME_FILE, O_RDONLY | O_CLOEXEC));
    EXPECT_FALSE(isPacketSocket(file.get()));
}

TEST_F(Processes, OneThatCannotBeStartedIsAnError) {
    EXPECT_THROW(ConfinedProcess("/nowhere/program"), std::system_error);
}

TEST_F(Processes, OneThatEndsFirstDoesNotAnswer) {
    ConfinedProcess process(program("exit 0"));
    EXPECT_EQ(process.ask("who?", {}, 10, kLong), std::nullopt);
}

TEST_F(Processes, OneThatIsSilentIsWaitedForUntilThatIsStopped) {
    ConfinedProcess process(program("read line; read line"));
    std::stop_source source;
    std::future<std::optional<std::string>> answer = std::async(std::launch::async, [&] {
        return process.ask("who?", {}, 10, std::chrono::hours{24}, source.get_token());
    });
    source.request_stop();
    EXPECT_EQ(answer.get(), std::nullopt);
    EXPECT_EQ(process.ask("who?", {}, 10, kLong), std::nullopt) << "nor later";
}

TEST_F(Processes, OneThatIsSilentIsNotWaitedForAndIsEnded) {
    // It opens the pipe, which this side sees, and closes it by ending only.
    const fs::path pipe = folder_.path() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    OpenFile reader(open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    {
        ConfinedProcess process(program("exec 9>'" + pipe.string() + "'; echo on >&9; read line"));
        const OpenFile waiting(open(pipe.c_str(), O_RDONLY | O_CLOEXEC));
        char byte = 0;
        ASSERT_EQ(read(waiting.get(), &byte, 1), 1);
        EXPECT_EQ(process.ask("who?", {}, 10, std::chrono::milliseconds{1}), std::nullopt);
    }
    std::array<char, 16> rest{};
    while (read(reader.get(), rest.data(), rest.size()) > 0) {
    }
    EXPECT_EQ(read(reader.get(), rest.data(), rest.size()), 0);
}

TEST_F(Processes, ItHasItsSocketAndNothingElse) {
    const fs::path list = folder_.path() / "list";
    const OpenFile other(open(KRL_SOME_FILE, O_RDONLY));
    const OpenFile more(dup2(other.get(), 9)); // neither is closed by starting a program
    ConfinedProcess process(program("out=$(readlink /proc/$$/fd/1)\n"
                                    "for n in 3 4 5 6 7 8 9; do\n"
                                    "  [ ! -e /proc/$$/fd/$n ] || echo $n >> '" +
                                    list.string() +
                                    "'\n"
                                    "done\n"
                                    "echo $out >> '" +
                                    list.string() + "'"));
    EXPECT_EQ(process.ask("who?", {}, 10, kLong), std::nullopt); // it has ended now
    std::ifstream file(list);
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    EXPECT_EQ(text, "/dev/null\n");
}
