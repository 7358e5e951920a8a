#pragma once

#include <filesystem>
#include <optional>

namespace krl::engine {

/// Where what a program keeps from one run to the next has its place, which need not be there yet:
/// "krlvesk" in $XDG_STATE_HOME, or else in ~/.local/state. Nothing when the environment names
/// neither.
std::optional<std::filesystem::path> placeOfState();

/// The same for what a person has chosen: "krlvesk" in $XDG_CONFIG_HOME, or else in ~/.config.
std::optional<std::filesystem::path> placeOfPreferences();

/// The same for what can be worked out again: "krlvesk" in $XDG_CACHE_HOME, or else in ~/.cache.
std::optional<std::filesystem::path> placeOfCache();

} // namespace krl::engine
