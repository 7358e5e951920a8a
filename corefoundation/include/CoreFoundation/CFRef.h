/**
 * @file
 * One reference to a CoreFoundation object, given back when the CFRef goes.
 *
 *     auto name = adopt(CFStringCreateWithCString(nullptr, utf8, kCFStringEncodingUTF8)); // create
 *     entry.title = retain(static_cast<CFStringRef>(CFArrayGetValueAtIndex(names, 0)));    // get
 *     return name.leak();                                            // our own Create function
 *
 * Which rule applies is a word at the call; a bare pointer never becomes a CFRef by itself.
 */
#ifndef COREFOUNDATION_CFREF_H
#define COREFOUNDATION_CFREF_H

#include <CoreFoundation/CoreFoundation.h>
#include <cstddef>
#include <type_traits>
#include <utility>

namespace krl::cf {

/** One reference. T is a reference type such as CFStringRef. */
template <typename T>
class CFRef {
    static_assert(std::is_pointer_v<T>, "T is a reference type such as CFStringRef");

public:
    /** No object. */
    CFRef() noexcept = default;

    /** No object. */
    CFRef(std::nullptr_t) noexcept {}

    /** One more reference to the object of another. */
    CFRef(const CFRef& other) noexcept : ref_(other.ref_) { CFRetain(ref_); }

    /** The reference of another, which has none then. */
    CFRef(CFRef&& other) noexcept : ref_(std::exchange(other.ref_, nullptr)) {}

    /** From a reference to something more special: CFMutableStringRef to CFStringRef. */
    template <typename U>
    requires std::is_convertible_v<U, T> CFRef(const CFRef<U>& other)
    noexcept : ref_(other.get()) { CFRetain(ref_); }

    /** Likewise, taking the reference over. */
    template <typename U>
    requires std::is_convertible_v<U, T> CFRef(CFRef<U>&& other)
    noexcept : ref_(other.leak()) {}

    /** Lets go of what it held. */
    CFRef& operator=(CFRef other) noexcept {
        std::swap(ref_, other.ref_);
        return *this;
    }

    ~CFRef() { CFRelease(ref_); }

    /** Takes a reference over. */
    static CFRef adopting(T object) noexcept {
        CFRef ref;
        ref.ref_ = object;
        return ref;
    }

    /** The object, lent; null when there is none. */
    T get() const noexcept { return ref_; }

    /** Whether there is an object. */
    explicit operator bool() const noexcept { return ref_ != nullptr; }

    /** Hands the reference out; somebody else releases it. */
    [[nodiscard]] T leak() noexcept { return std::exchange(ref_, nullptr); }

    /** Lets go of the object. */
    void reset() noexcept { *this = CFRef(); }

    /** For functions that hand a new reference out through a pointer. What was held goes first. */
    T* receive() noexcept {
        reset();
        return &ref_;
    }

    /** The reference counts itself. */
    friend void CFRelease(const CFRef& ref) = delete;

    /** Whether both are the same object; see CFEqual for equal ones. */
    friend bool operator==(const CFRef& left, const CFRef& right) noexcept {
        return left.ref_ == right.ref_;
    }

    /** Whether there is no object. */
    friend bool operator==(const CFRef& left, std::nullptr_t) noexcept {
        return left.ref_ == nullptr;
    }

private:
    T ref_ = nullptr;
};

/** Takes over the result of a Create or Copy function. */
template <typename T>
[[nodiscard]] CFRef<T> adopt(T object) noexcept {
    return CFRef<T>::adopting(object);
}

/** Keeps an object that is only lent. */
template <typename T>
[[nodiscard]] CFRef<T> retain(T object) noexcept {
    CFRetain(object);
    return CFRef<T>::adopting(object);
}

/** The type of objects that a reference type is for; for those that follow. */
template <typename T>
CFTypeID typeIDOf() = delete;

/** @cond */
template <>
inline CFTypeID typeIDOf<CFArrayRef>() {
    return CFArrayGetTypeID();
}

template <>
inline CFTypeID typeIDOf<CFBooleanRef>() {
    return CFBooleanGetTypeID();
}

template <>
inline CFTypeID typeIDOf<CFDataRef>() {
    return CFDataGetTypeID();
}

template <>
inline CFTypeID typeIDOf<CFDateRef>() {
    return CFDateGetTypeID();
}

template <>
inline CFTypeID typeIDOf<CFDictionaryRef>() {
    return CFDictionaryGetTypeID();
}

template <>
inline CFTypeID typeIDOf<CFErrorRef>() {
    return CFErrorGetTypeID();
}

template <>
inline CFTypeID typeIDOf<CFNumberRef>() {
    return CFNumberGetTypeID();
}

template <>
inline CFTypeID typeIDOf<CFStringRef>() {
    return CFStringGetTypeID();
}

template <>
inline CFTypeID typeIDOf<CFURLRef>() {
    return CFURLGetTypeID();
}

template <>
inline CFTypeID typeIDOf<CFUUIDRef>() {
    return CFUUIDGetTypeID();
}

/** @endcond */

/** The object as what it is said to be, or null when it is something else (or null). For objects
 * that came from outside: cast<CFStringRef>(CFDictionaryGetValue(entry, key)). */
template <typename T>
T cast(CFTypeRef object) noexcept {
    if (object == nullptr || CFGetTypeID(object) != typeIDOf<T>()) {
        return nullptr;
    }
    return static_cast<T>(const_cast<std::remove_const_t<std::remove_pointer_t<T>>*>(
        static_cast<std::add_const_t<std::remove_pointer_t<T>>*>(object)));
}

} // namespace krl::cf

#endif
