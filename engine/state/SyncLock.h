#pragma once

#include <MobileDevice/MobileDevice.h>

#include <cstdint>

namespace krl::engine {

/// The file that every program locks that syncs the phone.
inline constexpr char kSyncLock[] = "/com.apple.itunes.lock_sync";

/// Tries the sync lock, and gives it back at once.
/// @return 0 when nobody holds it, kAFCWouldBlock when somebody does, or why it cannot be tried
int32_t trySyncLock(afc_connection* files);

} // namespace krl::engine
