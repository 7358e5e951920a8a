#pragma once

#include <glib-object.h>

#include <memory>
#include <string>
#include <utility>

namespace krl::desktop {

/// One reference on an object.
template <typename T>
class Owned {
public:
    Owned() = default;

    Owned(const Owned& other) : object_(other.object_) {
        if (object_ != nullptr) {
            g_object_ref(object_);
        }
    }

    Owned(Owned&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}

    Owned& operator=(Owned other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }

    ~Owned() {
        if (object_ != nullptr) {
            g_object_unref(object_);
        }
    }

    T* get() const { return object_; }

    explicit operator bool() const { return object_ != nullptr; }

    /// Takes over a reference that is ours already.
    static Owned adopt(T* object) { return Owned(object); }

    /// Takes one of its own; of a floating object, that one.
    static Owned keep(T* object) {
        return Owned(object == nullptr ? nullptr : static_cast<T*>(g_object_ref_sink(object)));
    }

private:
    explicit Owned(T* object) : object_(object) {}

    T* object_ = nullptr;
};

template <typename T>
Owned<T> adopt(T* object) {
    return Owned<T>::adopt(object);
}

template <typename T>
Owned<T> keep(T* object) {
    return Owned<T>::keep(object);
}

/// Text that GLib has allocated.
inline std::string taken(char* text) {
    const std::unique_ptr<char, decltype(&g_free)> owner(text, g_free);
    return text == nullptr ? std::string() : std::string(text);
}

} // namespace krl::desktop
