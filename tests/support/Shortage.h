/// Memory that runs out: a program with Shortage.cpp has a malloc() and a realloc() that refuse when
/// they are told to, and with them operator new.
#pragma once

#include <cstddef>
#include <functional>
#include <utility>

namespace krl::test {

enum class Failing { Once, FromThenOn };

/// Does something while the allocation after so many fails, or all from there on.
/// @return whether any did
bool isShort(Failing failing, size_t allocations, const std::function<void()>& action);

/// Memory is there again as long as one lives: for what a test itself does meanwhile.
class Plenty {
public:
    Plenty();
    ~Plenty();
    Plenty(const Plenty&) = delete;
    Plenty& operator=(const Plenty&) = delete;

private:
    bool wasSuspended_;
};

/// Gives a function variable another function around its own, within which memory is there.
template <auto& variable>
class WithPlenty;

template <typename Result, typename... Arguments, Result (*&variable)(Arguments...)>
class WithPlenty<variable> {
public:
    WithPlenty() : own_(std::exchange(variable, &call)) { current = own_; }

    ~WithPlenty() { variable = own_; }

    WithPlenty(const WithPlenty&) = delete;
    WithPlenty& operator=(const WithPlenty&) = delete;

private:
    static Result call(Arguments... arguments) {
        const Plenty plenty;
        return current(arguments...);
    }

    static inline Result (*current)(Arguments...) = nullptr;
    Result (*own_)(Arguments...);
};

} // namespace krl::test
