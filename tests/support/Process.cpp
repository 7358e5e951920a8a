#include "tests/support/Process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

namespace virtualphone::testing {

namespace {

constexpr int kLimitMs = 120'000;
constexpr int kPatienceMs = 5'000;

void closeOnce(int& descriptor) {
    if (descriptor >= 0) {
        ::close(std::exchange(descriptor, -1));
    }
}

} // namespace

Process::Process(const std::vector<std::string>& command) {
    int in[2];
    int out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe2");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDERR_FILENO);
    std::vector<std::string> arguments = command;
    std::vector<char*> pointers;
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    const int error =
        posix_spawnp(&child_, pointers[0], &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    input_ = in[1];
    output_ = out[0];
    if (error != 0) {
        child_ = 0;
        throw std::runtime_error("cannot run " + command.front());
    }
}

Process::~Process() {
    closeOnce(input_);
    closeOnce(output_);
    if (child_ == 0) {
        return;
    }
    // It may have something to put away.
    kill(child_, SIGTERM);
    for (int waitedMs = 0; waitpid(child_, nullptr, WNOHANG) == 0; waitedMs += 5) {
        if (waitedMs == kPatienceMs) {
            kill(child_, SIGKILL);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

void Process::writeLine(const std::string& line) const {
    const std::string bytes = line + "\n";
    if (write(input_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
        throw std::runtime_error("the program does not read");
    }
}

void Process::closeInput() {
    closeOnce(input_);
}

bool Process::fill() {
    pollfd waiting{.fd = output_, .events = POLLIN, .revents = 0};
    if (poll(&waiting, 1, kLimitMs) == 0) {
        throw std::runtime_error("the program says nothing; so far: " + buffer_);
    }
    char bytes[4096];
    const ssize_t got = read(output_, bytes, sizeof bytes);
    if (got <= 0) {
        return false;
    }
    buffer_.append(bytes, static_cast<size_t>(got));
    return true;
}

std::optional<std::string> Process::readLine() {
    size_t end = buffer_.find('\n');
    while (end == std::string::npos) {
        if (!fill()) {
            return std::nullopt;
        }
        end = buffer_.find('\n');
    }
    std::string line = buffer_.substr(0, end);
    buffer_.erase(0, end + 1);
    return line;
}

bool Process::readUntil(const std::string& part) {
    while (const std::optional<std::string> line = readLine()) {
        if (line->find(part) != std::string::npos) {
            return true;
        }
    }
    return false;
}

std::string Process::readAll() {
    while (fill()) {
    }
    return std::exchange(buffer_, {});
}

void Process::signal(int number) const {
    kill(child_, number);
}

int Process::wait() {
    constexpr int kKilled = 128;
    closeInput();
    readAll();
    int status = 0;
    waitpid(std::exchange(child_, 0), &status, 0);
    return WIFSIGNALED(status) ? kKilled + WTERMSIG(status) : WEXITSTATUS(status);
}

Outcome run(const std::vector<std::string>& command) {
    Process process(command);
    process.closeInput();
    std::string output = process.readAll();
    return {process.wait(), std::move(output)};
}

bool isInstalled(const std::string& program) {
    const char* const path = std::getenv("PATH");
    std::istringstream folders(path == nullptr ? "" : path);
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (std::filesystem::exists(std::filesystem::path(folder) / program)) {
            return true;
        }
    }
    return false;
}

} // namespace virtualphone::testing
