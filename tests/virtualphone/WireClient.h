/// A client that writes its bytes by hand, so that the phone is held to the wire and not to a
/// library.
#pragma once

#include "virtualphone/VirtualPhone.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace virtualphone::testing {

/// A stream socket. Reading fails the test that waits longer than half a minute.
class WireSocket {
public:
    explicit WireSocket(const Bus& bus);
    ~WireSocket();

    WireSocket(WireSocket&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

    WireSocket& operator=(WireSocket&&) = delete;

    /// False when the phone has closed its side.
    bool send(std::string_view bytes) const;

    /// Exactly this many bytes, or fewer when the phone has closed its side.
    std::string receive(size_t count) const;

    /// Waits until the phone has closed its side; false when it sends something instead.
    bool isClosed() const;

    /// Whether nothing has arrived by now.
    bool isQuiet() const;

    void close();

    int descriptor() const { return fd_; }

private:
    int fd_ = -1;
};

// Pieces of XML property lists.
using Items = std::initializer_list<std::pair<std::string, std::string>>;
std::string text(std::string_view value);
std::string number(uint64_t value);
std::string dictionary(Items items);
std::string document(const std::string& value);

/// A property list as JSON: data as a string of its bytes; null when it is none.
nlohmann::json parsedList(const std::string& bytes);

// Little-endian integers, and a path with its NUL.
std::string u32(uint32_t value);
std::string u64(uint64_t value);
std::string pathArgument(std::string_view path);

/// The mux.
struct MuxReply {
    uint32_t length = 0;
    uint32_t version = 0;
    uint32_t message = 0;
    uint32_t tag = 0;
    std::string body;
    nlohmann::json list; ///< of the body

    uint64_t result() const { return list.value("Number", uint64_t{UINT64_MAX}); }
};

std::string muxMessage(const std::string& body, uint32_t tag = 1, uint32_t version = 1,
                       uint32_t message = 8);
std::optional<MuxReply> receiveMux(const WireSocket& socket);
MuxReply askMux(const WireSocket& socket, Items items, uint32_t tag = 1);

/// A tunnel to a port of the phone; the test fails when it is refused.
WireSocket connectTo(const Bus& bus, uint32_t device, uint16_t port);

/// Lockdown and the notification proxy: a length and a list.
std::string framedMessage(const std::string& body);
std::optional<std::string> receiveFramed(const WireSocket& socket);
nlohmann::json ask(const WireSocket& socket, Items items);
void tell(const WireSocket& socket, Items items);

/// The pair record that a request carries.
std::string pairRecord(const std::string& hostId);

/// A lockdown connection; in a session when asked for.
WireSocket connectLockdown(const Bus& bus, uint32_t device);
std::string startSession(const WireSocket& lockdown, const Bus& bus);

/// A connection to a service, started as a client has to.
WireSocket connectService(const Bus& bus, uint32_t device, const std::string& service);

/// The file service.
struct AfcReply {
    afc::Header header{};
    std::string arguments;
    std::string payload;

    /// The argument of status, opened and position answers.
    uint64_t value() const;

    bool isStatus(uint64_t status) const {
        return header.operation == afc::kStatus && value() == status;
    }
};

class AfcWire {
public:
    AfcWire(const Bus& bus, uint32_t device)
        : socket(connectService(bus, device, "com.apple.afc")) {}

    /// Sends a request and reads its answer; none when the connection has ended.
    std::optional<AfcReply> tryAsk(uint64_t operation, const std::string& arguments,
                                   const std::string& payload = {});
    /// The same, where an answer must come.
    AfcReply ask(uint64_t operation, const std::string& arguments, const std::string& payload = {});

    /// The packet that ask sends.
    std::string packet(uint64_t operation, const std::string& arguments,
                       const std::string& payload = {});
    std::optional<AfcReply> receive();

    uint64_t open(std::string_view path, uint64_t mode);
    uint64_t lock(uint64_t handle, uint64_t kind);
    std::string read(uint64_t handle, uint64_t size);
    uint64_t write(uint64_t handle, const std::string& bytes);
    uint64_t close(uint64_t handle);

    WireSocket socket;
    uint64_t lastNumber = 0;
};

/// Key, NUL, value, NUL, ... as an object.
nlohmann::json pairsIn(const std::string& payload);

} // namespace virtualphone::testing
