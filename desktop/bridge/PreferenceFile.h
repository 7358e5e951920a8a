#pragma once

#include "desktop/bridge/Preferences.h"

#include <filesystem>

namespace krl::desktop {

/// Where preferences are kept.
/// @param folder  of the preferences of all programs
std::filesystem::path preferenceFile(const std::filesystem::path& folder);

/// Reads what was kept; what is usual where nothing was. Whoever can write there may have made it: what
/// is wrong about it is found here, and none of it is believed then.
/// @throw Failure when it is damaged
Preferences readPreferences(const std::filesystem::path& file);

/// Keeps preferences, of which the old or the new ones are there, whole, whatever happens.
/// @throw Failure when they cannot be kept
void writePreferences(const std::filesystem::path& file, const Preferences& preferences);

} // namespace krl::desktop
