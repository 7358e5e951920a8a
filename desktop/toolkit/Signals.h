#pragma once

#include <glib-object.h>

#include <functional>

namespace krl::desktop {

/// What a signal brings: its parameters, the object first, and the place for an answer, null where
/// none is wanted.
struct Emission {
    const GValue* parameters;
    GValue* answer;

    /// A parameter that is an object.
    template <typename T>
    T* object(unsigned index) const {
        return static_cast<T*>(g_value_get_object(parameters + index));
    }
};

/// Calls a function at each signal, for as long as the object lives.
void on(gpointer object, const char* signal, std::function<void()> handler);
void onEmission(gpointer object, const char* signal, std::function<void(const Emission&)> handler);

/// Calls a function once when the main loop has nothing more urgent to do.
void onceIdle(std::function<void()> function);

/// Calls a function whenever a descriptor is readable, for as long as one lives.
class DescriptorWatch {
public:
    DescriptorWatch(int descriptor, std::function<void()> function);
    ~DescriptorWatch();
    DescriptorWatch(const DescriptorWatch&) = delete;
    DescriptorWatch& operator=(const DescriptorWatch&) = delete;

private:
    const std::function<void()> function_;
    guint source_;
};

} // namespace krl::desktop
