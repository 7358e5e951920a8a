#include "library/system/HomeFolder.h"

#include "library/system/Files.h"

#include <array>
#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

namespace krl::system {
namespace {

constexpr char kNoHome[] = "/nonexistent";

std::string withoutTrailingSlashes(std::string path) {
    while (!path.empty() && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

std::string homeInUserDatabase() {
    std::array<char, 16384> buffer{};
    passwd entry{};
    passwd* found = nullptr;
    const int error = getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found);
    return error == 0 && found != nullptr && found->pw_dir != nullptr ? found->pw_dir : "";
}

} // namespace

std::string homeFolder() {
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
        return withoutTrailingSlashes(home);
    }
    const std::string home = homeInUserDatabase();
    return home.empty() ? kNoHome : withoutTrailingSlashes(home);
}

void completeHomeFolder() {
    makeFolder(homeFolder() + "/Library");
}

} // namespace krl::system
