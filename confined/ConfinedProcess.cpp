#include "confined/ConfinedProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

extern char** environ;

namespace krl::confined {
namespace {

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

void require(int error) {
    if (error != 0) {
        throw std::system_error(error, std::generic_category());
    }
}

bool readableWithin(int socket, std::chrono::milliseconds longest) {
    pollfd answer{socket, POLLIN, 0};
    int ready = 0;
    do {
        ready = poll(&answer, 1, static_cast<int>(longest.count()));
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

} // namespace

ConfinedProcess::ConfinedProcess(const std::filesystem::path& program) {
    std::array<int, 2> sockets{};
    require(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets.data()) == 0 ? 0 : errno);
    socket_ = OpenFile(sockets[0]);
    const OpenFile itsEnd(sockets[1]);
    const Surroundings surroundings(itsEnd.get());
    std::string name = program.string();
    std::array<char*, 2> arguments{name.data(), nullptr};
    require(posix_spawn(&process_, name.c_str(), surroundings.actions(), surroundings.attributes(),
                        arguments.data(), environ));
}

ConfinedProcess::~ConfinedProcess() {
    kill(process_, SIGKILL);
    while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

std::optional<std::string> ConfinedProcess::ask(std::string_view question,
                                                std::span<const int> files, size_t longestAnswer,
                                                std::chrono::milliseconds longest,
                                                const std::stop_token& stop) {
    const std::stop_callback end(stop, [this] { shutdown(socket_.get(), SHUT_RDWR); });
    if (!sendPacket(socket_.get(), question, files) || !readableWithin(socket_.get(), longest)) {
        return std::nullopt;
    }
    auto answer = receivePacket(socket_.get(), longestAnswer);
    return answer ? std::optional(std::move(answer->text)) : std::nullopt;
}

} // namespace krl::confined
