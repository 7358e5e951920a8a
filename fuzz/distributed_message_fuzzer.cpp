// Any bytes from the session bus: taken in as a notification or ignored. The first byte says
// whether they are the message or only the body of one that claims to be a notification.

#include "corefoundation/events/DistributedMessage.h"
#include "corefoundation/events/DistributedWire.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

namespace wire = krl::cf::wire;

/// How a peer without a bus daemon greets before messages flow.
constexpr std::string_view kGreeting = "DATA\r\nOK 0123456789abcdef0123456789abcdef\r\n"
                                       "AGREE_UNIX_FD\r\n";

class MessageBytes {
public:
    void number(uint32_t value) {
        pad(4);
        bytes_.append(reinterpret_cast<const char*>(&value), sizeof value);
    }

    void field(char code, char type, std::string_view text) {
        pad(8);
        bytes_ += {code, '\1', type, '\0'};
        if (type == 'g') {
            bytes_ += static_cast<char>(text.size());
        } else {
            number(static_cast<uint32_t>(text.size()));
        }
        bytes_ += text;
        bytes_ += '\0';
    }

    void pad(size_t alignment) {
        while (bytes_.size() % alignment != 0) {
            bytes_ += '\0';
        }
    }

    std::string& bytes() { return bytes_; }

private:
    std::string bytes_;
};

constexpr size_t kFieldsLengthAt = 12;
constexpr size_t kFieldsAt = 16;

/// A signal of ours, little-endian as this machine is, with any body.
std::string signalWith(std::string_view body) {
    MessageBytes message;
    message.bytes() = {'l', '\4', '\1', '\1'};
    message.number(static_cast<uint32_t>(body.size()));
    message.number(1);
    message.number(0);
    message.field('\1', 'o', wire::kPath);
    message.field('\2', 's', wire::kInterface);
    message.field('\3', 's', wire::kMember);
    message.field('\10', 'g', wire::kSignature);
    const auto fieldsLength = static_cast<uint32_t>(message.bytes().size() - kFieldsAt);
    std::memcpy(message.bytes().data() + kFieldsLengthAt, &fieldsLength, sizeof fieldsLength);
    message.pad(8);
    message.bytes() += body;
    return message.bytes();
}

int openBus(sd_bus** bus, int descriptor) {
    if (const int error = sd_bus_new(bus); error < 0) {
        return error;
    }
    sd_bus_set_fd(*bus, descriptor, descriptor);
    return sd_bus_start(*bus);
}

void takeMessages(sd_bus* bus) {
    sd_bus_message* message = nullptr;
    while (sd_bus_process(bus, &message) > 0) {
        if (message != nullptr) {
            if (const auto notification = krl::cf::readNotification(message)) {
                krl::cf::dictionaryOf(notification->userInfo);
            }
            message = sd_bus_message_unref(message);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t kMost = 60'000; // fits into the socket's buffer
    if (size == 0 || size > kMost) {
        return 0;
    }
    const std::string_view rest(reinterpret_cast<const char*>(data + 1), size - 1);
    const std::string sent =
        std::string(kGreeting) + (data[0] % 2 == 0 ? signalWith(rest) : std::string(rest));
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) {
        throw std::runtime_error("socketpair failed");
    }
    if (write(ends[1], sent.data(), sent.size()) != static_cast<ssize_t>(sent.size())) {
        throw std::runtime_error("the socket's buffer is too small");
    }
    shutdown(ends[1], SHUT_WR);
    sd_bus* bus = nullptr;
    if (openBus(&bus, ends[0]) >= 0) {
        takeMessages(bus);
    }
    sd_bus_close_unref(bus);
    close(ends[1]);
    return 0;
}
