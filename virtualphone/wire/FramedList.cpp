#include "virtualphone/wire/FramedList.h"

#include "virtualphone/wire/Bytes.h"

#include <arpa/inet.h>

#include <cstdint>
#include <string>

namespace virtualphone {

Plist receiveDictionary(Channel& channel) {
    char lengthBytes[sizeof(uint32_t)];
    if (!channel.read(lengthBytes)) {
        return nullptr;
    }
    const uint32_t length = ntohl(loadLittle<uint32_t>(lengthBytes));
    if (length == 0 || length > kLongestList) {
        return nullptr;
    }
    std::string body(length, '\0');
    if (!channel.read(body)) {
        return nullptr;
    }
    Plist list = fromBytes(body);
    return isDictionary(list.get()) ? std::move(list) : nullptr;
}

Packet framed(const Plist& list, bool asBinary) {
    const std::string body = asBinary ? toBinary(list) : toXml(list);
    Packet packet(sizeof(uint32_t));
    storeLittle(packet.data(), htonl(static_cast<uint32_t>(body.size())));
    packet.insert(packet.end(), body.begin(), body.end());
    return packet;
}

} // namespace virtualphone
