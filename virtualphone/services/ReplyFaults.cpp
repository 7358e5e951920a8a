#include "virtualphone/services/ReplyFaults.h"

#include "virtualphone/services/AfcProtocol.h"
#include "virtualphone/wire/Bytes.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace virtualphone {

namespace {

constexpr size_t kTooFewOrMany = 8;
constexpr std::string_view kSurplus = "surplus!";
static_assert(kSurplus.size() == kTooFewOrMany);

void scramble(Packet& packet, size_t from) {
    for (size_t i = std::min(from, packet.size()); i < packet.size(); ++i) {
        packet[i] = static_cast<char>(packet[i] ^ 0x5A);
    }
}

void cutEnd(Packet& packet, size_t least) {
    packet.resize(std::max(least, packet.size() - std::min(packet.size(), kTooFewOrMany)));
}

void addSurplus(Packet& packet) {
    packet.insert(packet.end(), kSurplus.begin(), kSurplus.end());
}

uint64_t anotherKind(uint64_t operation) {
    return operation == afc::kStatus ? afc::kOpened : afc::kStatus;
}

} // namespace

void spoilAfc(Packet& packet, FaultAction action) {
    auto header = loadLittle<afc::Header>(packet.data());
    const bool hasPayload = header.entireLength > header.thisLength;
    // The lengths follow the size; arguments when there is no payload to take it from.
    const auto adjustLengths = [&] {
        header.entireLength = packet.size();
        if (!hasPayload && header.operation != afc::kData) {
            header.thisLength = packet.size();
        }
    };
    switch (action) {
    case FaultAction::ShortReply:
        cutEnd(packet, afc::kHeaderSize);
        adjustLengths();
        break;
    case FaultAction::LongReply:
        addSurplus(packet);
        adjustLengths();
        break;
    case FaultAction::GarbledReply:
        scramble(packet, offsetof(afc::Header, number));
        return;
    case FaultAction::BadMagic:
        std::copy_n("NOTMAGIC", header.magic.size(), header.magic.begin());
        break;
    case FaultAction::WrongNumber:
        ++header.number;
        break;
    case FaultAction::WrongOperation:
        header.operation = anotherKind(header.operation);
        break;
    case FaultAction::TinyLength:
        header.entireLength = 8;
        header.thisLength = 8;
        break;
    case FaultAction::HugeLength:
        header.entireLength = uint64_t{1} << 62;
        break;
    default:
        return;
    }
    storeLittle(packet.data(), header);
}

void spoilFramed(Packet& packet, FaultAction action) {
    uint32_t length = ntohl(loadLittle<uint32_t>(packet.data()));
    switch (action) {
    case FaultAction::ShortReply:
        cutEnd(packet, sizeof length);
        length = static_cast<uint32_t>(packet.size() - sizeof length);
        break;
    case FaultAction::LongReply:
        addSurplus(packet);
        length = static_cast<uint32_t>(packet.size() - sizeof length);
        break;
    case FaultAction::GarbledReply:
        scramble(packet, sizeof length);
        return;
    case FaultAction::TinyLength:
        length = 0;
        break;
    case FaultAction::HugeLength:
        length = 0xFFFFFFF0;
        break;
    default:
        return;
    }
    storeLittle(packet.data(), htonl(length));
}

void spoilMux(Packet& packet, FaultAction action) {
    constexpr size_t kVersionAt = 4;
    constexpr size_t kMessageAt = 8;
    constexpr size_t kTagAt = 12;
    constexpr size_t kHeaderSize = 16;
    auto length = loadLittle<uint32_t>(packet.data());
    switch (action) {
    case FaultAction::ShortReply:
        cutEnd(packet, kHeaderSize);
        length = static_cast<uint32_t>(packet.size());
        break;
    case FaultAction::LongReply:
        addSurplus(packet);
        length = static_cast<uint32_t>(packet.size());
        break;
    case FaultAction::GarbledReply:
        scramble(packet, kHeaderSize);
        return;
    case FaultAction::BadMagic:
        storeLittle(packet.data() + kVersionAt, uint32_t{7});
        return;
    case FaultAction::WrongNumber:
        storeLittle(packet.data() + kTagAt, loadLittle<uint32_t>(packet.data() + kTagAt) + 1);
        return;
    case FaultAction::WrongOperation:
        storeLittle(packet.data() + kMessageAt, uint32_t{5});
        return;
    case FaultAction::TinyLength:
        length = kHeaderSize - 1;
        break;
    case FaultAction::HugeLength:
        length = 0xFFFFFFF0;
        break;
    default:
        return;
    }
    storeLittle(packet.data(), length);
}

} // namespace virtualphone
