#include "library/system/Programs.h"

#include "library/system/Files.h"

#include <cerrno>
#include <csignal>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace krl::system {
namespace {

/// What a new process begins with: every signal at its default, none blocked.
class SpawnAttributes {
public:
    SpawnAttributes() {
        sigset_t signals;
        posix_spawnattr_init(&attributes_);
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes_, &signals);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&attributes_, &signals);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }

    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }

    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;

    const posix_spawnattr_t* get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_;
};

int waitFor(pid_t process) {
    int status = 0;
    pid_t ended = 0;
    do {
        ended = waitpid(process, &status, 0);
    } while (ended < 0 && errno == EINTR);
    if (ended != process) {
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int reallyRun(const std::string& path, const std::vector<std::string>& arguments) {
    std::vector<std::string> texts{path};
    texts.insert(texts.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    const SpawnAttributes attributes;
    pid_t process = -1;
    const int error =
        posix_spawn(&process, path.c_str(), nullptr, attributes.get(), pointers.data(), environ);
    return error == 0 ? waitFor(process) : -1;
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
