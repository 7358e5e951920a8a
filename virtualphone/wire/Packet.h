/// The bytes of one answer, header first, so that they leave with one call.
#pragma once

#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace virtualphone {

/// Leaves new bytes unset: a packet about to be filled from a file is not zeroed first.
template <typename T>
struct UnsetAllocator : std::allocator<T> {
    template <typename U>
    struct rebind {
        using other = UnsetAllocator<U>;
    };

    template <typename U>
    void construct(U* place) {
        ::new (static_cast<void*>(place)) U;
    }

    template <typename U, typename... Arguments>
    void construct(U* place, Arguments&&... arguments) {
        ::new (static_cast<void*>(place)) U(std::forward<Arguments>(arguments)...);
    }
};

using Packet = std::vector<char, UnsetAllocator<char>>;

} // namespace virtualphone
