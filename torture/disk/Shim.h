/// What the library that is put under vesk goes by, and what it says afterwards.
#pragma once

namespace torture {

// Environment variables.

/// The folder whose disk is watched; without it nothing is.
inline constexpr char kDiskFolder[] = "TORTURE_DISK_FOLDER";

/// A file that gets, when the process ends of its own accord, the number of calls that were counted,
/// and on a line each what the descriptors are of that are open then.
inline constexpr char kDiskReport[] = "TORTURE_DISK_REPORT";

/// The call that something happens at, counted from 1.
inline constexpr char kDiskCall[] = "TORTURE_DISK_CALL";

/// What happens, one of the words below.
inline constexpr char kDiskAction[] = "TORTURE_DISK_ACTION";

// Before the call is made, the process is killed...
inline constexpr char kKilled[] = "killed";
/// ... and with it goes all that was not synced.
inline constexpr char kPowerCut[] = "power-cut";
/// ... and the bytes that were not synced, not the names.
inline constexpr char kPowerCutBytes[] = "power-cut-bytes";
/// From then on there is no room for anything more.
inline constexpr char kFull[] = "full";
/// This call fails for want of room.
inline constexpr char kFullOnce[] = "full-once";
/// From then on nothing can be changed.
inline constexpr char kFailing[] = "failing";

} // namespace torture
