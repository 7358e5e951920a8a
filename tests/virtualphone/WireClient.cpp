#include "tests/virtualphone/WireClient.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <plist/plist.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

namespace virtualphone::testing {

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what);
}

template <typename T>
T loaded(const std::string& bytes, size_t at = 0) {
    T value{};
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

template <typename T>
std::string stored(T value) {
    std::string bytes(sizeof value, '\0');
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

nlohmann::json converted(plist_t node);

nlohmann::json convertedDictionary(plist_t node) {
    nlohmann::json object = nlohmann::json::object();
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(node, &iterator);
    while (true) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(node, iterator, &key, &value);
        if (value == nullptr) {
            break;
        }
        object[key] = converted(value);
        std::free(key);
    }
    std::free(iterator);
    return object;
}

nlohmann::json converted(plist_t node) {
    switch (plist_get_node_type(node)) {
    case PLIST_DICT:
        return convertedDictionary(node);
    case PLIST_ARRAY: {
        nlohmann::json array = nlohmann::json::array();
        for (uint32_t i = 0; i < plist_array_get_size(node); ++i) {
            array.push_back(converted(plist_array_get_item(node, i)));
        }
        return array;
    }
    case PLIST_STRING:
        return std::string(plist_get_string_ptr(node, nullptr));
    case PLIST_UINT: {
        uint64_t value = 0;
        plist_get_uint_val(node, &value);
        return value;
    }
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return value != 0;
    }
    case PLIST_DATA: {
        uint64_t length = 0;
        const char* bytes = plist_get_data_ptr(node, &length);
        return std::string(bytes, length);
    }
    default:
        return nullptr;
    }
}

} // namespace

WireSocket::WireSocket(const Bus& bus) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, bus.socketPath().c_str(), sizeof address.sun_path - 1);
    if (connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        fail("cannot connect to the bus");
    }
    const timeval limit{.tv_sec = 30, .tv_usec = 0};
    setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
}

WireSocket::~WireSocket() {
    close();
}

void WireSocket::close() {
    if (fd_ >= 0) {
        ::close(std::exchange(fd_, -1));
    }
}

bool WireSocket::send(std::string_view bytes) const {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
    return true;
}

std::string WireSocket::receive(size_t count) const {
    std::string bytes(count, '\0');
    size_t have = 0;
    while (have < count) {
        const ssize_t got = recv(fd_, bytes.data() + have, count - have, 0);
        if (got < 0 && errno == EAGAIN) {
            fail("the phone says nothing");
        }
        if (got <= 0) {
            break;
        }
        have += static_cast<size_t>(got);
    }
    bytes.resize(have);
    return bytes;
}

bool WireSocket::isClosed() const {
    return receive(1).empty();
}

bool WireSocket::isQuiet() const {
    pollfd waiting{.fd = fd_, .events = POLLIN, .revents = 0};
    return poll(&waiting, 1, 0) == 0;
}

std::string text(std::string_view value) {
    return "<string>" + std::string(value) + "</string>";
}

std::string number(uint64_t value) {
    return "<integer>" + std::to_string(value) + "</integer>";
}

std::string dictionary(Items items) {
    std::string xml = "<dict>";
    for (const auto& [key, value] : items) {
        xml += "<key>" + key + "</key>" + value;
    }
    return xml + "</dict>";
}

std::string document(const std::string& value) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + value +
           "</plist>\n";
}

nlohmann::json parsedList(const std::string& bytes) {
    plist_t list = nullptr;
    plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &list);
    if (list == nullptr) {
        return nullptr;
    }
    nlohmann::json value = converted(list);
    plist_free(list);
    return value;
}

std::string u32(uint32_t value) {
    return stored(value);
}

std::string u64(uint64_t value) {
    return stored(value);
}

std::string pathArgument(std::string_view path) {
    return std::string(path) + '\0';
}

std::string muxMessage(const std::string& body, uint32_t tag, uint32_t version, uint32_t message) {
    return u32(static_cast<uint32_t>(16 + body.size())) + u32(version) + u32(message) + u32(tag) +
           body;
}

std::optional<MuxReply> receiveMux(const WireSocket& socket) {
    const std::string header = socket.receive(16);
    if (header.size() < 16) {
        return std::nullopt;
    }
    MuxReply reply;
    reply.length = loaded<uint32_t>(header, 0);
    reply.version = loaded<uint32_t>(header, 4);
    reply.message = loaded<uint32_t>(header, 8);
    reply.tag = loaded<uint32_t>(header, 12);
    reply.body = socket.receive(reply.length - 16);
    reply.list = parsedList(reply.body);
    return reply;
}

MuxReply askMux(const WireSocket& socket, Items items, uint32_t tag) {
    socket.send(muxMessage(document(dictionary(items)), tag));
    std::optional<MuxReply> reply = receiveMux(socket);
    if (!reply) {
        fail("the bus closed the connection");
    }
    return *reply;
}

WireSocket connectTo(const Bus& bus, uint32_t device, uint16_t port) {
    WireSocket socket(bus);
    const MuxReply reply = askMux(socket, {{"MessageType", text("Connect")},
                                           {"DeviceID", number(device)},
                                           {"PortNumber", number(htons(port))}});
    if (reply.result() != 0) {
        fail("connecting gave " + std::to_string(reply.result()));
    }
    return socket;
}

