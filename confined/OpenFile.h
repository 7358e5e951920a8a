#pragma once

#include <unistd.h>

#include <utility>

namespace krl::confined {

/// An open file or socket, closed with its holder.
class OpenFile {
public:
    explicit OpenFile(int descriptor = -1) : descriptor_(descriptor) {}

    ~OpenFile() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }

    OpenFile(OpenFile&& other) noexcept : descriptor_(other.release()) {}

    OpenFile& operator=(OpenFile&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }

    /// Lent.
    int get() const { return descriptor_; }

    /// Handed on to the caller.
    int release() { return std::exchange(descriptor_, -1); }

    explicit operator bool() const { return descriptor_ >= 0; }

private:
    int descriptor_;
};

} // namespace krl::confined
