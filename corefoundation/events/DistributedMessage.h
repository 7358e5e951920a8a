/// Distributed notifications between objects, plain values and messages of the bus. Internal.
#pragma once

#include <CoreFoundation/CFRef.h>
#include <cstdint>
#include <optional>
#include <string>
#include <systemd/sd-bus.h>
#include <utility>
#include <variant>
#include <vector>

namespace krl::cf {

using InfoValue = std::variant<std::string, int64_t, uint64_t, double, bool>;
using Info = std::vector<std::pair<std::string, InfoValue>>;

/// What travels, free of objects so that any thread may hold it. Texts are UTF-8 without zeros.
struct DistributedNotification {
    std::string name;
    std::string object; ///< empty: none
    Info userInfo;
};

/// A text that can travel; nothing when the string is no Unicode text or holds a zero.
std::optional<std::string> travellingText(CFStringRef string);

/// What of a dictionary, which may be null, can travel.
Info travellingInfo(CFDictionaryRef userInfo);

/// The dictionary that arrived; null for an empty one.
CFRef<CFDictionaryRef> dictionaryOf(const Info& info);

/// @return a negative error number on failure.
int sendNotification(sd_bus* bus, const DistributedNotification& notification);

/// Nothing when the message is none of ours. Values of types that we do not know are left out.
std::optional<DistributedNotification> readNotification(sd_bus_message* message);

} // namespace krl::cf
