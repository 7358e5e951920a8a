#include "virtualphone/bus/MuxServer.h"

#include "virtualphone/phone/PhoneState.h"
#include "virtualphone/services/AfcServer.h"
#include "virtualphone/services/Handshake.h"
#include "virtualphone/services/LockdownServer.h"
#include "virtualphone/services/NotificationProxyServer.h"
#include "virtualphone/services/ReplyFaults.h"
#include "virtualphone/wire/Bytes.h"
#include "virtualphone/wire/FramedList.h"

#include <arpa/inet.h>

#include <cerrno>
#include <map>
#include <utility>

namespace virtualphone {

namespace {

struct MuxHeader {
    uint32_t length; // of the whole message
    uint32_t version;
    uint32_t message;
    uint32_t tag;
};

constexpr uint32_t kListVersion = 1;
constexpr uint32_t kListMessage = 8;
constexpr uint32_t kBinaryResultMessage = 1;

constexpr uint32_t kDone = 0;
constexpr uint32_t kBadCommand = 1;
constexpr uint32_t kBadVersion = 6;

Packet packetOf(uint32_t tag, const Plist& body) {
    const std::string xml = toXml(body);
    Packet packet(sizeof(MuxHeader));
    const auto length = static_cast<uint32_t>(sizeof(MuxHeader) + xml.size());
    storeLittle(packet.data(), MuxHeader{length, kListVersion, kListMessage, tag});
    packet.insert(packet.end(), xml.begin(), xml.end());
    return packet;
}

Plist newMessage(const char* type) {
    Plist message = newDictionary();
    setItem(message, "MessageType", type);
    return message;
}

Plist attachedMessage(const Attachment& attachment) {
    constexpr uint64_t kSpeed = 480'000'000;
    constexpr uint64_t kFirstLocation = 0x14100000;
    constexpr uint64_t kPhoneProduct = 0x1290;
    constexpr uint64_t kPodProduct = 0x1291;
    Plist properties = newDictionary();
    setItem(properties, "ConnectionType", "USB");
    setItem(properties, "ConnectionSpeed", newInteger(kSpeed));
    setItem(properties, "DeviceID", newInteger(attachment.id));
    setItem(properties, "LocationID", newInteger(kFirstLocation + attachment.id));
    setItem(properties, "ProductID", newInteger(attachment.isPod ? kPodProduct : kPhoneProduct));
    setItem(properties, "SerialNumber", attachment.udid);
    Plist message = newMessage("Attached");
    setItem(message, "DeviceID", newInteger(attachment.id));
    setItem(message, "Properties", std::move(properties));
    return message;
}

// Says the end of an encryption while the phone, whose faults count its bytes, is still there.
struct Farewell {
    Channel& channel;

