#include "virtualphone/program/CommandRunner.h"

#include "virtualphone/wire/UniqueFd.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <optional>
#include <system_error>

namespace virtualphone {

namespace {

constexpr int kTakenSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGCHLD};

std::vector<std::string> environmentWith(const std::string& name, const std::string& value) {
    std::vector<std::string> all;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (std::strncmp(*entry, (name + "=").c_str(), name.size() + 1) != 0) {
            all.emplace_back(*entry);
        }
    }
    all.push_back(name + "=" + value);
    return all;
}

// As exec wants them; good as long as the strings are.
std::vector<char*> pointersTo(std::vector<std::string>& strings) {
    std::vector<char*> pointers;
    for (std::string& string : strings) {
        pointers.push_back(string.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

class Attributes {
public:
    explicit Attributes(const SignalMask& mask) {
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setsigmask(&attributes_, &mask.original());
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK);
        posix_spawn_file_actions_init(&actions_);
    }

    ~Attributes() {
        posix_spawnattr_destroy(&attributes_);
        posix_spawn_file_actions_destroy(&actions_);
    }

    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;

    void closeInput() {
        posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }

    const posix_spawnattr_t* attributes() const { return &attributes_; }

    const posix_spawn_file_actions_t* actions() const { return &actions_; }

private:
    posix_spawnattr_t attributes_{};
    posix_spawn_file_actions_t actions_{};
};

class Runner {
public:
    Runner(const SignalMask& mask, const RunnerSetup& setup)
        : setup_(setup), signals_(signalfd(-1, &mask.taken(), SFD_CLOEXEC)),
          readsInput_(static_cast<bool>(setup.onLine)) {
        if (!signals_) {
            throw std::system_error(errno, std::generic_category(), "signalfd");
        }
    }

    int start(const SignalMask& mask) {
        std::vector<std::string> arguments = setup_.command;
        std::vector<std::string> environment =
            environmentWith(setup_.environmentName, setup_.environmentValue);
        Attributes attributes(mask);
        if (readsInput_) {
            attributes.closeInput();
        }
        return posix_spawnp(&child_, arguments.front().c_str(), attributes.actions(),
                            attributes.attributes(), pointersTo(arguments).data(),
                            pointersTo(environment).data());
    }

    int loop() {
        while (!status_) {
            pollfd waiting[] = {
                {.fd = signals_.get(), .events = POLLIN, .revents = 0},
                {.fd = readsInput_ ? STDIN_FILENO : -1, .events = POLLIN, .revents = 0}};
            poll(waiting, 2, -1);
            if (waiting[0].revents != 0) {
                takeSignal();
            }
            if (waiting[1].revents != 0) {
                takeInput();
            }
        }
        return *status_;
    }

private:
    void takeSignal() {
        signalfd_siginfo info{};
        if (read(signals_.get(), &info, sizeof info) != sizeof info) {
            return;
        }
        const int signal = static_cast<int>(info.ssi_signo);
        if (signal == SIGCHLD) {
            reap();
        } else if (child_ == 0) {
            status_ = 0;
        } else if (info.ssi_code <= 0) {
            // From a process. What a terminal sends has reached the command already.
            kill(child_, signal);
        }
    }

    void reap() {
        int status = 0;
        if (child_ == 0 || waitpid(child_, &status, WNOHANG) != child_) {
            return;
        }
        constexpr int kKilled = 128;
        if (WIFEXITED(status)) {
            status_ = WEXITSTATUS(status);
        } else if (WIFSIGNALED(status)) {
            status_ = kKilled + WTERMSIG(status);
        }
    }

    void takeInput() {
        char bytes[4096];
        const ssize_t got = read(STDIN_FILENO, bytes, sizeof bytes);
        if (got <= 0) {
            readsInput_ = got < 0 && errno == EINTR;
            return;
        }
        input_.append(bytes, static_cast<size_t>(got));
        for (size_t end = input_.find('\n'); end != std::string::npos && !status_;
             end = input_.find('\n')) {
            const std::string line = input_.substr(0, end);
            input_.erase(0, end + 1);
            takeLine(line);
        }
    }

    void takeLine(const std::string& line) {
        if (line != "quit") {
            setup_.onLine(line);
        } else if (child_ == 0) {
            status_ = 0;
        } else {
            kill(child_, SIGTERM);
        }
    }

    const RunnerSetup& setup_;
    UniqueFd signals_;
    bool readsInput_;
    pid_t child_ = 0;
    std::string input_;
    std::optional<int> status_;
};

} // namespace

SignalMask::SignalMask() : taken_{}, original_{} {
    sigemptyset(&taken_);
    for (const int signal : kTakenSignals) {
        sigaddset(&taken_, signal);
    }
    pthread_sigmask(SIG_BLOCK, &taken_, &original_);
}

int runUntilTheEnd(const SignalMask& mask, const RunnerSetup& setup) {
    Runner runner(mask, setup);
    if (!setup.command.empty()) {
        if (const int error = runner.start(mask); error != 0) {
            constexpr int kNotFound = 127;
            constexpr int kNotRunnable = 126;
            std::cerr << "virtualphone: cannot run " << setup.command.front() << ": "
                      << std::strerror(error) << '\n';
            return error == ENOENT ? kNotFound : kNotRunnable;
        }
    }
    return runner.loop();
}

} // namespace virtualphone
