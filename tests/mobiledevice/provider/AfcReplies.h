// Replies of the file service byte by byte, good ones and others. Written down apart from the
// client's own records, so that both cannot be wrong in the same way.
#pragma once

#include <cstdint>
#include <string>

namespace krl::provider::testing {

inline std::string afcWord(uint64_t value) {
    std::string bytes;
    for (int i = 0; i < 8; ++i) {
        bytes.push_back(static_cast<char>(value >> (8 * i)));
    }
    return bytes;
}

inline uint64_t afcWordAt(const std::string& bytes, size_t position) {
    uint64_t value = 0;
    for (size_t i = 8; i-- > 0;) {
        value = value << 8 | static_cast<uint8_t>(bytes.at(position + i));
    }
    return value;
}

/// A message with any header.
struct AfcMessage {
    std::string magic = "CFA6LPAA";
    uint64_t entireLength = 0;
    uint64_t thisLength = 0;
    uint64_t number = 1;
    uint64_t operation = 1;
    std::string body = "";

    [[nodiscard]] std::string bytes() const {
        return magic + afcWord(entireLength) + afcWord(thisLength) + afcWord(number) +
               afcWord(operation) + body;
    }
};

inline AfcMessage afcWordReply(uint64_t operation, uint64_t number, uint64_t value) {
    return {.entireLength = 48,
            .thisLength = 48,
            .number = number,
            .operation = operation,
            .body = afcWord(value)};
}

inline AfcMessage afcStatus(uint64_t number, uint64_t status) {
    return afcWordReply(0x01, number, status);
}

inline AfcMessage afcOpened(uint64_t number, uint64_t handle) {
    return afcWordReply(0x0E, number, handle);
}

inline AfcMessage afcData(uint64_t number, const std::string& payload) {
    return {.entireLength = 40 + payload.size(),
            .thisLength = 40,
            .number = number,
            .operation = 0x02,
            .body = payload};
}

} // namespace krl::provider::testing
