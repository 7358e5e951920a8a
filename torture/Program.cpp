#include "torture/Program.h"

#include "tests/support/Spawning.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

namespace torture {
namespace {

using krl::test::environmentWith;
using krl::test::pointersTo;
using Clock = std::chrono::steady_clock;

pid_t start(std::vector<std::string> command, std::vector<std::string> environment, int output) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
    // What other threads have open at this moment is none of its affair.
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    pid_t process = 0;
    const int error = posix_spawn(&process, command.front().c_str(), &actions, nullptr,
                                  pointersTo(command).data(), pointersTo(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), command.front());
    }
    return process;
}

constexpr std::chrono::minutes kLimit{2};

} // namespace

Program::Program(std::vector<std::string> command,
                 const std::map<std::string, std::string>& environment)
    : start_(Clock::now()) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    output_.reset(ends[0]);
    const virtualphone::UniqueFd input(ends[1]);
    number_ = start(std::move(command), environmentWith(environment), input.get());
}

Program::~Program() {
    if (number_ != 0) {
        signal(SIGKILL);
        waitpid(number_, nullptr, 0);
    }
}

void Program::signal(int number) const {
    kill(number_, number);
}

bool Program::hasEnded() const {
    siginfo_t information{};
    return waitid(P_PID, static_cast<id_t>(number_), &information, WEXITED | WNOHANG | WNOWAIT) ==
               0 &&
           information.si_pid == number_;
}

Ended Program::wait() {
    Ended ended;
    ended.hung = !readAll(ended.output);
    if (ended.hung) {
        signal(SIGKILL);
    }
    int status = 0;
    waitpid(std::exchange(number_, 0), &status, 0);
    ended.code = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
    ended.signal = WIFSIGNALED(status) && !ended.hung ? WTERMSIG(status) : 0;
    ended.took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start_);
    return ended;
}

/// Takes in what the process says until it closes its output.
/// @return whether that was in time
bool Program::readAll(std::string& output) const {
    const auto end = start_ + kLimit;
    std::array<char, 4096> piece{};
    while (Clock::now() < end) {
        pollfd descriptor{output_.get(), POLLIN, 0};
        if (poll(&descriptor, 1, 1000) <= 0) {
            continue;
        }
        const ssize_t count = read(output_.get(), piece.data(), piece.size());
        if (count <= 0) {
            return true;
        }
        output.append(piece.data(), static_cast<size_t>(count));
    }
    return false;
}

} // namespace torture
