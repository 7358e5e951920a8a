#include "tests/support/VeskProcess.h"

#include "tests/support/Spawning.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <stdexcept>
#include <system_error>

namespace vesk::testing {
namespace {

void require(bool holds, const char* what) {
    if (!holds) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

void requireZero(int error, const char* what) {
    errno = error;
    require(error == 0, what);
}

/// Where programs keep what they know: with the test, not with the person who runs it.
const std::filesystem::path& home() {
    static const virtualphone::testing::TemporaryFolder folder;
    return folder.path();
}

std::vector<std::string> environmentWith(std::map<std::string, std::string> added) {
    for (const char* folder : {"XDG_STATE_HOME", "XDG_CACHE_HOME"}) {
        if (std::getenv(folder) == nullptr) {
            added.emplace(folder, (home() / folder).string());
        }
    }
    return krl::test::environmentWith(added);
}

bool takesSongs(const std::vector<std::string>& arguments) {
    return std::any_of(arguments.begin(), arguments.end(), [](const std::string& argument) {
        return argument == "add" || argument == "replace" || argument == "sync";
    });
}

/// A terminal: the master here, the name of the slave for the child.
int openTerminal(unsigned short columns, std::string& slave) {
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    require(master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0, "terminal");
    std::array<char, 128> name{};
    requireZero(ptsname_r(master, name.data(), name.size()), "ptsname_r");
    slave = name.data();
    winsize size{};
    size.ws_row = 24;
    size.ws_col = columns;
    require(ioctl(master, TIOCSWINSZ, &size) == 0, "TIOCSWINSZ");
    return master;
}

} // namespace

void PrintTo(const VeskResult& result, std::ostream* out) {
    *out << "exit code " << result.exitCode << "\n--- out\n"
         << result.out << "--- err\n"
         << result.err << "---";
}

VeskProcess::VeskProcess(const std::vector<std::string>& arguments)
    : VeskProcess(arguments, Options{}) {}

VeskProcess::VeskProcess(const std::vector<std::string>& arguments, const Options& options) {
    const std::string program = options.program.empty() ? KRL_VESK : options.program;
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    requireZero(posix_spawn_file_actions_init(&actions), "spawn");
    requireZero(posix_spawnattr_init(&attributes), "spawn");
    std::vector<int> childsEnds;
    if (options.terminal) {
        std::string slave;
        out_ = openTerminal(options.columns, slave);
        // The first terminal that a session's leader opens is the one that Ctrl-C comes from.
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, slave.c_str(), O_RDWR, 0);
        posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDERR_FILENO);
    } else {
        std::array<int, 2> out{};
        std::array<int, 2> err{};
        require(pipe2(out.data(), O_CLOEXEC) == 0 && pipe2(err.data(), O_CLOEXEC) == 0, "pipe");
        out_ = out[0];
        err_ = err[0];
        childsEnds = {out[1], err[1]};
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    }
    std::map<std::string, std::string> added = options.environment;
    added.emplace("TERM", "xterm");
    std::vector<std::string> argumentTexts{program};
    argumentTexts.insert(argumentTexts.end(), arguments.begin(), arguments.end());
    if (!options.judges && takesSongs(arguments)) {
        argumentTexts.emplace_back("--unchecked");
    }
    std::vector<std::string> environmentTexts = environmentWith(added);
    const int error = posix_spawn(&pid_, program.c_str(), &actions, &attributes,
                                  krl::test::pointersTo(argumentTexts).data(),
                                  krl::test::pointersTo(environmentTexts).data());
    for (const int descriptor : childsEnds) {
        close(descriptor);
    }
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    requireZero(error, program.c_str());
}

VeskProcess::~VeskProcess() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    for (const int descriptor : {out_, err_}) {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
}

void VeskProcess::signal(int number) const {
    require(kill(pid_, number) == 0, "kill");
}

void VeskProcess::type(const std::string& keys) const {
    require(write(out_, keys.data(), keys.size()) == static_cast<ssize_t>(keys.size()), "type");
}

bool VeskProcess::take(int& descriptor, std::string& text) {
    std::array<char, 4096> buffer{};
    const ssize_t count = read(descriptor, buffer.data(), buffer.size());
    if (count > 0) {
        text.append(buffer.data(), static_cast<size_t>(count));
        return true;
    }
    // A terminal whose other side is closed gives EIO.
    close(descriptor);
    descriptor = -1;
    return false;
}

void VeskProcess::pump(const std::function<bool()>& done) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!done()) {
        if (out_ < 0 && err_ < 0) {
            throw std::runtime_error("vesk ended first: " + result_.out + result_.err);
        }
        std::array<pollfd, 2> polled{{{out_, POLLIN, 0}, {err_, POLLIN, 0}}};
        if (std::chrono::steady_clock::now() > end) {
            throw std::runtime_error("vesk takes too long: " + result_.out + result_.err);
        }
        if (poll(polled.data(), polled.size(), 1000) > 0) {
            if (polled[0].revents != 0) {
                take(out_, result_.out);
            }
            if (polled[1].revents != 0) {
                take(err_, result_.err);
            }
        }
    }
}

void VeskProcess::waitForText(const std::string& text) {
    pump([&] {
        return result_.out.find(text) != std::string::npos ||
               result_.err.find(text) != std::string::npos;
    });
}

VeskResult VeskProcess::wait() {
    pump([this] { return out_ < 0 && err_ < 0; });
    int status = 0;
    require(waitpid(pid_, &status, 0) == pid_, "waitpid");
    pid_ = -1;
    result_.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return result_;
}

std::vector<std::string> screenLines(const std::string& output) {
    constexpr std::string_view kEraseToEnd = "\x1b[K";
    std::vector<std::string> lines(1);
    size_t column = 0;
    for (size_t i = 0; i < output.size(); ++i) {
        const char character = output[i];
        if (character == '\r') {
            column = 0;
        } else if (character == '\n') {
            lines.emplace_back();
            column = 0;
        } else if (output.compare(i, kEraseToEnd.size(), kEraseToEnd) == 0) {
            lines.back().resize(column);
            i += kEraseToEnd.size() - 1;
        } else {
            lines.back().resize(std::max(lines.back().size(), column + 1));
            lines.back()[column++] = character;
        }
    }
    return lines;
}

} // namespace vesk::testing
