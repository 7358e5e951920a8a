// A file descriptor with one owner.
#pragma once

#include <unistd.h>

#include <utility>

namespace krl::provider {

class UniqueDescriptor {
public:
    UniqueDescriptor() = default;

    explicit UniqueDescriptor(int descriptor) : descriptor_(descriptor) {}

    UniqueDescriptor(UniqueDescriptor&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1)) {}

    UniqueDescriptor& operator=(UniqueDescriptor&& other) noexcept {
        UniqueDescriptor taken(std::move(other));
        std::swap(descriptor_, taken.descriptor_);
        return *this;
    }

    ~UniqueDescriptor() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }

    [[nodiscard]] int get() const { return descriptor_; }

    explicit operator bool() const { return descriptor_ >= 0; }

private:
    int descriptor_ = -1;
};

} // namespace krl::provider
