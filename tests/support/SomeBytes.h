// The content of a file, as long as asked: the same each time, no piece like another.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace krl::test {

inline std::string someBytes(size_t size) {
    std::string bytes(size, '\0');
    uint32_t state = 12345;
    for (char& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

} // namespace krl::test
