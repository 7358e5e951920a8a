/// Notifications posted on a phone, and the connections that observe them.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>

namespace virtualphone {

class Notifications {
public:
    /// Called with the name, on the posting thread, with no other call at the same time.
    using Relay = std::function<void(const std::string& name)>;

    /// The key stands for the observer; observing a name twice is observing it once.
    void observe(const void* observer, const std::string& name, Relay relay);

    /// No call comes any more after this.
    void forget(const void* observer);

    void post(const std::string& name);

private:
    struct Observer {
        std::set<std::string> names;
        Relay relay;
    };

    std::mutex mutex_;
    std::map<const void*, Observer> observers_;
};

} // namespace virtualphone
