#include "tests/support/Shortage.h"

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_realloc(void* memory, size_t size);
}

namespace krl::test {
namespace {

struct Shortage {
    bool isOn = false;
    bool isSuspended = false;
    Failing failing = Failing::Once;
    size_t countdown = 0;
    bool wasMet = false;

    bool meets() {
        if (!isOn || isSuspended || countdown-- > 0) {
            return false;
        }
        wasMet = true;
        countdown = 0;
        isOn = failing == Failing::FromThenOn;
        return true;
    }
};

constinit Shortage shortage;

/// Ends the shortage also when the action ends by an exception.
struct Scope {
    Scope(Failing failing, size_t allocations) {
        shortage = {.isOn = true, .failing = failing, .countdown = allocations};
    }

    ~Scope() { shortage.isOn = false; }

    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
};

} // namespace

bool isShort(Failing failing, size_t allocations, const std::function<void()>& action) {
    {
        const Scope scope(failing, allocations);
        action();
    }
    return shortage.wasMet;
}

Plenty::Plenty() : wasSuspended_(std::exchange(shortage.isSuspended, true)) {}

Plenty::~Plenty() {
    shortage.isSuspended = wasSuspended_;
}

} // namespace krl::test

extern "C" {

[[gnu::visibility("default")]] void* malloc(size_t size) noexcept {
    return krl::test::shortage.meets() ? nullptr : __libc_malloc(size);
}

[[gnu::visibility("default")]] void* realloc(void* memory, size_t size) noexcept {
    return krl::test::shortage.meets() ? nullptr : __libc_realloc(memory, size);
}
}
