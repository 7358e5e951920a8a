#include "library/system/Files.h"

#include <filesystem>
#include <system_error>

namespace krl::system {

namespace fs = std::filesystem;

bool exists(const std::string& path) {
    std::error_code failure;
    return fs::exists(path, failure);
}

void removeAll(const std::string& path) {
    std::error_code ignored;
    fs::remove_all(path, ignored);
}

void makeFolder(const std::string& path) {
    std::error_code ignored;
    fs::create_directory(path, ignored);
}

} // namespace krl::system
