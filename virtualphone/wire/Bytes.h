/// Integers in packets.
#pragma once

#include <bit>
#include <cstring>
#include <type_traits>

namespace virtualphone {

static_assert(std::endian::native == std::endian::little,
              "the packets are little-endian and are read as they stand");

/// Reads an integer or a record of them; the bytes must be there.
template <typename T>
T loadLittle(const char* bytes) {
    static_assert(std::is_trivially_copyable_v<T>);
    T value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

template <typename T>
void storeLittle(char* bytes, const T& value) {
    static_assert(std::is_trivially_copyable_v<T>);
    std::memcpy(bytes, &value, sizeof value);
}

} // namespace virtualphone
