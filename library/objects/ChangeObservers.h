#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace krl::ringtones {

/// Functions that are called around a change. Observers may come and go at any time, from any
/// thread and from within a call.
class ChangeObservers {
public:
    using Function = std::function<void()>;

    /// @return a number that no other observer has had, never 0
    uint64_t add(Function willChange, Function didChange);
    void remove(uint64_t number);

    /// Makes the change between the calls of all observers. One that has gone meanwhile is not
    /// called any more, one that has come is not called yet.
    void around(const Function& change);

private:
    struct Observer {
        uint64_t number;
        Function willChange;
        Function didChange;
    };

    using Observers = std::vector<std::shared_ptr<const Observer>>;

    Observers current();
    bool isThere(uint64_t number);
    void tell(const Observers& observers, Function Observer::*function);

    std::mutex mutex_;
    Observers observers_;
    uint64_t lastNumber_ = 0;
};

} // namespace krl::ringtones
