#include "tags/TagExchange.h"

#include <sys/socket.h>
#include <sys/types.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>

namespace krl::tags {
namespace {

// An empty packet looks like the end of the stream, so each begins with this.
constexpr char kPacket = ':';

/// A packet's one piece and room for one descriptor beside it, laid out as the kernel wants them.
class Packet {
public:
    Packet(char* bytes, size_t size) : piece_{bytes, size} {
        header_.msg_iov = &piece_;
        header_.msg_iovlen = 1;
    }

    Packet(const Packet&) = delete;
    Packet& operator=(const Packet&) = delete;

    msghdr* header() { return &header_; }

    cmsghdr* withControl() {
        header_.msg_control = control_.data();
        header_.msg_controllen = control_.size();
        return CMSG_FIRSTHDR(&header_);
    }

private:
    iovec piece_;
    msghdr header_{};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control_{};
};

bool send(int socket, Packet& packet) {
    for (;;) {
        if (::sendmsg(socket, packet.header(), MSG_NOSIGNAL) >= 0) {
            return true;
        }
        if (errno != EINTR) {
            return false;
        }
    }
}

/// The text that came in a packet; none when it is the end of the stream.
template <size_t Size>
std::optional<std::string> receive(int socket, Packet& packet,
                                   const std::array<char, Size>& bytes) {
    ssize_t size = 0;
    do {
        size = ::recvmsg(socket, packet.header(), MSG_CMSG_CLOEXEC);
    } while (size < 0 && errno == EINTR);
    if (size < 1) {
        return std::nullopt;
    }
    return std::string(bytes.data() + 1, static_cast<size_t>(size) - 1);
}

} // namespace

bool sendQuestion(int socket, const TitleQuestion& question) {
    std::string text = kPacket + question.fileName;
    Packet packet(text.data(), text.size());
    cmsghdr* control = packet.withControl();
    control->cmsg_level = SOL_SOCKET;
    control->cmsg_type = SCM_RIGHTS;
    control->cmsg_len = CMSG_LEN(sizeof question.file);
    std::memcpy(CMSG_DATA(control), &question.file, sizeof question.file);
    return send(socket, packet);
}

std::optional<TitleQuestion> receiveQuestion(int socket) {
    std::array<char, 1 + NAME_MAX> bytes{};
    Packet packet(bytes.data(), bytes.size());
    packet.withControl();
    const auto name = receive(socket, packet, bytes);
    const cmsghdr* control = CMSG_FIRSTHDR(packet.header());
    if (!name || control == nullptr || control->cmsg_type != SCM_RIGHTS) {
        return std::nullopt;
    }
    TitleQuestion question{*name};
    std::memcpy(&question.file, CMSG_DATA(control), sizeof question.file);
    return question;
}

bool sendTitle(int socket, std::string_view title) {
    std::string text = kPacket + std::string(title.size() > kLongestTitle ? "" : title);
    Packet packet(text.data(), text.size());
    return send(socket, packet);
}

std::optional<std::string> receiveTitle(int socket) {
    std::array<char, 1 + kLongestTitle> bytes{};
    Packet packet(bytes.data(), bytes.size());
    return receive(socket, packet, bytes);
}

} // namespace krl::tags
