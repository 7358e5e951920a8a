// Any bytes as what a client sends to the virtual phone's services. The first byte says which one.

#include "tests/support/TemporaryFolder.h"
#include "virtualphone/VirtualPhone.h"
#include "virtualphone/services/AfcServer.h"
#include "virtualphone/services/LockdownServer.h"
#include "virtualphone/services/NotificationProxyServer.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>

namespace {

using namespace virtualphone;

constexpr size_t kMost = 60'000; // fits into the socket's buffer

class World {
public:
    World() {
        bus_.log().keepAtMost(10);
        log_.keepAtMost(10);
        bus_.plug(phone_);
    }

    World(const World&) = delete;
    World& operator=(const World&) = delete;

    template <class Server>
    void serve(UniqueFd socket) {
        Channel channel(std::move(socket));
        Server(Client{channel, phone_->state(), log_, 1, [] {}}).run();
    }

    const std::filesystem::path& socketPath() const { return bus_.socketPath(); }

private:
    virtualphone::testing::TemporaryFolder root_;
    RequestLog log_;
    Bus bus_;
    std::shared_ptr<Phone> phone_ = std::make_shared<Phone>(PhoneOptions{.root = root_.path()});
};

World& world() {
    static World one;
    return one;
}

/// Takes answers in until the other side ends, so that it never waits for room.
void drain(int socket) {
    std::array<char, 65536> bytes;
    while (read(socket, bytes.data(), bytes.size()) > 0) {
    }
}

void say(int socket, const uint8_t* bytes, size_t size) {
    if (send(socket, bytes, size, MSG_NOSIGNAL) != static_cast<ssize_t>(size)) {
        throw std::runtime_error("the socket's buffer is too small");
    }
    shutdown(socket, SHUT_WR);
}

/// The socket of the bus is served by the bus's own threads.
void askBus(const uint8_t* bytes, size_t size) {
    const UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, world().socketPath().c_str(), sizeof address.sun_path - 1);
    if (connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error("the bus does not listen");
    }
    say(socket.get(), bytes, size);
    drain(socket.get());
}

template <class Server>
void askService(const uint8_t* bytes, size_t size) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        throw std::runtime_error("socketpair failed");
    }
    const UniqueFd client(ends[0]);
    say(client.get(), bytes, size);
    std::thread reader(drain, client.get());
    world().serve<Server>(UniqueFd(ends[1]));
    reader.join();
}

constexpr std::array kServices = {askBus, askService<LockdownServer>, askService<AfcServer>,
                                  askService<NotificationProxyServer>};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0 || size > kMost) {
        return 0;
    }
    kServices[data[0] % kServices.size()](data + 1, size - 1);
    return 0;
}
