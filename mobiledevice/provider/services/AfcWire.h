// The file service on the wire: a header of five 64-bit little-endian words, arguments, payload.
#pragma once

#include <endian.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace krl::provider::afc {

enum class Operation : uint64_t {
    Status = 0x01,
    Data = 0x02,
    ReadDirectory = 0x03,
    RemovePath = 0x08,
    MakeDirectory = 0x09,
    FileInfo = 0x0A,
    DeviceInfo = 0x0B,
    OpenFile = 0x0D,
    FileOpened = 0x0E,
    ReadFile = 0x0F,
    WriteFile = 0x10,
    CloseFile = 0x14,
    RenamePath = 0x18,
    LockFile = 0x1B
};

enum class Lock : uint64_t { Exclusive = 6, Unlock = 12 }; // both without waiting

inline constexpr std::array<char, 8> kMagic{'C', 'F', 'A', '6', 'L', 'P', 'A', 'A'};

/// As it stands on the wire; integers in wire order.
struct Header {
    std::array<char, 8> magic;
    uint64_t entireLength; ///< header, arguments and payload
    uint64_t thisLength;   ///< header and arguments
    uint64_t number;       ///< chosen by the client, repeated in the reply
    uint64_t operation;
};

inline constexpr uint64_t kHeaderBytes = 40;
static_assert(sizeof(Header) == kHeaderBytes);

inline Header makeHeader(Operation operation, uint64_t number, uint64_t argumentBytes,
                         uint64_t payloadBytes) {
    return Header{kMagic, htole64(kHeaderBytes + argumentBytes + payloadBytes),
                  htole64(kHeaderBytes + argumentBytes), htole64(number),
                  htole64(static_cast<uint64_t>(operation))};
}

} // namespace krl::provider::afc
