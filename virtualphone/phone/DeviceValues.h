/// What lockdown knows about a phone: domains of keys and values, changed by clients at run time.
#pragma once

#include "virtualphone/phone/PhoneOptions.h"
#include "virtualphone/wire/PropertyList.h"

#include <map>
#include <mutex>
#include <string>

namespace virtualphone {

class DeviceValues {
public:
    explicit DeviceValues(const PhoneOptions& options);

    /// A copy of one value; null when there is none.
    Plist copy(const std::string& domain, const std::string& key) const;

    /// A copy of a domain's values; an unknown domain has none. The default domain is "".
    Plist copyAll(const std::string& domain) const;

    /// Whether clients may change or remove this value.
    static bool isWritable(const std::string& domain, const std::string& key);

    void set(const std::string& domain, const std::string& key, Plist value);
    void remove(const std::string& domain, const std::string& key);

private:
    mutable std::mutex mutex_;
    std::map<std::string, Plist> domains_;
};

} // namespace virtualphone
