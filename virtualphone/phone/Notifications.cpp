#include "virtualphone/phone/Notifications.h"

#include <utility>

namespace virtualphone {

void Notifications::observe(const void* observer, const std::string& name, Relay relay) {
    const std::lock_guard lock(mutex_);
    Observer& entry = observers_[observer];
    entry.names.insert(name);
    entry.relay = std::move(relay);
}

void Notifications::forget(const void* observer) {
    const std::lock_guard lock(mutex_);
    observers_.erase(observer);
}

void Notifications::post(const std::string& name) {
    const std::lock_guard lock(mutex_);
    for (const auto& [key, observer] : observers_) {
        if (observer.names.contains(name)) {
            observer.relay(name);
        }
    }
}

} // namespace virtualphone
