// Any bytes as what the mux daemon says to the listener. The first byte says how: as they are,
// after its consent, or as the bodies of messages behind its consent. Nobody is attached twice,
// detached without having been attached, or left attached when the connection has ended.

#include "mobiledevice/provider/wire/MuxListener.h"
#include "mobiledevice/provider/wire/MuxMessage.h"
#include "mobiledevice/provider/wire/UniqueDescriptor.h"
#include "tests/support/TemporaryFolder.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

using namespace krl::provider;

enum class Form { AsTheyAre, AfterConsent, Bodies };
constexpr uint8_t kForms = 3;
constexpr char kBetweenBodies = '\xff';

// ------------------------------------------------------------------ the daemon

class Daemon {
public:
    Daemon() : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const std::string path = folder_.path() / "mux";
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        if (::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
                0 ||
            ::listen(socket_.get(), SOMAXCONN) != 0) {
            throw std::runtime_error("no socket to listen on");
        }
        setting_ = "UNIX:" + path;
    }

    const std::string& setting() const { return setting_; }

    /// Takes a connection, says this to it, and waits until it has been closed.
    void say(const std::string& bytes) const {
        const UniqueDescriptor client(::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        ::send(client.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        ::shutdown(client.get(), SHUT_WR);
        std::array<char, 4096> request{};
        while (::recv(client.get(), request.data(), request.size(), 0) > 0) {
        }
    }

    /// The listener has tried again before it ended.
    void turnTheRestAway() const {
        pollfd waiting{socket_.get(), POLLIN, 0};
        while (::poll(&waiting, 1, 0) > 0) {
            const UniqueDescriptor client(::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        }
    }

private:
    virtualphone::testing::TemporaryFolder folder_;
    UniqueDescriptor socket_;
    std::string setting_;
};

std::string framed(std::string_view body) {
    constexpr uint32_t kVersion = 1;
    constexpr uint32_t kPropertyList = 8;
    const MuxHeader header{static_cast<uint32_t>(sizeof(MuxHeader) + body.size()), kVersion,
                           kPropertyList, 0};
    std::string bytes(reinterpret_cast<const char*>(&header), sizeof header);
    return bytes.append(body);
}

std::string said(Form form, std::string_view bytes) {
    if (form == Form::AsTheyAre) {
        return std::string(bytes);
    }
    std::string all = framed("<plist version=\"1.0\"><dict><key>MessageType</key><string>Result"
                             "</string><key>Number</key><integer>0</integer></dict></plist>");
    if (form == Form::AfterConsent) {
        return all.append(bytes);
    }
    while (!bytes.empty()) {
        const size_t end = std::min(bytes.find(kBetweenBodies), bytes.size());
        all += framed(bytes.substr(0, end));
        bytes.remove_prefix(std::min(end + 1, bytes.size()));
    }
    return all;
}

// ------------------------------------------------------------------ who is told

class Audience final : public MuxAudience {
public:
    void attached(uint32_t muxId, const std::string&) noexcept override {
        if (!there_.insert(muxId).second) {
            std::abort();
        }
    }

    void detached(uint32_t muxId) noexcept override {
        if (there_.erase(muxId) != 1) {
            std::abort();
        }
    }

    bool isEmpty() const { return there_.empty(); }

private:
    std::set<uint32_t> there_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Daemon daemon;
    if (size == 0) {
        return 0;
    }
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    Audience audience;
    {
        const MuxListener listener(daemon.setting(), audience);
        daemon.say(said(static_cast<Form>(data[0] % kForms), bytes));
    }
    daemon.turnTheRestAway();
    if (!audience.isEmpty()) {
        std::abort();
    }
    return 0;
}
