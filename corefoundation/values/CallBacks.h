/// The callbacks that a collection keeps. Internal.
#pragma once

#include "corefoundation/values/CFRuntime.h"

#include <CoreFoundation/CFRef.h>

namespace krl::cf {

// The callbacks for objects.
const void* retainObject(CFAllocatorRef allocator, const void* value);
void releaseObject(CFAllocatorRef allocator, const void* value);
CFStringRef copyObjectDescription(const void* value);
Boolean equalObjects(const void* left, const void* right);
CFHashCode hashObject(const void* value);

/// One set of callbacks: one of the two that nearly every collection has, which are shared, or a
/// copy of the caller's.
template <typename Set>
class CallBacks {
public:
    CallBacks(const Set* given, const Set& typeCallBacks) : set_(choose(given, typeCallBacks)) {}

    CallBacks(const CallBacks& other)
        : owned_(other.owned_), set_(other.owned_ ? new Set(*other.set_) : other.set_) {}

    CallBacks& operator=(const CallBacks&) = delete;

    ~CallBacks() {
        if (owned_) {
            delete set_;
        }
    }

    const void* retain(const void* value) const {
        return set_->retain != nullptr ? set_->retain(nullptr, value) : value;
    }

    void release(const void* value) const {
        if (set_->release != nullptr) {
            set_->release(nullptr, value);
        }
    }

    bool equal(const void* left, const void* right) const {
        return left == right || (set_->equal != nullptr && set_->equal(left, right));
    }

    /// Whether the values are objects and hashed as such.
    bool hashesObjects() const { return set_->hash == hashObject; }

    CFHashCode hash(const void* value) const {
        return set_->hash != nullptr ? set_->hash(value) : reinterpret_cast<CFHashCode>(value);
    }

    CFStringRef copyDescription(const void* value) const {
        if (set_->copyDescription != nullptr) {
            return set_->copyDescription(value);
        }
        return CFStringCreateWithFormat(nullptr, nullptr, CFSTR("<%p>"), value);
    }

    /// Whether a value may be kept: objects must not be null.
    bool accepts(const void* value) const {
        return value != nullptr || set_->retain != retainObject;
    }

private:
    const Set* choose(const Set* given, const Set& typeCallBacks) {
        static constexpr Set kNone{};
        if (given == nullptr) {
            return &kNone;
        }
        if (given == &typeCallBacks) {
            return given;
        }
        owned_ = true;
        return new Set(*given);
    }

    bool owned_ = false;
    const Set* set_;
};

} // namespace krl::cf
