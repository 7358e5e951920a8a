// Files that are made to do harm to whoever reads them.
#pragma once

#include <cstddef>
#include <string>

namespace krl::test {

/// An MPEG-4 file of containers in containers: a reader that descends into each by a call of its
/// own runs out of stack.
inline std::string nestedAtoms(size_t depth) {
    std::string bytes("\0\0\0\x10"
                      "ftypM4A \0\0\0\0",
                      16);
    for (size_t left = depth; left > 0; --left) {
        const size_t size = left * 8;
        for (const unsigned shift : {24U, 16U, 8U, 0U}) {
            bytes += static_cast<char>((size >> shift) & 0xFFU);
        }
        bytes += "moov";
    }
    return bytes;
}

} // namespace krl::test
