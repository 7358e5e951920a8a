#include "engine/files/PlaceOfState.h"

#include <cstdlib>

namespace krl::engine {
namespace {

/// What a variable of the environment names; nothing when that is no absolute path.
std::optional<std::filesystem::path> folderIn(const char* variable) {
    const char* const value = std::getenv(variable);
    if (value == nullptr || !std::filesystem::path(value).is_absolute()) {
        return std::nullopt;
    }
    return value;
}

std::optional<std::filesystem::path> placeIn(const char* variable, const char* belowHome) {
    if (const auto folder = folderIn(variable)) {
        return *folder / "krlvesk";
    }
    if (const auto home = folderIn("HOME")) {
        return *home / belowHome / "krlvesk";
    }
    return std::nullopt;
}

} // namespace

std::optional<std::filesystem::path> placeOfState() {
    return placeIn("XDG_STATE_HOME", ".local/state");
}

std::optional<std::filesystem::path> placeOfPreferences() {
    return placeIn("XDG_CONFIG_HOME", ".config");
}

std::optional<std::filesystem::path> placeOfCache() {
    return placeIn("XDG_CACHE_HOME", ".cache");
}

} // namespace krl::engine
