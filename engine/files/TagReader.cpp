#include "engine/files/TagReader.h"

#include "engine/errors/Failure.h"
#include "tags/TagExchange.h"

#include <KRLVesk/KRLVesk.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

extern char** environ;

namespace krl::engine {
namespace {

Failure cannotStart(const std::string& why) {
    return {FailureKind::Unexpected, fmt::format("tags cannot be read: {}", why),
            "Install KRLVesk anew. Nothing was changed on the phone."};
}

/// What the process starts with: its socket as standard input, nowhere to write, and no signal
/// ignored or held back. A process group of its own keeps it from a Ctrl-C that this program
/// survives.
class Surroundings {
public:
    explicit Surroundings(int socket) {
        posix_spawn_file_actions_init(&actions_);
        posix_spawn_file_actions_adddup2(&actions_, socket, STDIN_FILENO);
        posix_spawn_file_actions_addopen(&actions_, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions_, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
        sigset_t signals;
        posix_spawnattr_init(&attributes_);
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes_, &signals);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&attributes_, &signals);
        posix_spawnattr_setpgroup(&attributes_, 0);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
                                                   POSIX_SPAWN_SETPGROUP);
    }

    ~Surroundings() {
        posix_spawnattr_destroy(&attributes_);
        posix_spawn_file_actions_destroy(&actions_);
    }

    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;

    const posix_spawn_file_actions_t* actions() const { return &actions_; }

    const posix_spawnattr_t* attributes() const { return &attributes_; }

private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

} // namespace

std::filesystem::path tagProgram() {
    Dl_info library{};
    if (dladdr(reinterpret_cast<const void*>(&KRTVeskInitLight), &library) == 0) {
        return {};
    }
    const auto folder = std::filesystem::absolute(library.dli_fname).parent_path();
    for (const char* name : {"vesk-tags", "KRLVesk/vesk-tags"}) {
        if (access((folder / name).c_str(), X_OK) == 0) {
            return folder / name;
        }
    }
    return {};
}

TagReader::TagReader(std::filesystem::path program) : program_(std::move(program)) {}

TagReader::~TagReader() {
    stop();
}

std::optional<std::string> TagReader::titleOf(const std::filesystem::path& file, int descriptor) {
    const tags::TitleQuestion question{file.filename().string(), descriptor};
    if (socket_ < 0) {
        start();
    }
    std::optional<std::string> title;
    if (tags::sendQuestion(socket_, question) && answersInTime()) {
        title = tags::receiveTitle(socket_);
    }
    if (!title) {
        stop();
    }
    return title;
}

void TagReader::start() {
    if (program_.empty()) {
        throw cannotStart("the program \"vesk-tags\" is missing beside the library");
    }
    std::array<int, 2> sockets{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets.data()) != 0) {
        throw cannotStart(std::strerror(errno));
    }
    const Surroundings surroundings(sockets[1]);
    std::string name = program_.string();
    std::array<char*, 2> arguments{name.data(), nullptr};
    const int error = posix_spawn(&process_, name.c_str(), surroundings.actions(),
                                  surroundings.attributes(), arguments.data(), environ);
    ::close(sockets[1]);
    if (error != 0) {
        ::close(sockets[0]);
        throw cannotStart(fmt::format("\"{}\": {}", name, std::strerror(error)));
    }
    socket_ = sockets[0];
}

void TagReader::stop() {
    if (socket_ < 0) {
        return;
    }
    ::close(std::exchange(socket_, -1));
    // It may be busy for seconds yet, and has nothing to lose.
    kill(process_, SIGKILL);
    while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

bool TagReader::answersInTime() const {
    constexpr int kLongestMs = 10000;
    pollfd answer{socket_, POLLIN, 0};
    int ready = 0;
    do {
        ready = poll(&answer, 1, kLongestMs);
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

} // namespace krl::engine