    ~Farewell() { channel.endEncryption(); }
};

} // namespace

MuxServer::MuxServer(Channel& channel, const BusParts& bus, uint64_t connection)
    : channel_(channel), bus_(bus), connection_(connection),
      responder_(channel, bus.log, connection, bus.faults, spoilMux) {
    channel_.meter(bus.faults, Service::Usbmux);
}

void MuxServer::run() {
    Message message;
    while (receive(message)) {
        const bool isAnswered =
            message.version == kListVersion ? serve(message) : refuseVersion(message);
        if (tunnel_.phone) {
            if (isAnswered) {
                serveTunnel();
            }
            channel_.shutDown();
            channel_.waitForArrival();
            bus_.devices.close(tunnelDevice_, channel_);
            return;
        }
        if (!isAnswered) {
            return;
        }
        if (isListener_) {
            serveListener();
            return;
        }
    }
}

bool MuxServer::receive(Message& message) {
    char bytes[sizeof(MuxHeader)];
    if (!channel_.read(bytes)) {
        return false;
    }
    const auto header = loadLittle<MuxHeader>(bytes);
    if (header.length < sizeof header || header.length - sizeof header > kLongestList) {
        return false;
    }
    std::string body(header.length - sizeof header, '\0');
    if (!channel_.read(body)) {
        return false;
    }
    message = {header.version, header.tag, nullptr};
    if (header.version == kListVersion && header.message == kListMessage) {
        Plist list = fromBytes(body);
        if (isDictionary(list.get())) {
            message.body = std::move(list);
        }
    }
    return true;
}

// In the binary form, which whoever speaks another version understands if anyone does.
bool MuxServer::refuseVersion(const Message& message) {
    LogEntry entry = responder_.newEntry("BadVersion");
    entry.status = kBadVersion;
    if (!responder_.begin(entry)) {
        return false;
    }
    Packet packet(sizeof(MuxHeader) + sizeof kBadVersion);
    const auto length = static_cast<uint32_t>(packet.size());
    storeLittle(packet.data(), MuxHeader{length, 0, kBinaryResultMessage, message.tag});
    storeLittle(packet.data() + sizeof(MuxHeader), kBadVersion);
    return responder_.answer(std::move(entry), packet);
}

MuxServer::Handler MuxServer::handlerOf(const std::string& request) {
    static const std::map<std::string, Handler> handlers = {
        {"ListDevices", &MuxServer::listDevices},
        {"Listen", &MuxServer::listen},
        {"Connect", &MuxServer::connect},
        {"ReadBUID", &MuxServer::readBuid},
        {"ReadPairRecord", &MuxServer::readPairRecord},
        {"SavePairRecord", &MuxServer::savePairRecord},
        {"DeletePairRecord", &MuxServer::deletePairRecord},
        {"ListListeners", &MuxServer::listListeners},
    };
    const auto found = handlers.find(request);
    return found == handlers.end() ? nullptr : found->second;
}

bool MuxServer::serve(const Message& message) {
    const std::string request =
        message.body ? stringOf(itemOf(message.body, "MessageType")).value_or("") : "";
    Exchange exchange{message, nullptr, responder_.newEntry(request)};
    if (message.body) {
        describe(exchange);
    }
    if (!responder_.begin(exchange.entry)) {
        return false;
    }
    if (const std::optional<uint64_t> wanted = responder_.wantedStatus()) {
        return answer(exchange, static_cast<uint32_t>(*wanted));
    }
    const Handler handler = handlerOf(request);
    return answer(exchange, handler == nullptr ? kBadCommand : (this->*handler)(exchange));
}

void MuxServer::describe(Exchange& exchange) const {
    const Plist& body = exchange.message.body;
    LogEntry& entry = exchange.entry;
    entry.name = stringOf(itemOf(body, "PairRecordID")).value_or("");
    entry.phone = entry.name;
    entry.device = integerOf(itemOf(body, "DeviceID"));
    if (const std::optional<uint64_t> port = integerOf(itemOf(body, "PortNumber"))) {
        entry.port = ntohs(static_cast<uint16_t>(*port)); // travels in network order
    }
    if (entry.phone.empty() && entry.device) {
        entry.phone = bus_.devices.udidOf(static_cast<uint32_t>(*entry.device));
    }
}

bool MuxServer::answer(Exchange& exchange, uint32_t result) {
    if (!exchange.reply) {
        exchange.reply = newMessage("Result");
        setItem(exchange.reply, "Number", newInteger(result));
    }
    exchange.entry.status = result;
    Packet packet = packetOf(exchange.message.tag, exchange.reply);
    return responder_.answer(std::move(exchange.entry), packet);
}

uint32_t MuxServer::listDevices(Exchange& exchange) {
    Plist list = newArray();
    for (const Attachment& attachment : bus_.devices.attachments()) {
        appendItem(list, attachedMessage(attachment));
    }
    exchange.reply = newDictionary();
    setItem(exchange.reply, "DeviceList", std::move(list));
    return kDone;
}

uint32_t MuxServer::listen(Exchange&) {
    isListener_ = true;
    return kDone;
}

uint32_t MuxServer::connect(Exchange& exchange) {
    if (!exchange.entry.device || !exchange.entry.port) {
        return kBadCommand;
    }
    tunnelDevice_ = static_cast<uint32_t>(*exchange.entry.device);
    tunnel_ =
        bus_.devices.open(tunnelDevice_, static_cast<uint16_t>(*exchange.entry.port), channel_);
    return static_cast<uint32_t>(tunnel_.refusal);
}

uint32_t MuxServer::readBuid(Exchange& exchange) {
    exchange.reply = newDictionary();
    setItem(exchange.reply, "BUID", hostSystemBuid());
    return kDone;
}

uint32_t MuxServer::readPairRecord(Exchange& exchange) {
    const std::optional<std::string> record = bus_.records.read(exchange.entry.name);
    if (!record) {
        return ENOENT;
    }
    exchange.reply = newDictionary();
    setItem(exchange.reply, "PairRecordData", newData(*record));
    return kDone;
}

uint32_t MuxServer::savePairRecord(Exchange& exchange) {
    const std::optional<std::string> data = dataOf(itemOf(exchange.message.body, "PairRecordData"));
    if (exchange.entry.name.empty() || !data || data->empty()) {
        return EINVAL;
    }
    bus_.records.save(exchange.entry.name, *data);
    if (exchange.entry.device) {
        bus_.devices.announcePaired(static_cast<uint32_t>(*exchange.entry.device));
    }
    return kDone;
}

uint32_t MuxServer::deletePairRecord(Exchange& exchange) {
    return bus_.records.remove(exchange.entry.name) ? kDone : uint32_t{ENOENT};
}

uint32_t MuxServer::listListeners(Exchange& exchange) {
    Plist list = newArray();
    for (size_t left = bus_.devices.listenerCount(); left > 0; --left) {
        Plist listener = newDictionary();
        setItem(listener, "ConnType", newInteger(0));
        appendItem(list, std::move(listener));
    }
    exchange.reply = newDictionary();
    setItem(exchange.reply, "ListenerList", std::move(list));
    return kDone;
}

// A listener has nothing more to ask: what it sends is refused, and it is closed.
void MuxServer::serveListener() {
    bus_.devices.addListener(*this);
    channel_.waitForInput(std::chrono::milliseconds(-1));
    bus_.devices.removeListener(*this);
    Message message;
    if (!receive(message)) {
        return;
    }
    const std::string request =
        message.body ? stringOf(itemOf(message.body, "MessageType")).value_or("") : "";
    Exchange exchange{message, nullptr, responder_.newEntry(request)};
    if (responder_.begin(exchange.entry)) {
        answer(exchange, kBadCommand);
    }
}

void MuxServer::serveTunnel() {
    PhoneState& phone = tunnel_.phone->state();
    channel_.meter(phone.faults, tunnel_.service);
    if (phone.options.wireDelay.count() > 0 && !channel_.lengthen(phone.options.wireDelay)) {
        return;
    }
    const Farewell farewell{channel_};
    const Client client{channel_, phone, bus_.log, connection_,
                        [this] { bus_.pullOut(tunnelDevice_); }};
    if (tunnel_.service != Service::Lockdown && phone.hasSecureServices()) {
        Responder responder(client, tunnel_.service, spoilFramed);
        if (!shakeHands(client, responder, phone.hosts.certificates())) {
            return;
        }
    }
    switch (tunnel_.service) {
    case Service::Lockdown:
        LockdownServer(client).run();
        break;
    case Service::Afc:
        AfcServer(client).run();
        break;
    case Service::NotificationProxy:
        NotificationProxyServer(client).run();
        break;
    case Service::Usbmux:
        break;
    }
}

void MuxServer::attached(const Attachment& attachment) {
    announce(attachedMessage(attachment));
}

void MuxServer::detached(uint32_t id) {
    const Plist news = newMessage("Detached");
    setItem(news, "DeviceID", newInteger(id));
    announce(news);
}

void MuxServer::paired(uint32_t id) {
    const Plist news = newMessage("Paired");
    setItem(news, "DeviceID", newInteger(id));
    announce(news);
}

void MuxServer::announce(const Plist& news) {
    channel_.sendNow(packetOf(0, news));
}

} // namespace virtualphone
