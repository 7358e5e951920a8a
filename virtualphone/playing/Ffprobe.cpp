#include "virtualphone/playing/Ffprobe.h"

#include "virtualphone/wire/UniqueFd.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

namespace virtualphone {

namespace {

constexpr std::chrono::seconds kLongest{30};

// One that runs for longer than this object is killed.
class Child {
public:
    explicit Child(pid_t process) : process_(process) {}

    ~Child() {
        kill(process_, SIGKILL);
        while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
        }
    }

    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

private:
    const pid_t process_;
};

class FileActions {
public:
    FileActions() { posix_spawn_file_actions_init(&actions_); }

    ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }

    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;

    void give(int descriptor, int as) {
        posix_spawn_file_actions_adddup2(&actions_, descriptor, as);
    }

    void giveNothing(int as) {
        posix_spawn_file_actions_addopen(&actions_, as, "/dev/null", O_RDWR, 0);
    }

    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_{};
};

pid_t start(const std::vector<const char*>& arguments, const FileActions& actions) {
    std::vector<char*> pointers;
    for (const char* const argument : arguments) {
        pointers.push_back(const_cast<char*>(argument)); // spawning changes none of them
    }
    pointers.push_back(nullptr);
    pid_t child = 0;
    const int error =
        posix_spawnp(&child, pointers.front(), actions.get(), nullptr, pointers.data(), environ);
    if (error != 0) {
        throw std::runtime_error(
            std::string("what would play is found out with the program ffprobe, which cannot be "
                        "run: ") +
            std::strerror(error) + " (on Debian it is in the package ffmpeg)");
    }
    return child;
}

std::optional<std::string> readToTheEnd(int output) {
    const auto end = std::chrono::steady_clock::now() + kLongest;
    std::string text;
    while (true) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        pollfd waiting{.fd = output, .events = POLLIN, .revents = 0};
        if (left.count() <= 0 || poll(&waiting, 1, static_cast<int>(left.count())) == 0) {
            return std::nullopt;
        }
        char bytes[16384];
        const ssize_t got = read(output, bytes, sizeof bytes);
        if (got == 0) {
            return text;
        }
        if (got < 0 && errno != EINTR) {
            return std::nullopt;
        }
        text.append(bytes, got > 0 ? static_cast<size_t>(got) : 0);
    }
}

std::optional<std::string> run(const std::vector<const char*>& arguments, int input) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    const UniqueFd output(ends[0]);
    UniqueFd theirs(ends[1]);
    FileActions actions;
    if (input < 0) {
        actions.giveNothing(STDIN_FILENO);
    } else {
        actions.give(input, STDIN_FILENO);
    }
    actions.give(theirs.get(), STDOUT_FILENO);
    actions.giveNothing(STDERR_FILENO);
    const Child child(start(arguments, actions));
    theirs.reset();
    return readToTheEnd(output.get());
}

} // namespace

void requireFfprobe() {
    run({"ffprobe", "-version"}, -1);
}

std::optional<std::string> ffprobe(int file) {
    // Opened anew by its descriptor, because a pipe could not be sought in. What a playlist names
    // must at least be a file.
    return run({"ffprobe", "-v", "quiet", "-protocol_whitelist", "file", "-of", "json",
                "-show_format", "-show_streams", "-show_packets", "-read_intervals", "%+#8", "-i",
                "file:/dev/stdin"},
               file);
}

} // namespace virtualphone
