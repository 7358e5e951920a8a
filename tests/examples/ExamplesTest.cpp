// The example programs as processes of their own, on a virtual phone.

#include "tests/library/objects/SyncTest.h"
#include "tests/support/VirtualPhoneFixture.h"

#include <gmock/gmock.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

/// A program with its standard input and output in pipes; errors go where the test's go.
class Program {
public:
    Program(const std::string& path, const std::vector<std::string>& arguments) {
        std::array<int, 2> input{};
        std::array<int, 2> output{};
        if (pipe2(input.data(), O_CLOEXEC) != 0 || pipe2(output.data(), O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipes");
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
        std::vector<std::string> texts = arguments;
        texts.insert(texts.begin(), path);
        std::vector<char*> pointers;
        for (std::string& text : texts) {
            pointers.push_back(text.data());
        }
        pointers.push_back(nullptr);
        const int error =
            posix_spawn(&pid_, path.c_str(), &actions, nullptr, pointers.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        close(input[0]);
        close(output[1]);
        input_ = input[1];
        output_ = output[0];
        if (error != 0) {
            throw std::runtime_error("cannot start " + path);
        }
    }

    ~Program() {
        endInput();
        close(output_);
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }

    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    void signal(int number) const { kill(pid_, number); }

    void say(const std::string& text) const {
        ASSERT_EQ(write(input_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    void endInput() {
        if (input_ >= 0) {
            close(std::exchange(input_, -1));
        }
    }

    /// The next line of the output, "(end)" when there is none any more.
    std::string line() {
        for (;;) {
            if (const size_t end = pending_.find('\n'); end != std::string::npos) {
                std::string line = pending_.substr(0, end);
                pending_.erase(0, end + 1);
                return line;
            }
            if (!readMore()) {
                return "(end)";
            }
        }
    }

    /// The rest of the output.
    std::vector<std::string> lines() {
        std::vector<std::string> all;
        for (std::string next = line(); next != "(end)"; next = line()) {
            all.push_back(next);
        }
        return all;
    }

    /// Whether the program closes its output in time, without having said anything.
    bool endsWithin(std::chrono::milliseconds time) const {
        pollfd descriptor{output_, POLLIN, 0};
        return poll(&descriptor, 1, static_cast<int>(time.count())) == 1 &&
               (descriptor.revents & POLLIN) == 0;
    }

    /// Waits for the end of the program; its exit code, or minus the signal that ended it.
    int wait() {
        int status = 0;
        waitpid(std::exchange(pid_, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

private:
    bool readMore() {
        pollfd descriptor{output_, POLLIN, 0};
        const auto patience =
            std::chrono::duration_cast<std::chrono::milliseconds>(krl::test::kPatience);
        if (poll(&descriptor, 1, static_cast<int>(patience.count())) <= 0) {
            ADD_FAILURE() << "the program says nothing";
            return false;
        }
        std::array<char, 4096> bytes{};
        const ssize_t count = read(output_, bytes.data(), bytes.size());
        if (count > 0) {
            pending_.append(bytes.data(), static_cast<size_t>(count));
        }
        return count > 0;
    }

    pid_t pid_ = -1;
    int input_ = -1;
    int output_ = -1;
    std::string pending_;
};

class Examples : public virtualphone::testing::VirtualPhoneTest {
protected:
    std::string makeFile(const std::string& name, const std::string& bytes) const {
        const std::filesystem::path path = temporaryFolder() / name;
        std::ofstream(path, std::ios::binary) << bytes;
        return path.string();
    }

    /// Contents of the files in the ringtone folder, in no order.
    std::vector<std::string> ringtoneContents() const {
        std::vector<std::string> all;
        const std::filesystem::path folder = onDisk("/iTunes_Control/Ringtones");
        if (std::filesystem::is_directory(folder)) {
            for (const auto& entry : std::filesystem::directory_iterator(folder)) {
                all.push_back(
                    contents("/iTunes_Control/Ringtones/" + entry.path().filename().string()));
            }
        }
        return all;
    }
};

// ---------------------------------------------------------------------------- ringtones

TEST_F(Examples, RingtonesListsAnEmptyPhone) {
    Program program(EXAMPLE_RINGTONES, {});
    EXPECT_THAT(program.lines(), ElementsAre("0 ringtones"));
    EXPECT_EQ(program.wait(), 0);
}

TEST_F(Examples, RingtonesPutsOneMoreOnThePhone) {
    {
        Program program(EXAMPLE_RINGTONES, {makeFile("bells.m4r", "bells"), "Bells"});
        EXPECT_THAT(program.lines(), ElementsAre("uploading 1 of 1: Bells", "1 ringtones",
                                                 "Bells (/iTunes_Control/Ringtones/BQJH.m4r)"));
        EXPECT_EQ(program.wait(), 0);
    }
    Program program(EXAMPLE_RINGTONES, {makeFile("horn.m4r", "horn"), "Horn"});
    EXPECT_EQ(program.lines().size(), 4U);
    EXPECT_EQ(program.wait(), 0);
    EXPECT_THAT(ringtoneContents(), UnorderedElementsAre("bells", "horn"));
}

TEST_F(Examples, RingtonesFailsOnAFileThatIsNotThere) {
    Program program(EXAMPLE_RINGTONES, {"/no such file.m4r", "Nothing"});
    EXPECT_THAT(program.lines(), ElementsAre("uploading 1 of 1: Nothing"));
    EXPECT_EQ(program.wait(), 1);
    EXPECT_THAT(ringtoneContents(), IsEmpty());
}

TEST_F(Examples, RingtonesExplainsItself) {
    Program program(EXAMPLE_RINGTONES, {"one argument"});
    EXPECT_EQ(program.wait(), 2);
}

// ---------------------------------------------------------------------------- sync

TEST_F(Examples, SyncMakesThePhoneHoldExactlyTheFiles) {
    const std::string bells = makeFile("bells.m4r", "bells");
    const std::string horn = makeFile("Horn.m4r", "horn");
    {
        Program program(EXAMPLE_SYNC, {bells, horn});
        EXPECT_THAT(program.lines(), ElementsAre("waiting for a phone", "uploading 1 of 2: bells",
                                                 "uploading 2 of 2: Horn", "bells", "Horn"));
        EXPECT_EQ(program.wait(), 0);
    }
    Program program(EXAMPLE_SYNC, {horn});
    EXPECT_THAT(program.lines(), ElementsAre("waiting for a phone", "Horn"));
    EXPECT_EQ(program.wait(), 0);
    EXPECT_THAT(ringtoneContents(), ElementsAre("horn"));
}

TEST_F(Examples, SyncIsCancelledByAnInterrupt) {
    bus().unplug(id());
    Program program(EXAMPLE_SYNC, {makeFile("bells.m4r", "bells")});
    EXPECT_EQ(program.line(), "waiting for a phone");
    program.signal(SIGINT);
    bus().plug(phonePointer());
    EXPECT_THAT(program.lines(), ElementsAre("uploading 1 of 1: bells"));
    EXPECT_EQ(program.wait(), 1);
    EXPECT_THAT(ringtoneContents(), IsEmpty());
}

TEST_F(Examples, SyncSaysThatItFailed) {
    Program program(EXAMPLE_SYNC, {"/no such file.m4r"});
    EXPECT_THAT(program.lines(), ElementsAre("waiting for a phone",
                                             "uploading 1 of 1: no such file", "no such file"));
    EXPECT_EQ(program.wait(), 1);
}

// ---------------------------------------------------------------------------- foreign main loops

class ForeignMainLoop : public Examples, public testing::WithParamInterface<const char*> {};

TEST_P(ForeignMainLoop, HearsOfPhonesAsTheyComeAndGo) {
    Program program(GetParam(), {});
    EXPECT_EQ(program.line(), "connected Virtual Phone");
    for (int i = 0; i < 3; ++i) {
        bus().unplug(bus().deviceId(phone()));
        EXPECT_EQ(program.line(), "removed Virtual Phone");
        bus().plug(phonePointer());
        EXPECT_EQ(program.line(), "connected Virtual Phone");
    }
    const auto other = makePhone("Another");
    const uint32_t otherId = bus().plug(other);
    EXPECT_EQ(program.line(), "connected Another");
    bus().unplug(otherId);
    EXPECT_EQ(program.line(), "removed Another");
    program.endInput();
    EXPECT_THAT(program.lines(), IsEmpty());
    EXPECT_EQ(program.wait(), 0);
}

TEST_P(ForeignMainLoop, GoesRoundWhileAPhoneIsSilent) {
    phone().faults().goSilent();
    Program program(GetParam(), {});
    ASSERT_TRUE(log().waitFor([](const auto& entry) { return entry.service == "lockdown"; }));
    for (int i = 0; i < 100; ++i) {
        program.say("anybody?\n");
        ASSERT_EQ(program.line(), "still here");
    }
    // Had the loop stood still for the phone, its call would be over by now, and the phone lost.
    phone().faults().endSilence();
    EXPECT_EQ(program.line(), "connected Virtual Phone");
    program.endInput();
    EXPECT_EQ(program.wait(), 0);
}

TEST_P(ForeignMainLoop, LeavesWhileAPhoneIsSilent) {
    phone().faults().goSilent();
    Program program(GetParam(), {});
    ASSERT_TRUE(log().waitFor([](const auto& entry) { return entry.service == "lockdown"; }));
    program.endInput();
    // The call that is under way would be over after ten seconds.
    EXPECT_TRUE(program.endsWithin(std::chrono::seconds{5}));
    EXPECT_EQ(program.wait(), 0);
}

TEST_P(ForeignMainLoop, ShowsNoControlCharactersOfAPhone) {
    Program program(GetParam(), {});
    EXPECT_EQ(program.line(), "connected Virtual Phone");
    bus().plug(makePhone("a\x1b[2Jb\u009bc\u202ed\ne"));
    EXPECT_EQ(program.line(), "connected a?[2Jb?c?d?e");
}

INSTANTIATE_TEST_SUITE_P(Loops, ForeignMainLoop, testing::Values(EXAMPLE_POLL, EXAMPLE_GLIB),
                         [](const auto& loop) {
                             return std::filesystem::path(loop.param).filename().string();
                         });

} // namespace
