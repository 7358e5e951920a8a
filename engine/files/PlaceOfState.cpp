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

} // namespace

std::optional<std::filesystem::path> placeOfState() {
    if (const auto state = folderIn("XDG_STATE_HOME")) {
        return *state / "krlvesk";
    }
    if (const auto home = folderIn("HOME")) {
        return *home / ".local/state/krlvesk";
    }
    return std::nullopt;
}

} // namespace krl::engine
