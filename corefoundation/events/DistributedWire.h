/// A distributed notification as a signal on the session bus: name, object (empty for none) and
/// user information, whose values are strings, numbers and booleans.
#pragma once

namespace krl::cf::wire {

constexpr char kPath[] = "/CoreFoundation/DistributedNotification";
constexpr char kInterface[] = "CoreFoundation.DistributedNotification";
constexpr char kMember[] = "Posted";
constexpr char kSignature[] = "ssa{sv}";

} // namespace krl::cf::wire
