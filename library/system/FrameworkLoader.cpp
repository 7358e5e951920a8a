#include "library/system/FrameworkLoader.h"

#include <atomic>
#include <dlfcn.h>
#include <filesystem>

namespace krl::system {
namespace {

bool reallyLoad(const std::string& path) {
    const std::filesystem::path folder = path;
    const std::string object = (folder / folder.stem()).string();
    return dlopen(object.c_str(), RTLD_NOW | RTLD_GLOBAL) != nullptr;
}

std::atomic<FrameworkLoader> loaderInForce{reallyLoad};

} // namespace

bool loadFramework(const std::string& path) {
    return loaderInForce.load()(path);
}

FrameworkLoader setFrameworkLoader(FrameworkLoader loader) {
    return loaderInForce.exchange(loader != nullptr ? loader : reallyLoad);
}

} // namespace krl::system
