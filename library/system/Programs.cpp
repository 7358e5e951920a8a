#include "library/system/Programs.h"

#include "library/system/Files.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace krl::system {
namespace {

constexpr int kNoStatus = -1;

/// Where a status comes through.
class Pipe {
public:
    Pipe() {
        if (pipe2(ends_.data(), O_CLOEXEC) != 0) {
            ends_ = {-1, -1};
        }
    }

    ~Pipe() {
        for (const int end : ends_) {
            close(end);
        }
    }

    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    bool isOpen() const { return ends_[0] >= 0; }

    int writingEnd() const { return ends_[1]; }

    /// The first status that is written; kNoStatus when all writers have gone without a word.
    int read() {
        close(std::exchange(ends_[1], -1));
        int status = kNoStatus;
        ssize_t count = 0;
        do {
            count = ::read(ends_[0], &status, sizeof status);
        } while (count < 0 && errno == EINTR);
        return count == sizeof status ? status : kNoStatus;
    }

private:
    std::array<int, 2> ends_;
};

/// No signal is delivered to this thread, nor to processes that it makes meanwhile.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }

    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before_;
};

int waitFor(pid_t process) {
    int status = 0;
    pid_t ended = 0;
    do {
        ended = waitpid(process, &status, 0);
    } while (ended < 0 && errno == EINTR);
    if (ended != process) {
        return kNoStatus;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// What follows runs between a fork and the program, where other threads may have left locks behind:
// it calls what a signal handler may call and nothing else.

void say(int report, int status) {
    // A pipe takes this much at once; whoever asked may have gone.
    [[maybe_unused]] const ssize_t ignored = write(report, &status, sizeof status);
}

/// Signals as a new program expects them: none ignored, none blocked.
void resetSignals() {
    for (int signal = 1; signal < NSIG; ++signal) {
        std::signal(signal, SIG_DFL); // those that cannot be changed are as they should be
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

[[noreturn]] void runAndSay(char* const* texts, int report) {
    // Nothing of the process that was copied is kept open by the copy.
    constexpr int kReport = STDERR_FILENO + 1;
    if (report != kReport) {
        dup3(report, kReport, O_CLOEXEC);
    }
    close_range(kReport + 1, ~0U, 0);
    std::signal(SIGCHLD, SIG_DFL);
    const pid_t program = _Fork();
    if (program == 0) {
        resetSignals();
        execve(texts[0], texts, environ);
        say(kReport, kNoStatus);
        _exit(127);
    }
    say(kReport, program > 0 ? waitFor(program) : kNoStatus);
    _exit(0);
}

/// A process in between waits for the program and says how it went. The program is not this
/// process's own child, for this one may ignore SIGCHLD, or reap all children in a handler, and the
/// status would be lost.
int reallyRun(const std::string& path, const std::vector<std::string>& arguments) {
    std::vector<std::string> texts{path};
    texts.insert(texts.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    Pipe report;
    if (!report.isOpen()) {
        return kNoStatus;
    }
    pid_t between = -1;
    {
        const SignalsBlocked blocked;
        between = fork();
        if (between == 0) {
            runAndSay(pointers.data(), report.writingEnd());
        }
    }
    if (between < 0) {
        return kNoStatus;
    }
    const int status = report.read();
    waitFor(between);
    return status;
}

Programs programsInForce{exists, reallyRun};

} // namespace

const Programs& programs() {
    return programsInForce;
}

Programs setPrograms(const Programs& programs) {
    return std::exchange(programsInForce, programs);
}

} // namespace krl::system
