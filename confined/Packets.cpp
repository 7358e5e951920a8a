#include "confined/Packets.h"

#include <sys/socket.h>
#include <sys/types.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace krl::confined {
namespace {

// An empty packet looks like the end of the stream, so each begins with this.
constexpr char kPacket = ':';

/// A packet's one piece and room for descriptors beside it, laid out as the kernel wants them.
class Message {
public:
    Message(char* bytes, size_t size) : piece_{bytes, size} {
        header_.msg_iov = &piece_;
        header_.msg_iovlen = 1;
    }

    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;

    msghdr* header() { return &header_; }

    void makeRoomForFiles() {
        header_.msg_control = control_.data();
        header_.msg_controllen = control_.size();
    }

    void attach(std::span<const int> files) {
        const size_t size = files.size_bytes();
        makeRoomForFiles();
        header_.msg_controllen = CMSG_SPACE(size);
        cmsghdr* control = CMSG_FIRSTHDR(&header_);
        control->cmsg_level = SOL_SOCKET;
        control->cmsg_type = SCM_RIGHTS;
        control->cmsg_len = CMSG_LEN(size);
        std::memcpy(CMSG_DATA(control), files.data(), size);
    }

    std::vector<OpenFile> takeFiles() {
        std::vector<OpenFile> files;
        const cmsghdr* control = CMSG_FIRSTHDR(&header_);
        if (control == nullptr || control->cmsg_type != SCM_RIGHTS) {
            return files;
        }
        const size_t count = (control->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < count; ++i) {
            int descriptor = -1;
            std::memcpy(&descriptor, CMSG_DATA(control) + i * sizeof descriptor, sizeof descriptor);
            files.emplace_back(descriptor);
        }
        return files;
    }

private:
    iovec piece_;
    msghdr header_{};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(kMostFiles * sizeof(int))> control_{};
};

} // namespace

bool sendPacket(int socket, std::string_view text, std::span<const int> files) {
    std::string bytes = kPacket + std::string(text);
    Message message(bytes.data(), bytes.size());
    if (!files.empty()) {
        message.attach(files);
    }
    ssize_t sent = 0;
    do {
        sent = ::sendmsg(socket, message.header(), MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent >= 0;
}

std::optional<Packet> receivePacket(int socket, size_t longestText) {
    std::string bytes(1 + longestText, '\0');
    Message message(bytes.data(), bytes.size());
    message.makeRoomForFiles();
    ssize_t size = 0;
    do {
        size = ::recvmsg(socket, message.header(), MSG_CMSG_CLOEXEC);
    } while (size < 0 && errno == EINTR);
    if (size < 1) {
        return std::nullopt;
    }
    return Packet{bytes.substr(1, static_cast<size_t>(size) - 1), message.takeFiles()};
}

bool isPacketSocket(int descriptor) {
    int type = 0;
    socklen_t size = sizeof type;
    return getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_SEQPACKET;
}

} // namespace krl::confined