std::string framedMessage(const std::string& body) {
    return stored(htonl(static_cast<uint32_t>(body.size()))) + body;
}

std::optional<std::string> receiveFramed(const WireSocket& socket) {
    const std::string length = socket.receive(4);
    if (length.size() < 4) {
        return std::nullopt;
    }
    return socket.receive(ntohl(loaded<uint32_t>(length)));
}

void tell(const WireSocket& socket, Items items) {
    socket.send(framedMessage(document(dictionary(items))));
}

nlohmann::json ask(const WireSocket& socket, Items items) {
    tell(socket, items);
    const std::optional<std::string> reply = receiveFramed(socket);
    return reply ? parsedList(*reply) : nlohmann::json();
}

std::string pairRecord(const std::string& hostId) {
    const std::string data = "<data>UEVN</data>";
    return dictionary({{"HostID", text(hostId)},
                       {"SystemBUID", text("8E1D0B6A-52C7-4D3F-9A60-C4B7715E2F08")},
                       {"DeviceCertificate", data},
                       {"HostCertificate", data},
                       {"RootCertificate", data}});
}

WireSocket connectLockdown(const Bus& bus, uint32_t device) {
    return connectTo(bus, device, 62078);
}

std::string startSession(const WireSocket& lockdown, const Bus& bus) {
    ask(lockdown, {{"Request", text("ValidatePair")}, {"PairRecord", pairRecord(bus.hostId())}});
    const nlohmann::json reply = ask(lockdown, {{"Request", text("StartSession")},
                                                {"HostID", text(bus.hostId())},
                                                {"SystemBUID", text(bus.systemBuid())}});
    return reply.value("SessionID", "");
}

WireSocket connectService(const Bus& bus, uint32_t device, const std::string& service) {
    const WireSocket lockdown = connectLockdown(bus, device);
    startSession(lockdown, bus);
    const nlohmann::json reply =
        ask(lockdown, {{"Request", text("StartService")}, {"Service", text(service)}});
    return connectTo(bus, device, reply.at("Port").get<uint16_t>());
}

uint64_t AfcReply::value() const {
    if (arguments.size() != sizeof(uint64_t)) {
        fail("the answer has no single argument");
    }
    return loaded<uint64_t>(arguments);
}

std::string AfcWire::packet(uint64_t operation, const std::string& arguments,
                            const std::string& payload) {
    const uint64_t length = afc::kHeaderSize + arguments.size();
    return std::string(afc::kMagic) + u64(length + payload.size()) + u64(length) +
           u64(++lastNumber) + u64(operation) + arguments + payload;
}

std::optional<AfcReply> AfcWire::receive() {
    const std::string header = socket.receive(afc::kHeaderSize);
    if (header.size() < afc::kHeaderSize) {
        return std::nullopt;
    }
    AfcReply reply;
    reply.header = loaded<afc::Header>(header);
    reply.arguments = socket.receive(reply.header.thisLength - afc::kHeaderSize);
    reply.payload = socket.receive(reply.header.entireLength - reply.header.thisLength);
    return reply;
}

std::optional<AfcReply> AfcWire::tryAsk(uint64_t operation, const std::string& arguments,
                                        const std::string& payload) {
    if (!socket.send(packet(operation, arguments, payload))) {
        return std::nullopt;
    }
    return receive();
}

AfcReply AfcWire::ask(uint64_t operation, const std::string& arguments,
                      const std::string& payload) {
    std::optional<AfcReply> reply = tryAsk(operation, arguments, payload);
    if (!reply) {
        fail("the phone closed the connection");
    }
    EXPECT_EQ(reply->header.number, lastNumber);
    EXPECT_EQ(std::string_view(reply->header.magic.data(), 8), afc::kMagic);
    return *reply;
}

uint64_t AfcWire::open(std::string_view path, uint64_t mode) {
    const AfcReply reply = ask(afc::kOpen, u64(mode) + pathArgument(path));
    if (reply.header.operation != afc::kOpened) {
        fail("opening " + std::string(path) + " gave " + std::to_string(reply.value()));
    }
    return reply.value();
}

uint64_t AfcWire::lock(uint64_t handle, uint64_t kind) {
    return ask(afc::kLock, u64(handle) + u64(kind)).value();
}

std::string AfcWire::read(uint64_t handle, uint64_t size) {
    const AfcReply reply = ask(afc::kRead, u64(handle) + u64(size));
    EXPECT_EQ(reply.header.operation, afc::kData);
    return reply.payload;
}

uint64_t AfcWire::write(uint64_t handle, const std::string& bytes) {
    return ask(afc::kWrite, u64(handle), bytes).value();
}

uint64_t AfcWire::close(uint64_t handle) {
    return ask(afc::kClose, u64(handle)).value();
}

nlohmann::json pairsIn(const std::string& payload) {
    nlohmann::json pairs = nlohmann::json::object();
    size_t at = 0;
    while (at < payload.size()) {
        const std::string key = payload.c_str() + at;
        at += key.size() + 1;
        const std::string value = payload.c_str() + at;
        at += value.size() + 1;
        pairs[key] = value;
    }
    return pairs;
}

} // namespace virtualphone::testing
