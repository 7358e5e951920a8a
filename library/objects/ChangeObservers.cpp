#include "library/objects/ChangeObservers.h"

#include <algorithm>
#include <utility>

namespace krl::ringtones {

uint64_t ChangeObservers::add(Function willChange, Function didChange) {
    const std::lock_guard guard(mutex_);
    observers_.push_back(std::make_shared<const Observer>(
        Observer{++lastNumber_, std::move(willChange), std::move(didChange)}));
    return lastNumber_;
}

void ChangeObservers::remove(uint64_t number) {
    Observers gone; // destroyed outside the lock: what its functions hold may come back here
    const std::lock_guard guard(mutex_);
    const auto isIt = [number](const auto& observer) { return observer->number == number; };
    std::copy_if(observers_.begin(), observers_.end(), std::back_inserter(gone), isIt);
    std::erase_if(observers_, isIt);
}

void ChangeObservers::around(const Function& change) {
    const Observers observers = current();
    tell(observers, &Observer::willChange);
    change();
    tell(observers, &Observer::didChange);
}

ChangeObservers::Observers ChangeObservers::current() {
    const std::lock_guard guard(mutex_);
    return observers_;
}

bool ChangeObservers::isThere(uint64_t number) {
    const std::lock_guard guard(mutex_);
    return std::any_of(observers_.begin(), observers_.end(),
                       [number](const auto& observer) { return observer->number == number; });
}

void ChangeObservers::tell(const Observers& observers, Function Observer::*function) {
    for (const auto& observer : observers) {
        const Function& call = (*observer).*function;
        if (call && isThere(observer->number)) {
            call();
        }
    }
}

} // namespace krl::ringtones
