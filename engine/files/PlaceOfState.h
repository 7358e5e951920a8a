#pragma once

#include <filesystem>
#include <optional>

namespace krl::engine {

/// Where what a program keeps from one run to the next has its place, which need not be there yet:
/// "krlvesk" in $XDG_STATE_HOME, or else in ~/.local/state. Nothing when the environment names
/// neither.
std::optional<std::filesystem::path> placeOfState();

} // namespace krl::engine
