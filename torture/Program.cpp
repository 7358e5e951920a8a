#include "torture/Program.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <stdexcept>
#include <system_error>
#include <thread>

extern char** environ;

namespace torture {
namespace {

using Clock = std::chrono::steady_clock;

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

std::vector<std::string> environmentWith(const std::map<std::string, std::string>& added) {
    std::vector<std::string> result;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string text = *variable;
        if (!added.contains(text.substr(0, text.find('=')))) {
            result.push_back(text);
        }
    }
    for (const auto& [name, value] : added) {
        result.push_back(name + "=" + value);
    }
    return result;
}

pid_t start(std::vector<std::string> command, std::vector<std::string> environment, int output) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
    pid_t process = 0;
    const int error = posix_spawn(&process, command.front().c_str(), &actions, nullptr,
                                  pointers(command).data(), pointers(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), command.front());
    }
    return process;
}

/// Takes in what the process says until it closes its output.
/// @return whether that was in time
bool readAll(int input, std::string& output) {
    constexpr std::chrono::seconds kLimit{60};
    const auto end = Clock::now() + kLimit;
    std::array<char, 4096> piece{};
    while (Clock::now() < end) {
        pollfd descriptor{input, POLLIN, 0};
        if (poll(&descriptor, 1, 1000) <= 0) {
            continue;
        }
        const ssize_t count = read(input, piece.data(), piece.size());
        if (count <= 0) {
            return true;
        }
        output.append(piece.data(), static_cast<size_t>(count));
    }
    return false;
}

} // namespace

Ended runVesk(const std::vector<std::string>& arguments,
              const std::map<std::string, std::string>& environment,
              const std::function<void(int process)>& meanwhile) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    std::vector<std::string> command{KRL_VESK};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const pid_t process = start(command, environmentWith(environment), ends[1]);
    close(ends[1]);
    if (meanwhile) {
        meanwhile(process);
    }
    Ended ended;
    ended.hung = !readAll(ends[0], ended.output);
    close(ends[0]);
    if (ended.hung) {
        kill(process, SIGKILL);
    }
    int status = 0;
    waitpid(process, &status, 0);
    ended.code = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
    ended.signal = WIFSIGNALED(status) && !ended.hung ? WTERMSIG(status) : 0;
    return ended;
}

} // namespace torture
