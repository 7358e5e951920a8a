/// Bytes that grow, and become a CFData without being copied. Internal.
#pragma once

#include "corefoundation/values/CFRuntime.h"

#include <CoreFoundation/CFData.h>
#include <algorithm>
#include <cstring>
#include <string_view>

namespace krl::cf {

/// Memory that runs out is thrown.
class ByteBuffer {
public:
    ByteBuffer() = default;
    ByteBuffer(const ByteBuffer&) = delete;
    ByteBuffer& operator=(const ByteBuffer&) = delete;

    ~ByteBuffer() { std::free(bytes_); }

    /// Makes room for so many bytes more. @return where they go; add says how many have gone there.
    char* room(size_t size) {
        if (size > capacity_ - size_ || bytes_ == nullptr) {
            grow(size);
        }
        return bytes_ + size_;
    }

    void add(size_t size) { size_ += size; }

    void append(std::string_view text) {
        std::memcpy(room(text.size()), text.data(), text.size());
        add(text.size());
    }

    void append(size_t count, char character) {
        std::memset(room(count), character, count);
        add(count);
    }

    /// A mutable CFData of the bytes, without spare room; the buffer is empty afterwards.
    CFMutableDataRef takeIntoData();

private:
    void grow(size_t size) {
        constexpr size_t kSmallest = 64;
        const size_t capacity = std::max({kSmallest, size_ + size, capacity_ + capacity_ / 2});
        bytes_ = static_cast<char*>(reallocate(bytes_, capacity));
        capacity_ = capacity;
    }

    char* bytes_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

} // namespace krl::cf
